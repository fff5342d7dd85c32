#include "door/services/announcements.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "refhost/log.h"

namespace achost {
namespace {

using refhost::Delivery;

// Changes that may wait for one who does not take them.
constexpr std::size_t kMostOwed = 256;

// What has become of it at all recipients of that name, once they are through; somebody who has left the bus meanwhile
// has nothing to be told.
std::optional<Delivery::Recipient> outcome_at(const Delivery& delivery, const std::string& name) {
  Delivery::Recipient all{.name = name, .is_through = true, .failure = "", .is_marked = false};
  for (const auto& one : delivery.recipients()) {
    if (one.name == name) {
      all.is_through = all.is_through && one.is_through;
      all.failure = all.failure.empty() ? one.failure : all.failure;
      all.is_marked = all.is_marked || one.is_marked;
    }
  }
  return all.is_through ? std::optional(all) : std::nullopt;
}

void owe(std::list<Announcements::Change>& owed, const std::string& name, const Announcements::Change& change) {
  owed.push_back(change);
  if (owed.size() > kMostOwed) {
    const auto oldest = std::next(owed.begin());  // but for the one that is under way
    const auto& lost = *oldest;
    refhost::log::error("too many changes wait for " + name + ": it is not told that " + lost.setting.section + "." +
                        lost.setting.key + " was " + lost.value);
    owed.erase(oldest);
  }
}

}  // namespace

void Announcements::announce(const Change& change, Clock::time_point now) {
  std::vector<std::string> busy;
  for (auto& [name, recipient] : recipients_) {
    busy.push_back(name);
    owe(recipient.owed, name, change);
  }
  const auto delivery = Delivery::send(refhost::announcement_of(change), on_report_, busy);
  for (const auto& one : delivery->recipients()) {
    recipients_.try_emplace(
        one.name, Recipient{.owed = {change}, .attempt = delivery, .since = now, .pause = times_.first_retry});
  }
}

void Announcements::look(Clock::time_point now) {
  for (auto& [name, recipient] : recipients_) {
    look(name, recipient, now);
  }
  std::erase_if(recipients_, [](const auto& one) { return one.second.owed.empty(); });
}

void Announcements::look(const std::string& name, Recipient& recipient, Clock::time_point now) {
  take_outcome(name, recipient, now);
  if (recipient.attempt == nullptr && !recipient.owed.empty() && recipient.next <= now) {
    recipient.attempt = Delivery::send_to(name, refhost::announcement_of(recipient.owed.front()), on_report_);
    recipient.since = now;
  }
  if (recipient.attempt != nullptr && recipient.reason.empty() && recipient.since + times_.answer <= now) {
    recipient.reason = lateness(name);
  }
}

void Announcements::take_outcome(const std::string& name, Recipient& recipient, Clock::time_point now) const {
  const auto outcome = recipient.attempt == nullptr ? std::nullopt : outcome_at(*recipient.attempt, name);
  if (!outcome.has_value()) {
    return;
  }
  recipient.attempt = nullptr;
  if (outcome->failure.empty()) {
    recipient.owed.pop_front();
    recipient.pause = times_.first_retry;
    recipient.next = now;
    return;
  }
  if (outcome->is_marked) {
    recipient.owed.front().previous_value = recipient.owed.front().value;
  }
  recipient.reason = name + ": " + outcome->failure;
  recipient.next = now + recipient.pause;
  recipient.pause = std::min(recipient.pause * 2, times_.longest_retry);
}

void Announcements::hurry() {
  for (auto& [name, recipient] : recipients_) {
    recipient.next = Clock::time_point::min();
  }
}

void Announcements::give_up_waiting() {
  for (auto& [name, recipient] : recipients_) {
    if (recipient.reason.empty()) {
      recipient.reason = lateness(name);
    }
  }
}

bool Announcements::is_under_way() const {
  return std::ranges::any_of(recipients_, [](const auto& one) { return one.second.attempt != nullptr; });
}

Announcements::Clock::time_point Announcements::next_look() const {
  auto next = Clock::time_point::max();
  for (const auto& [name, recipient] : recipients_) {
    if (recipient.attempt == nullptr) {
      next = std::min(next, recipient.next);
    } else if (recipient.reason.empty()) {
      next = std::min(next, recipient.since + times_.answer);
    }
  }
  return next;
}

std::string Announcements::reason() const {
  std::string text;
  for (const auto& [name, recipient] : recipients_) {
    text += text.empty() || recipient.reason.empty() ? recipient.reason : "; " + recipient.reason;
  }
  return text;
}

std::string Announcements::lateness(const std::string& name) const {
  return name + " has not answered for " + std::to_string(times_.answer.count() / 1000) + " s";
}

}  // namespace achost
