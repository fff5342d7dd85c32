#include "door/run/figures.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "door/services/door_service.h"

namespace achost {
namespace {

using Json = nlohmann::ordered_json;

double in_seconds(std::chrono::nanoseconds time) { return std::chrono::duration<double>(time).count(); }

Json json_of(const Histogram& histogram) {
  Json buckets = Json::array();
  std::uint64_t count = 0;
  const auto counts = histogram.counts();
  for (std::size_t i = 0; i < counts.size(); ++i) {
    count += counts.at(i);
    Json bucket = {{"count", count}};
    if (i < Histogram::kBounds.size()) {
      bucket["le_s"] = in_seconds(Histogram::kBounds.at(i));
    }
    buckets.push_back(std::move(bucket));
  }
  return {{"count", count}, {"sum_s", in_seconds(histogram.sum())}, {"buckets", std::move(buckets)}};
}

// By line::Outcome.
constexpr auto kPollWords =
    std::to_array<const char*>({"tags", "empty", "answered", "silence", "out_of_step", "echo", "bad", "endless"});
static_assert(kPollWords.size() == static_cast<std::size_t>(line::Outcome::endless) + 1);

}  // namespace

void Figures::saw(const line::Exchange& exchange) {
  if (exchange.code != line::Code::inventory) {
    return;
  }
  polls_.at(static_cast<std::size_t>(exchange.answer.outcome)).fetch_add(1, std::memory_order_relaxed);
  if (exchange.answer.outcome != line::Outcome::silence) {
    line_.add(exchange.last_byte - exchange.asked);
  }
  if (exchange.answer.tags.empty()) {
    return;
  }
  // An announcement belongs to the latest answer before it; that is told a little after it came.
  const std::lock_guard lock(mutex_);
  const auto before = std::exchange(answered_, exchange.last_byte);
  for (auto& one : announced_) {
    const auto from = one.at >= exchange.last_byte ? exchange.last_byte : before;
    if (!std::exchange(one.is_attributed, true) && from != Time()) {
      plug_in_.add(one.at - from);
    }
  }
}

// Whoever sends must not lose a message for a count.
void Figures::see(const ac::Message& message, Time now) {
  try {
    count(message, now);
  } catch (const std::bad_alloc&) {
  }
}

void Figures::count(const ac::Message& message, Time now) {
  const std::string_view type = message.type();
  if (type == "gpio_notified") {
    line_changed(message, now);
  } else if (type == "identifier_new_card") {
    announced(message, now);
  } else if (type == "identifier_decision") {
    decided(message, now);
  } else if (type == "actuator_open_door") {
    asked_to_open(message, now);
  } else if (type == "gpio_set_value") {
    relay_is_set(message);
  }
}

void Figures::announced(const ac::Message& message, Time now) {
  std::int64_t card = 0;
  if (message.get_int64("value", &card)) {
    const std::lock_guard lock(mutex_);
    announced_.at(next_) = {.card = card, .at = now, .is_decided = false, .is_attributed = false};
    next_ = (next_ + 1) % announced_.size();
  }
}

void Figures::decided(const ac::Message& message, Time now) {
  std::string outcome;
  std::int64_t card = 0;
  if (!message.get_string("outcome", &outcome) || !message.get_int64("value", &card)) {
    return;
  }
  const auto* const found = std::find(kOutcomes.begin(), kOutcomes.end() - 1, outcome);
  decisions_.at(static_cast<std::size_t>(found - kOutcomes.begin())).fetch_add(1, std::memory_order_relaxed);
  const std::lock_guard lock(mutex_);
  // Of a card that stays the earlier ones were not told.
  Time latest{};
  for (auto& one : announced_) {
    if (one.card == card && !std::exchange(one.is_decided, true)) {
      latest = std::max(latest, one.at);
    }
  }
  if (latest != Time()) {
    decision_.add(now - latest);
  }
}

void Figures::asked_to_open(const ac::Message& message, Time now) {
  int reason = -1;
  if (message.get_int("reason", &reason) && reason == kIdentification) {
    const std::lock_guard lock(mutex_);
    asked_ = now;
  }
}

// A door that is open already sets nothing: what was asked then is none that the relay follows.
void Figures::relay_is_set(const ac::Message& message) {
  int line = -1;
  int value = 0;
  if (!message.get_int("gpio", &line) || !message.get_int("value", &value) || line != door_line_()) {
    return;
  }
  const std::lock_guard lock(mutex_);
  relay_line_ = line;
  relay_pending_ = value != 0 ? asked_ : std::nullopt;
  asked_.reset();
}

void Figures::line_changed(const ac::Message& message, Time now) {
  int line = -1;
  int value = 0;
  if (!message.get_int("gpio", &line) || !message.get_int("value", &value) || value == 0) {
    return;
  }
  const std::lock_guard lock(mutex_);
  if (relay_pending_.has_value() && line == relay_line_) {
    relay_.add(now - *relay_pending_);
    relay_pending_.reset();
  }
}

Json Figures::json() const {
  Json polls = Json::object();
  for (std::size_t i = 0; i < polls_.size(); ++i) {
    polls[kPollWords.at(i)] = polls_.at(i).load(std::memory_order_relaxed);
  }
  Json identifications = Json::object();
  for (std::size_t i = 0; i < decisions_.size(); ++i) {
    identifications[std::string(kOutcomes.at(i))] = decisions_.at(i).load(std::memory_order_relaxed);
  }
  return {{"polls", std::move(polls)},
          {"identifications", std::move(identifications)},
          {"stages",
           {{"line", json_of(line_)},
            {"plug_in", json_of(plug_in_)},
            {"decision", json_of(decision_)},
            {"relay", json_of(relay_)}}}};
}

}  // namespace achost
