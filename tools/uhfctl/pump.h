// The driver's way to a reader that it does not hold itself.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "line/terminal.h"

namespace uhfctl {

// A pseudo-terminal of our own for the driver, and a thread that passes the bytes both ways between it and a port or a
// socket. What the reader says unasked, and what an answer has beyond 64 KiB or 2 s, does not pass: the driver reads as
// long as bytes come, and keeps them all.
class Pump {
 public:
  // The other end is not blocking, and outlives the pump.
  explicit Pump(int other_end);
  ~Pump();
  Pump(const Pump&) = delete;
  Pump& operator=(const Pump&) = delete;

  // For the driver to open. It hangs up when the other end does.
  const std::string& path() const { return path_; }

  // The other end has hung up.
  bool is_over() const { return over_; }

 private:
  void pass(line::Terminal terminal);

  const int other_end_;
  std::string path_;
  std::atomic<bool> over_ = false;  // written by the thread
  const line::Descriptor wake_;     // eventfd: the thread is to end
  std::thread thread_;              // last: it uses all above
};

}  // namespace uhfctl
