// How the programs end.
#pragma once

#include <stdexcept>
#include <string>

namespace cli {

// Exit statuses, as the helps show them: each means the same in every program that has it.
enum Status : int {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kNoReader = 3,
  kNoAnswer = 4,
  kPortBusy = 5,
  kNoPlugin = 6,
  kWatchdog = 7,
  kPluginEnded = 8,
  kNotInForce = 9,
  kDamaged = 10,
};

// What ends the program with a status and one line on standard error.
class Failure : public std::runtime_error {
 public:
  Failure(Status status, const std::string& text) : std::runtime_error(text), status_(status) {}

  Status status() const { return status_; }

 private:
  Status status_;
};

}  // namespace cli
