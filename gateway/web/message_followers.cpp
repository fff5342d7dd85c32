#include "gateway/web/message_followers.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "gateway/web/timeline.h"

namespace web {
namespace {

std::string id_of(const std::string& run, std::int64_t number) { return run + ":" + std::to_string(number); }

}  // namespace

bool MessageFollowers::add(const std::shared_ptr<Onlooker>& onlooker, std::string_view last_event) {
  std::optional<Place> place;
  const auto colon = std::min(last_event.rfind(':'), last_event.size());
  const auto digits = last_event.substr(std::min(colon + 1, last_event.size()));
  std::int64_t number = -1;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (number >= 0) {
    place = Place{std::string(last_event.substr(0, colon)), number};
  }
  auto& one = *places_.insert_or_assign(onlooker, std::move(place)).first;
  if (is_told_) {
    begin_at(one);
    is_told_ = one.second->number >= at_;
    return !is_told_;
  }
  return false;
}

// The question for nobody ends.
void MessageFollowers::remove(const std::shared_ptr<Onlooker>& onlooker) {
  places_.erase(onlooker);
  is_told_ = is_told_ && !places_.empty();
}

// Where he begins, now that it is known which run it is.
void MessageFollowers::begin_at(Places::value_type& one) {
  auto& [onlooker, place] = one;
  const auto newest = std::max(at_, newest_);
  if (!place.has_value()) {
    place = Place{run_, newest};
  } else if (place->run != run_ || place->number > newest) {
    place = Place{run_, 0};
    onlooker->put(event_text("gap", {{"reason", "another_run"}, {"after", 0}}, id_of(run_, 0)));
  }
}

Json MessageFollowers::request() {
  is_told_ = false;
  Json request = {{"command", "events"}};
  const Place* first = nullptr;
  for (const auto& [onlooker, place] : places_) {
    const bool is_better =
        place.has_value() &&
        (first == nullptr || (place->run == first->run ? place->number < first->number : place->run == run_));
    first = is_better ? &*place : first;
  }
  if (first != nullptr) {
    request["after"] = first->number;
    request["run"] = first->run;
  }
  return request;
}

bool MessageFollowers::take(const Json& line) {
  if (line.contains("following")) {
    return begin(line);
  }
  if (!is_told_) {
    return false;  // what was on its way when another came, who lacks some before it
  }
  if (line.contains("message")) {
    at_ = line.at("number").get<std::int64_t>();
    const std::string text = event_text("message", line, id_of(run_, at_));
    tell([&](std::int64_t) { return text; });
  } else if (line.contains("gap") && line.at("gap").at("reason") == "gone") {
    const Json& gap = line.at("gap");
    at_ = gap.at("last").get<std::int64_t>();
    tell([&](std::int64_t after) {
      const auto first = std::max(after + 1, gap.at("first").get<std::int64_t>());
      return event_text("gap", {{"reason", "gone"}, {"first", first}, {"last", at_}}, id_of(run_, at_));
    });
  }
  return true;
}

bool MessageFollowers::begin(const Json& line) {
  run_ = line.at("run").get<std::string>();
  at_ = line.at("after").get<std::int64_t>();
  newest_ = line.at("newest").get<std::int64_t>();
  is_told_ = true;
  for (auto& one : places_) {
    begin_at(one);
    is_told_ = is_told_ && one.second->number >= at_;
  }
  return is_told_;
}

// To those who have not had what is at_. text_behind: what it is to one who has had all up to a number.
void MessageFollowers::tell(const std::function<std::string(std::int64_t)>& text_behind) {
  for (auto& [onlooker, place] : places_) {
    if (place->number < at_) {
      onlooker->put(text_behind(place->number));
      place->number = at_;
    }
  }
}

}  // namespace web
