// The reader's line, lent by a door.
#pragma once

#include <optional>
#include <string>

#include "door.h"
#include "pump.h"

namespace uhfctl {

// The door's reader at a pseudo-terminal of our own, as if it were there.
class Loan {
 public:
  // who: for those who ask the door. Throws Failure.
  Loan(const Door& door, const std::string& who);

  // Gives the line back, and waits until the door's settings are in force again, or five seconds.
  ~Loan();
  Loan(const Loan&) = delete;
  Loan& operator=(const Loan&) = delete;

  const std::string& lender() const { return lender_; }

  // For the driver to open. It hangs up when the line is taken back.
  const std::string& path() const { return pump_->path(); }

  // The door has the line again.
  bool is_taken_back() const { return pump_->is_over(); }

 private:
  void wait_for_the_end() const;

  const std::string lender_;
  const Connection connection_;
  std::optional<Pump> pump_;  // always there, but at the end
};

}  // namespace uhfctl
