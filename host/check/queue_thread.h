// The thread that calls process() of the plug-in's queue.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace hostcheck {

// Any thread. Never destroyed.
class QueueThread {
 public:
  static constexpr std::chrono::milliseconds kTimeout{50};
  using Clock = std::chrono::steady_clock;

  static QueueThread& instance();

  void start();
  long id() const;  // of the thread

  // When on_timeout was called, and on which threads.
  struct Tick {
    Clock::time_point at;
    long thread;
  };
  std::vector<Tick> ticks() const;
  bool wait_for_ticks(std::size_t count) const;

  // Throw in the next on_timeout, and wait for what becomes of process(): "thrown", "returned", or nothing when it goes
  // on.
  std::optional<std::string> end();

 private:
  struct State;
  QueueThread();
  State& state_;
};

}  // namespace hostcheck
