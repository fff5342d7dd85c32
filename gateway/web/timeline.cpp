#include "gateway/web/timeline.h"

#include <charconv>
#include <utility>

namespace web {

std::string event_text(const std::string& name, const Json& data, const std::string& id) {
  return (id.empty() ? "" : "id: " + id + "\n") + "event: " + name +
         "\ndata: " + data.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n\n";
}

Json Timeline::request() const {
  // What says nothing to a person: each sighting stands in an identification, too.
  Json request = {{"command", "journal_follow"},
                  {"kinds", {"identification", "opening",      "closing",        "exit_request", "enrollment",
                             "user_change",    "card_change",  "setting_change", "reader_state", "alarm",
                             "start",          "end",          "clock_jump",     "gap",          "retention",
                             "refusal",        "disagreement", "contact",        "mode",         "command"}}};
  if (last_.has_value()) {
    request["after"] = *last_;
    request["journal"] = journal_;
  } else {
    request["last"] = kMost;
  }
  return request;
}

std::string Timeline::take(const Json& line) {
  if (line.contains("following")) {
    const auto journal = line.at("journal").get<std::string>();
    const bool is_another = std::exchange(journal_, journal) != journal;
    last_ = line.at("after").get<std::int64_t>();
    return is_another ? begin_anew() : "";
  }
  if (line.contains("gap")) {
    return begin_anew();  // entries that are told may be gone, or others'
  }
  if (!line.contains("entry")) {
    return "";
  }
  const Json& entry = line.at("entry");
  last_ = entry.at("number").get<std::int64_t>();
  entries_.push_back({*last_, event_text("entry", entry, journal_ + ":" + std::to_string(*last_))});
  if (entries_.size() > kMost) {
    entries_.pop_front();
  }
  return entries_.back().text;
}

std::string Timeline::begin_anew() {
  entries_.clear();
  return event_text("timeline", Json::object());
}

std::string Timeline::since(std::string_view id) const {
  const auto colon = std::min(id.find(':'), id.size());
  std::int64_t number = -1;
  std::from_chars(id.data() + std::min(colon + 1, id.size()), id.data() + id.size(), number);
  const bool goes_on = !journal_.empty() && id.substr(0, colon) == journal_ && !entries_.empty() &&
                       number >= entries_.front().number && number <= entries_.back().number;
  std::string text = goes_on ? "" : event_text("timeline", Json::object());
  for (const auto& entry : entries_) {
    if (!goes_on || entry.number > number) {
      text += entry.text;
    }
  }
  return text;
}

}  // namespace web
