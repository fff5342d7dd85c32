// Looks whether the machine's clock can be right, and has an alarm stand while it cannot.
#pragma once

#include <filesystem>

#include "door/services/alarms.h"
#include "door/services/clock_trust.h"

namespace achost {

class ClockWatch {
 public:
  explicit ClockWatch(Alarms& alarms) : alarms_(alarms) {}  // which outlive it

  // It was as late already as the journal there tells; and the first look.
  void begin(const std::filesystem::path& state);

  // About each second, on one thread.
  void look();

  const ClockTrust& trust() const { return trust_; }

 private:
  Alarms& alarms_;
  ClockTrust trust_;
};

}  // namespace achost
