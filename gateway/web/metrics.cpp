#include "gateway/web/metrics.h"

#include <array>
#include <cstdio>
#include <map>
#include <utility>

#include "version.h"

namespace web {
namespace {

enum class Kind { gauge, counter };

// A figure, and where it stands in the daemon's status.
struct Figure {
  const char* name;  // a counter's without its "_total"
  Kind kind;
  const char* help;
  const char* at;     // a JSON pointer; of a list with `label`: to the list
  const char* label;  // what names each of a list; null for a single figure
  const char* key;    // the field of each that has the name
  const char* value;  // and the one that has the figure; null: 1
};

// A state is one of a few words: 1 for the one that holds, 0 for the others.
struct States {
  const char* name;
  const char* help;
  const char* at;
  const char* label;
  std::array<const char*, 6> words;  // those behind the last are null
};

constexpr std::array<Figure, 19> kFigures = {{
    {"achost_uptime_seconds", Kind::gauge, "How long the door daemon has run.", "/uptime_s", nullptr, nullptr, nullptr},
    {"achost_reader_last_answer_seconds", Kind::gauge, "Since the reader's last good answer.", "/health/last_answer_s",
     nullptr, nullptr, nullptr},
    {"achost_reader_state_seconds", Kind::gauge, "How long the reader has been in its state.", "/health/since_s",
     nullptr, nullptr, nullptr},
    {"achost_reader_polls_per_second", Kind::gauge, "Polls in the last ten seconds.", "/health/polls_per_second",
     nullptr, nullptr, nullptr},
    {"achost_reader_bad_ratio", Kind::gauge, "The share of bad polls in the last ten seconds.", "/health/bad_share",
     nullptr, nullptr, nullptr},
    {"achost_reader_polls", Kind::counter, "Polls since the start.", "/health/polls", nullptr, nullptr, nullptr},
    {"achost_reader_bad_polls", Kind::counter, "Polls whose answer was bad.", "/health/bad_polls", nullptr, nullptr,
     nullptr},
    {"achost_reader_silent_polls", Kind::counter, "Polls without an answer.", "/health/silent_polls", nullptr, nullptr,
     nullptr},
    {"achost_reader_dropped_bytes", Kind::counter, "Bytes of the line that no question asked for.",
     "/health/dropped_bytes", nullptr, nullptr, nullptr},
    {"achost_recovery_drops", Kind::counter, "Times that what waited on the line was dropped.",
     "/health/recovery/dropped", nullptr, nullptr, nullptr},
    {"achost_recovery_reopens", Kind::counter, "Times that the port was opened again.", "/health/recovery/reopened",
     nullptr, nullptr, nullptr},
    {"achost_recovery_resets", Kind::counter, "Times that the reader was reset.", "/health/recovery/reset", nullptr,
     nullptr, nullptr},
    {"achost_bus_delivered", Kind::counter, "Messages that reached a handler.", "/bus/delivered", nullptr, nullptr,
     nullptr},
    {"achost_bus_dropped", Kind::counter, "Messages that found a full queue.", "/bus/dropped", nullptr, nullptr,
     nullptr},
    {"achost_bus_failed_handlers", Kind::counter, "Handlers that ended in an error.", "/bus/failed_handlers", nullptr,
     nullptr, nullptr},
    {"achost_memory_allocated_bytes", Kind::gauge, "What the daemon has allocated.", "/allocated", nullptr, nullptr,
     nullptr},
    {"achost_queue_waiting", Kind::gauge, "Messages that wait in a queue.", "/queues", "queue", "name", "waiting"},
    {"achost_queue_dropped", Kind::counter, "Messages that a full queue has dropped.", "/queues", "queue", "name",
     "dropped"},
    {"achost_alarm", Kind::gauge, "Alarms that stand.", "/alarms", "alarm", "name", nullptr},
}};

constexpr std::array<States, 4> kStates = {{
    {"achost_reader_state",
     "How the reader does.",
     "/health/state",
     "state",
     {"answering", "noisy", "silent", "gone", "lent", "direct"}},
    {"achost_door_lock", "Whether the lock is open.", "/door/lock", "state", {"open", "closed"}},
    {"achost_door_mode", "The mode of the door.", "/door/mode", "mode", {"normal", "locked", "unlocked"}},
    {"achost_door_contact",
     "What the door's contact tells, where there is one.",
     "/door/contact",
     "state",
     {"closed", "opened", "forced", "held_warning", "held_alarm"}},
}};

// As a number that loses nothing: 12, 0.25.
std::string number_text(const Json& value) {
  if (!value.is_number_float()) {
    return value.dump();
  }
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.9g", value.get<double>());
  return text.data();
}

std::string escaped(const std::string& text) {
  std::string safe;
  for (const char c : text) {
    safe += c == '\n' ? "\\n" : c == '"' ? "\\\"" : c == '\\' ? "\\\\" : std::string(1, c);
  }
  return safe;
}

class Text {
 public:
  Text(const Snapshot& snapshot, MetricsForm form) : form_(form) {
    if (snapshot.status.has_value()) {
      status_ = *snapshot.status;
    }
  }

