#include "door/services/identifier_service.h"

#include <strings.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <iterator>
#include <optional>
#include <string>
#include <utility>

#include "ac/config.h"
#include "ac/config_util.h"
#include "door/services/door_service.h"
#include "refhost/log.h"
#include "refhost/send.h"

namespace achost {
namespace {

constexpr int kDoor = 1;
constexpr const char* kOpens = "opens";
constexpr const char* kStillHere = "still_here";

}  // namespace

IdentifierService::IdentifierService(const Needs& needs, Clocks clocks)
    : needs_(needs),
      clocks_(std::move(clocks)),
      subscriber_("identifier", {{"identifier_new_card", [this](ac::Message* message) { identify(*message); }, false},
                                 {"identifier_supress_actions", [this](ac::Message*) { ++suppressions_; }, false},
                                 {"identifier_allow_actions",
                                  [this](ac::Message*) { suppressions_ = std::max(suppressions_ - 1, 0); }, false}}) {}

void IdentifierService::Decision::refuse(const char* outcome, std::vector<EntryField> its_facts) {
  outcomes.emplace_back(outcome);
  std::ranges::move(its_facts, std::back_inserter(facts));
}

void IdentifierService::identify(const ac::Message& message) {
  std::int64_t value = 0;
  std::int64_t device = 0;
  std::string uuid;
  if (!message.get_int64("value", &value)) {
    refhost::log::warning("identifier: \"identifier_new_card\" without an int64 \"value\"");
    return;
  }
  message.get_int64("device_id", &device);
  message.get_string("uuid", &uuid);
  const auto card = static_cast<std::uint64_t>(value);
  const auto now = clocks_();
  const auto found = decide(card, now);
  if (!is_to_be_told(found, now)) {
    return;
  }
  note(card, found);
  remember(card, found, now);
  std::vector<std::pair<std::string, refhost::FieldValue>> decision{
      {"value", value}, {"device_id", device}, {"uuid", uuid}, {"outcome", found.outcomes.front()}};
  const auto fields = fields_of(found);
  std::for_each(fields.begin() + 1, fields.end(), [&](const EntryField& field) {
    std::visit([&](const auto& fact) { decision.emplace_back(field.first, fact); }, field.second);
  });
  if (found.holder.has_value()) {
    decision.emplace_back("user_id", found.holder->id);
    if (!found.holder->name.empty()) {
      decision.emplace_back("user_name", found.holder->name);
    }
  }
  refhost::send("identifier_decision", decision);
  if (found.outcomes.front() == kOpens) {
    refhost::send("actuator_open_door", {{"id", kDoor}, {"reason", kIdentification}});
  }
}

// A card that stays is announced again and again.
bool IdentifierService::is_to_be_told(const Decision& decision, const Moment& now) const {
  return decision.outcomes.front() != kStillHere || decision.visit->told == Visits::Time() ||
         now.steady - decision.visit->told >= kBetweenWords;
}

void IdentifierService::remember(std::uint64_t card, const Decision& decision, const Moment& now) {
  if (decision.outcomes.front() == kStillHere) {
    needs_.visits.told(card, now.steady);
  } else if (decision.outcomes.front() == kOpens) {
    needs_.visits.begin(card, now.steady);
    std::erase_if(pauses_, [&](const auto& pause) { return pause.second <= now.steady; });
    if (decision.holder->pause > 0) {
      pauses_.insert_or_assign(decision.holder->id, now.steady + std::chrono::seconds(decision.holder->pause));
    }
  }
}

void IdentifierService::note(std::uint64_t card, const Decision& decision) const {
  const auto& holder = decision.holder;
  needs_.books.note({.kind = Kind::identification,
                     .user = holder.has_value() ? std::optional(holder->id) : std::nullopt,
                     .card = card,
                     .fields = fields_of(decision)});
}

// The outcome first.
std::vector<EntryField> IdentifierService::fields_of(const Decision& decision) {
  const auto& outcomes = decision.outcomes;
  std::vector<EntryField> fields{{"outcome", outcomes.front()}};
  if (outcomes.size() > 1) {
    std::string also;
    std::for_each(outcomes.begin() + 1, outcomes.end(),
                  [&](const std::string& one) { also += (also.empty() ? "" : " ") + one; });
    fields.emplace_back("also", also);
  }
  fields.insert(fields.end(), decision.facts.begin(), decision.facts.end());
  return fields;
}

IdentifierService::Moment IdentifierService::system_clocks() {
  using std::chrono::milliseconds;
  return {.wall = std::chrono::floor<milliseconds>(std::chrono::system_clock::now()).time_since_epoch().count(),
          .steady = std::chrono::steady_clock::now()};
}

IdentifierService::Decision IdentifierService::decide(std::uint64_t card, const Moment& now) const {
  try {
    Decision decision;
    decision.holder = needs_.users.holder_of(card);
    add_refusals(card, now, decision);
    if (decision.outcomes.empty()) {
      decision.outcomes.emplace_back(kOpens);
    }
    return decision;
  } catch (const std::exception& failure) {
    refhost::log::error(std::string("identifier: the door stays shut: ") + failure.what());
    return {.outcomes = {"failed"}, .facts = {{"reason", failure.what()}}};
  }
}

// All that hold the card back, the first of which is told.
void IdentifierService::add_refusals(std::uint64_t card, const Moment& now, Decision& decision) const {
  const std::chrono::milliseconds away(ac::config_util::get_int("host", "away_time", true));
  decision.visit = needs_.visits.announced(card, now.steady, away);
  if (suppressions_ > 0) {
    decision.refuse("held_back");
  }
  if (!decision.holder.has_value()) {
    decision.refuse("unknown");
  }
  if (decision.visit.has_value()) {
    decision.refuse(kStillHere, {{"here_since", now.wall_at(decision.visit->begin)}, {"away_time", away.count()}});
  }
  if (decision.holder.has_value()) {
    add_refusals_of_user(now, decision);
  }
  if (needs_.is_locked()) {
    decision.refuse("door_locked");
  }
  if (is_stricter_mode_awaited()) {
    decision.refuse("mode_awaited");
  }
  if (!needs_.books.lets_open()) {
    decision.refuse("journal_unwritable");
  }
}

void IdentifierService::add_refusals_of_user(const Moment& now, Decision& decision) const {
  const User& holder = *decision.holder;
  if (holder.blocked) {
    decision.refuse("blocked");
  }
  const bool has_rule_of_time = holder.from != 0 || holder.until != 0 || !holder.schedule.empty();
  std::string policy = "use";
  if (!needs_.clock.is_trusted(now.wall)) {
    ac::config::get_param("host", "untrusted_clock", policy, true);
  }
  if (policy == "deny" && has_rule_of_time) {
    decision.refuse("clock_untrusted", {{"clock_known", needs_.clock.known()}});
  } else if (policy == "use") {
    add_refusals_of_time(now, decision);
  }
  const auto pause = holder.pause == 0 ? pauses_.end() : pauses_.find(holder.id);
  if (pause != pauses_.end() && now.steady < pause->second) {
    decision.refuse("too_soon_after_entry", {{"pause_ends", now.wall_at(pause->second)}});
  }
}

void IdentifierService::add_refusals_of_time(const Moment& now, Decision& decision) const {
  const User& holder = *decision.holder;
  if (holder.from != 0 && now.wall < holder.from) {
    decision.refuse("not_yet_valid", {{"from", holder.from}});
  }
  if (holder.until != 0 && now.wall >= holder.until) {
    decision.refuse("no_longer_valid", {{"until", holder.until}});
  }
  if (holder.schedule.empty()) {
    return;
  }
  const Schedules::Time time{std::chrono::milliseconds(now.wall)};
  const auto schedules = needs_.users.schedules();
  const auto* const schedule = schedules->find(holder.schedule);
  if (schedule != nullptr && schedules->contains(*schedule, time)) {
    return;
  }
  std::vector<EntryField> facts{{"schedule", holder.schedule}};
  if (const auto next =
          schedule == nullptr || !schedule->is_right ? std::nullopt : schedules->next_begin(*schedule, time)) {
    facts.emplace_back("next", std::chrono::floor<std::chrono::milliseconds>(*next).time_since_epoch().count());
  }
  decision.refuse("outside_schedule", std::move(facts));
}

// The plug-in decides by the mode whether a reading counts, so until it has taken the stored one it may announce cards
// against the input. Those that are in the house wait for no card.
bool IdentifierService::is_stricter_mode_awaited() const {
  const auto mode = needs_.changes.awaited("uhf", "operation_mode");
  return mode.has_value() && strcasecmp(mode->stored.c_str(), "continuous") != 0;
}

}  // namespace achost
