// The reader's line, lent by a door.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "door.h"
#include "line/terminal.h"

namespace uhfctl {

// The door's reader at a pseudo-terminal of our own, as if it were there. A thread passes the bytes both ways.
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
  const std::string& path() const { return path_; }

  // The door has the line again.
  bool is_taken_back() const { return taken_back_; }

 private:
  void pass(line::Terminal terminal);
  void wait_for_the_end() const;

  const std::string lender_;
  const Connection connection_;
  std::string path_;
  std::atomic<bool> taken_back_ = false;  // written by the thread
  const line::Descriptor wake_;           // eventfd: the thread is to end
  std::thread thread_;                    // last: it uses all above
};

}  // namespace uhfctl