  void begin(const std::string& name, Kind kind, const std::string& help) {
    // Only the older form has the ending in the name of the family too.
    const std::string family = form_ == MetricsForm::text && kind == Kind::counter ? name + "_total" : name;
    text_ +=
        "# HELP " + family + " " + help + "\n# TYPE " + family + (kind == Kind::counter ? " counter" : " gauge") + "\n";
    sample_ = kind == Kind::counter ? name + "_total" : name;
  }

  void sample(const std::string& labels, const std::string& value) {
    text_ += sample_ + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
  }

  void add(const Figure& figure) {
    const Json* const found = at(figure.at);
    const bool is_list = found != nullptr && found->is_array();
    if (found == nullptr || (figure.label == nullptr ? !found->is_number() : !is_list || found->empty())) {
      return;
    }
    begin(figure.name, figure.kind, figure.help);
    if (figure.label == nullptr) {
      sample("", number_text(*found));
      return;
    }
    std::map<std::string, std::int64_t> sums;  // several may have one name, but a label stands once
    for (const Json& one : *found) {
      sums[one.value(figure.key, "")] += figure.value == nullptr ? 1 : one.value(figure.value, std::int64_t{0});
    }
    for (const auto& [name, sum] : sums) {
      sample(std::string(figure.label) + "=\"" + escaped(name) + "\"", std::to_string(sum));
    }
  }

  void add(const States& states) {
    const Json* const found = at(states.at);
    if (found == nullptr || !found->is_string()) {
      return;
    }
    begin(states.name, Kind::gauge, states.help);
    for (const char* word : states.words) {
      if (word != nullptr) {
        sample(std::string(states.label) + "=\"" + word + "\"", *found == word ? "1" : "0");
      }
    }
  }

  std::string finished() { return std::move(text_) + (form_ == MetricsForm::open_metrics ? "# EOF\n" : ""); }

 private:
  const Json* at(const char* pointer) const {
    const Json::json_pointer place(pointer);
    return status_.contains(place) ? &status_.at(place) : nullptr;
  }

  const MetricsForm form_;
  Json status_ = Json::object();
  std::string text_;
  std::string sample_;  // the name of the family's samples
};

}  // namespace

MetricsForm metrics_form(std::string_view accept) {
  return accept.find("application/openmetrics-text") != accept.npos ? MetricsForm::open_metrics : MetricsForm::text;
}

std::string_view content_type(MetricsForm form) {
  return form == MetricsForm::open_metrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                           : "text/plain; version=0.0.4; charset=utf-8";
}

std::string metrics_text(const Snapshot& snapshot, MetricsForm form) {
  Text text(snapshot, form);
  text.begin("achost_up", Kind::gauge, "Whether the door daemon answers.");
  text.sample("", snapshot.status.has_value() ? "1" : "0");
  text.begin("achost_build", Kind::gauge, "The version of achost-web.");
  text.sample("version=\"" UHF_VERSION "\"", "1");
  for (const Figure& figure : kFigures) {
    text.add(figure);
  }
  for (const States& states : kStates) {
    text.add(states);
  }
  return text.finished();
}

}  // namespace web
