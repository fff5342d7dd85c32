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

}  // namespace

IdentifierService::IdentifierService(const UserStore& users, const SettingsChanges& changes, const Bookkeeping& books,
                                     WallClock now)
    : users_(users),
      changes_(changes),
      books_(books),
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
  const auto& [outcome, holder] = found;
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
               .fields = {{"outcome", decision.outcome}}});
}

std::int64_t IdentifierService::system_time() {
  using std::chrono::milliseconds;
  return std::chrono::floor<milliseconds>(std::chrono::system_clock::now()).time_since_epoch().count();
}

IdentifierService::Decision IdentifierService::decide(std::uint64_t card) const {
  try {
    auto holder = users_.holder_of(card);
    return {.outcome = outcome_for(holder), .holder = std::move(holder)};
  } catch (const std::exception& failure) {
    refhost::log::error(std::string("identifier: the door stays shut: ") + failure.what());
    return {.outcome = "failed", .holder = std::nullopt};
  }
}

std::string IdentifierService::outcome_for(const std::optional<User>& holder) const {
  if (suppressions_ > 0) {
    return "held_back";
  }
  if (!holder.has_value()) {
    return "unknown";
  }
  if (holder->blocked) {
    return "blocked";
  }
  const std::int64_t now = now_();
  if (holder->from != 0 && now < holder->from) {
    return "not_yet_valid";
  }
  if (holder->until != 0 && now >= holder->until) {
    return "no_longer_valid";
  }
  if (is_stricter_mode_awaited()) {
    return "mode_awaited";
  }
  return books_.lets_open() ? kOpens : "journal_unwritable";
}

// The plug-in decides by the mode whether a reading counts, so until it has taken the stored one it may announce cards
// against the input. Those that are in the house wait for no card.
bool IdentifierService::is_stricter_mode_awaited() const {
  const auto mode = changes_.awaited("uhf", "operation_mode");
  return mode.has_value() && strcasecmp(mode->stored.c_str(), "continuous") != 0;
}

}  // namespace achost
