// What each of those who listen still has to be told of a setting.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "refhost/delivery.h"
#include "refhost/settings_store.h"

namespace achost {

struct RetryTimes {
  std::chrono::milliseconds answer = std::chrono::seconds(10);  // of a handler, before it is said to be late
  std::chrono::milliseconds first_retry = std::chrono::seconds(1);
  std::chrono::milliseconds longest_retry = std::chrono::seconds(30);
};

// The announcements of one setting's changes to all who listen, each of whom hears of one after the other. The time is
// a parameter. For one thread at a time.
class Announcements {
 public:
  using Clock = std::chrono::steady_clock;
  using Change = refhost::SettingsStore::Change;

  // on_report: as of refhost::Delivery.
  Announcements(RetryTimes times, std::function<void()> on_report) : times_(times), on_report_(std::move(on_report)) {}

  // Tell everybody, or have it wait for whoever has not taken the one before.
  void announce(const Change& change, Clock::time_point now);

  // See who is through, and tell again or go on where it is time for it.
  void look(Clock::time_point now);

  // Those who have failed are told again at the next look.
  void hurry();

  // Whoever is at it now is said to be late.
  void give_up_waiting();

  // Everybody has taken everything.
  bool is_over() const { return recipients_.empty(); }

  // Somebody is being told.
  bool is_under_way() const;

  // When to look again at the latest, if nobody reports.
  Clock::time_point next_look() const;

  // Who has failed, and why: "uhf: the disk is full; door has not answered for 10 s".
  std::string reason() const;

 private:
  struct Recipient {
    std::list<Change> owed;                              // the first of them is told, or told again
    std::shared_ptr<const refhost::Delivery> attempt{};  // null: it is told again at `next`
    Clock::time_point since{};                           // of the attempt
    Clock::time_point next{};
    std::chrono::milliseconds pause{};  // after the next failure
    std::string reason{};               // of the latest failure
  };

  void look(const std::string& name, Recipient& recipient, Clock::time_point now);
  void take_outcome(const std::string& name, Recipient& recipient, Clock::time_point now) const;
  std::string lateness(const std::string& name) const;

  const RetryTimes times_;
  const std::function<void()> on_report_;
  std::map<std::string, Recipient> recipients_;  // who has not taken everything, by name
};

}  // namespace achost
