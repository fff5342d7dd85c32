#include "gateway/web/metrics.h"

#include <array>
#include <cstdio>
#include <map>
#include <utility>

#include "version.h"

namespace web {
namespace {

enum class Kind { gauge, counter, histogram };

// A figure, and where it stands in the daemon's "figures". With `label` there are many: the members of an object, by
// their names, or those of a list, by its `key`.
struct Figure {
  const char* name;  // a counter's without its "_total"
  Kind kind;
  const char* help;
  const char* at;  // a JSON pointer
  const char* label = nullptr;
  const char* key = nullptr;
  const char* value = nullptr;  // the field of each of a list; null: 1
};

// A state is one of a few words: 1 for the one that holds, 0 for the others.
struct States {
  const char* name;
  const char* help;
  const char* at;
  const char* label;
  std::array<const char*, 6> words;  // those behind the last are null
};

constexpr std::array<Figure, 25> kFigures = {{
    {"achost_uptime_seconds", Kind::gauge, "How long the door daemon has run.", "/uptime_s"},
    {"achost_reader_last_answer_seconds", Kind::gauge, "Since the reader's last good answer.", "/reader/last_answer_s"},
    {"achost_reader_state_seconds", Kind::gauge, "How long the reader has been in its state.", "/reader/since_s"},
    {"achost_reader_bad_ratio", Kind::gauge, "The share of bad polls in the last ten seconds.", "/reader/bad_share"},
    {"achost_reader_dropped_bytes", Kind::counter, "Bytes of the line that no question asked for.",
     "/reader/dropped_bytes"},
    {"achost_recovery_drops", Kind::counter, "Times that what waited on the line was dropped.",
     "/reader/recovery/dropped"},
    {"achost_recovery_reopens", Kind::counter, "Times that the port was opened again.", "/reader/recovery/reopened"},
    {"achost_recovery_resets", Kind::counter, "Times that the reader was reset.", "/reader/recovery/reset"},
    {"achost_polls", Kind::counter, "Polls of the reader, by what came of them.", "/polls", "outcome"},
    {"achost_readings", Kind::counter, "Readings, by what became of them.", "/readings", "reason"},
    {"achost_identifications", Kind::counter, "Announced cards, by the decision.", "/identifications", "outcome"},
    {"achost_model_readings", Kind::counter, "Readings that the model of the rules was asked about.",
     "/second_opinion/readings"},
    {"achost_model_disagreements", Kind::counter, "Readings that the plug-in and the model saw otherwise.",
     "/second_opinion/disagreements"},
    {"achost_bus_delivered", Kind::counter, "Messages that reached a handler.", "/bus/delivered"},
    {"achost_bus_dropped", Kind::counter, "Messages that found a full queue.", "/bus/dropped"},
    {"achost_bus_failed_handlers", Kind::counter, "Handlers that ended in an error.", "/bus/failed_handlers"},
    {"achost_queue_waiting", Kind::gauge, "Messages that wait in a queue.", "/queues", "queue", "name", "waiting"},
    {"achost_queue_dropped", Kind::counter, "Messages that a full queue has dropped.", "/queues", "queue", "name",
     "dropped"},
    {"achost_alarm", Kind::gauge, "Alarms that stand.", "/alarms", "alarm", "name"},
    {"achost_journal_first_entry", Kind::gauge, "The number of the oldest entry.", "/journal/first"},
    {"achost_journal_last_entry", Kind::gauge, "The number of the newest entry.", "/journal/last"},
    {"achost_disk_free_bytes", Kind::gauge, "What is free on the disk.", "/disk/free_bytes"},
    {"achost_disk_size_bytes", Kind::gauge, "How large the disk is.", "/disk/size_bytes"},
    {"achost_store_bytes", Kind::gauge, "What the files of a store take.", "/disk/stores", "store"},
    {"achost_memory_allocated_bytes", Kind::gauge, "What the daemon has allocated.", "/allocated"},
}};

constexpr std::array<States, 4> kStates = {{
    {"achost_reader_state",
     "How the reader does.",
     "/reader/state",
     "state",
     {"answering", "noisy", "silent", "gone", "lent", "direct"}},
    {"achost_door_lock", "Whether the lock is open.", "/door/lock", "state", {"open", "closed"}},
    {"achost_door_mode", "The mode of the door.", "/door/mode", "mode", {"normal", "locked", "unlocked"}},
    {"achost_door_contact",
     "What the door's contact tells, where there is one.",
     "/door/contact",
     "state",
     {"closed", "opened", "forced", "held_warning", "held_alarm", "not_used"}},
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
    if (snapshot.answer.has_value()) {
      figures_ = *snapshot.answer;
    }
  }

  void begin(const std::string& name, Kind kind, const std::string& help) {
    // Only the older form has the ending in the name of the family too.
    const std::string family = form_ == MetricsForm::text && kind == Kind::counter ? name + "_total" : name;
    const char* const type = kind == Kind::counter ? " counter" : kind == Kind::gauge ? " gauge" : " histogram";
    text_ += "# HELP " + family + " " + help + "\n# TYPE " + family + type + "\n";
    sample_ = kind == Kind::counter ? name + "_total" : name;
  }

  void sample(const std::string& labels, const std::string& value) {
    text_ += sample_ + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
  }

  void add(const Figure& figure) {
    const Json* const found = at(figure.at);
    if (found == nullptr ||
        (figure.label == nullptr ? !found->is_number() : !found->is_structured() || found->empty())) {
      return;
    }
    begin(figure.name, figure.kind, figure.help);
    if (figure.label == nullptr) {
      sample("", number_text(*found));
      return;
    }
    std::map<std::string, std::int64_t> sums;  // several may have one name, but a label stands once
    for (const auto& [name, one] : found->items()) {
      if (found->is_object()) {
        sums[name] += one.get<std::int64_t>();
      } else {
        sums[one.value(figure.key, "")] += figure.value == nullptr ? 1 : one.value(figure.value, std::int64_t{0});
      }
    }
    for (const auto& [name, sum] : sums) {
      sample(std::string(figure.label) + "=\"" + escaped(name) + "\"", std::to_string(sum));
    }
  }

  // How long each stage of a reading's way takes.
  void add_stages() {
    const Json* const stages = at("/stages");
    if (stages == nullptr) {
      return;
    }
    const std::string name = "achost_stage_seconds";
    begin(name, Kind::histogram, "From the poll to its answer, to the announcement, to the decision, to the relay.");
    for (const auto& [stage, histogram] : stages->items()) {
      const std::string label = "stage=\"" + escaped(stage) + "\"";
      for (const Json& bucket : histogram.at("buckets")) {
        const std::string bound = bucket.contains("le_s") ? number_text(bucket.at("le_s")) : "+Inf";
        text_ += name + "_bucket{" + label + ",le=\"" + bound + "\"} " + number_text(bucket.at("count")) + "\n";
      }
      text_ += name + "_sum{" + label + "} " + number_text(histogram.at("sum_s")) + "\n";
      text_ += name + "_count{" + label + "} " + number_text(histogram.at("count")) + "\n";
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
    return figures_.contains(place) ? &figures_.at(place) : nullptr;
  }

  const MetricsForm form_;
  Json figures_ = Json::object();
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
  text.sample("", snapshot.answer.has_value() ? "1" : "0");
  text.begin("achost_build", Kind::gauge, "The version of achost-web.");
  text.sample("version=\"" UHF_VERSION "\"", "1");
  for (const Figure& figure : kFigures) {
    text.add(figure);
  }
  for (const States& states : kStates) {
    text.add(states);
  }
  text.add_stages();
  return text.finished();
}

}  // namespace web
