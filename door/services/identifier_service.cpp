#include "door/services/identifier_service.h"

#include <strings.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "door/services/door_service.h"
#include "refhost/log.h"
#include "refhost/send.h"

namespace achost {
namespace {

constexpr int kDoor = 1;
constexpr const char* kOpens = "opens";
constexpr const char* kNotYetValid = "not_yet_valid";
constexpr const char* kNoLongerValid = "no_longer_valid";

}  // namespace

IdentifierService::IdentifierService(const UserStore& users, const SettingsChanges& changes, const Bookkeeping& books,
                                     std::function<bool()> is_locked, WallClock now)
    : users_(users),
      changes_(changes),
      books_(books),
      is_locked_(std::move(is_locked)),
      now_(std::move(now)),
      subscriber_("identifier", {{"identifier_new_card", [this](ac::Message* message) { identify(*message); }, false},
                                 {"identifier_supress_actions", [this](ac::Message*) { ++suppressions_; }, false},
                                 {"identifier_allow_actions",
                                  [this](ac::Message*) { suppressions_ = std::max(suppressions_ - 1, 0); }, false}}) {}

void IdentifierService::identify(const ac::Message& message) const {
  std::int64_t card = 0;
  std::int64_t device = 0;
  std::string uuid;
  if (!message.get_int64("value", &card)) {
    refhost::log::warning("identifier: \"identifier_new_card\" without an int64 \"value\"");
    return;
  }
  message.get_int64("device_id", &device);
  message.get_string("uuid", &uuid);
  const auto found = decide(static_cast<std::uint64_t>(card));
  note(static_cast<std::uint64_t>(card), found);
  const auto& outcome = found.outcomes.front();
  const auto& holder = found.holder;
  std::vector<std::pair<std::string, refhost::FieldValue>> decision{
      {"value", card}, {"device_id", device}, {"uuid", uuid}, {"outcome", outcome}};
  if (holder.has_value()) {
    decision.emplace_back("user_id", holder->id);
    if (!holder->name.empty()) {
      decision.emplace_back("user_name", holder->name);
    }
  }
  refhost::send("identifier_decision", decision);
  if (outcome == kOpens) {
    refhost::send("actuator_open_door", {{"id", kDoor}, {"reason", kIdentification}});
  }
}

void IdentifierService::note(std::uint64_t card, const Decision& decision) const {
  const auto& holder = decision.holder;
  books_.note({.kind = Kind::identification,
               .user = holder.has_value() ? std::optional(holder->id) : std::nullopt,
               .card = card,
               .fields = fields_of(decision)});
}

// With what a person wants to know of each outcome.
std::vector<EntryField> IdentifierService::fields_of(const Decision& decision) {
  const auto& outcomes = decision.outcomes;
  std::vector<EntryField> fields{{"outcome", outcomes.front()}};
  if (outcomes.size() > 1) {
    std::string also;
    std::for_each(outcomes.begin() + 1, outcomes.end(),
                  [&](const std::string& one) { also += (also.empty() ? "" : " ") + one; });
    fields.emplace_back("also", also);
  }
  if (std::ranges::find(outcomes, kNotYetValid) != outcomes.end()) {
    fields.emplace_back("from", decision.holder->from);
  }
  if (std::ranges::find(outcomes, kNoLongerValid) != outcomes.end()) {
    fields.emplace_back("until", decision.holder->until);
  }
  if (!decision.reason.empty()) {
    fields.emplace_back("reason", decision.reason);
  }
  return fields;
}

std::int64_t IdentifierService::system_time() {
  using std::chrono::milliseconds;
  return std::chrono::floor<milliseconds>(std::chrono::system_clock::now()).time_since_epoch().count();
}

IdentifierService::Decision IdentifierService::decide(std::uint64_t card) const {
  try {
    auto holder = users_.holder_of(card);
    auto outcomes = refusals_of(holder);
    if (outcomes.empty()) {
      outcomes.emplace_back(kOpens);
    }
    return {.outcomes = std::move(outcomes), .holder = std::move(holder), .reason = ""};
  } catch (const std::exception& failure) {
    refhost::log::error(std::string("identifier: the door stays shut: ") + failure.what());
    return {.outcomes = {"failed"}, .holder = std::nullopt, .reason = failure.what()};
  }
}

// All that hold the card back, the first of which is told.
std::vector<std::string> IdentifierService::refusals_of(const std::optional<User>& holder) const {
  std::vector<std::string> refusals;
  if (suppressions_ > 0) {
    refusals.emplace_back("held_back");
  }
  if (holder.has_value()) {
    add_refusals_of_user(*holder, refusals);
  } else {
    refusals.emplace_back("unknown");
  }
  if (is_locked_()) {
    refusals.emplace_back("door_locked");
  }
  if (is_stricter_mode_awaited()) {
    refusals.emplace_back("mode_awaited");
  }
  if (!books_.lets_open()) {
    refusals.emplace_back("journal_unwritable");
  }
  return refusals;
}

void IdentifierService::add_refusals_of_user(const User& holder, std::vector<std::string>& refusals) const {
  const std::int64_t now = now_();
  if (holder.blocked) {
    refusals.emplace_back("blocked");
  }
  if (holder.from != 0 && now < holder.from) {
    refusals.emplace_back(kNotYetValid);
  }
  if (holder.until != 0 && now >= holder.until) {
    refusals.emplace_back(kNoLongerValid);
  }
}

// The plug-in decides by the mode whether a reading counts, so until it has taken the stored one it may announce cards
// against the input. Those that are in the house wait for no card.
bool IdentifierService::is_stricter_mode_awaited() const {
  const auto mode = changes_.awaited("uhf", "operation_mode");
  return mode.has_value() && strcasecmp(mode->stored.c_str(), "continuous") != 0;
}

}  // namespace achost
