// The lines of the door by their numbers on the bus.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "door/base/gpio_plan.h"

namespace achost::gpio {

// A line as somebody sees it who looks at the chip.
struct LineReport {
  unsigned offset = 0;
  std::string name;
  bool is_output = false;
  std::optional<int> level;  // on the bus, of a line with a use
  std::string consumer;
  std::string use;  // the setting's key; empty: none
};
struct Report {
  std::string chip;  // empty: there is none
  std::vector<LineReport> lines;
};

// A line has another level.
struct Change {
  int line = 0;
  int level = 0;
  std::int64_t at = 0;  // ns of CLOCK_MONOTONIC; an edge of a real line has the kernel's time
};

// All are 0 at the start, but where something real says otherwise. Levels are 0 or 1; numbers are below kGpioLines.
class Lines {
 public:
  virtual ~Lines() = default;

  // From now on each change is told, on the thread that made it, or on that of the real lines. Once.
  void begin(std::function<void(const Change&)> tell);

  // Any thread may call these.
  std::array<int, kGpioLines> levels() const;
  int level(int line) const { return levels_.at(static_cast<std::size_t>(line)).load(); }

  // Give a line the level, as a wire or a relay's coil would; a change is told. For one thread at a time.
  void set(int line, int level);

  // Whether a wire alone moves it.
  virtual bool is_real_input(int /*line*/) const { return false; }

  // Whether something outside the process hangs on it.
  virtual bool is_real(int /*line*/) const { return false; }

  // The lock's relay, or what it does without power, is another one. Any thread may call.
  virtual void settings_changed() {}

  // What there is outside the process. Throws ac::ac_exception when the chip does not answer. Any thread may call.
  virtual Report report() const { return {}; }

  // Outputs are at rest from now on. Any thread may call.
  virtual void rest() noexcept {}

 protected:
  // Move what is real of it; false when that was not possible, which has been said.
  virtual bool move(int line, int level) = 0;
  virtual void watch() {}

  void keep(int line, int level) { levels_.at(static_cast<std::size_t>(line)) = level; }
  void tell(int line, int level, std::int64_t at);

 private:
  std::array<std::atomic<int>, kGpioLines> levels_{};  // each written by one thread: who sets, or who watches the wire
  std::function<void(const Change&)> tell_;            // set before anybody else looks
};

// Nothing but memory.
class VirtualLines : public Lines {
 protected:
  bool move(int /*line*/, int /*level*/) override { return true; }
};

// ns of CLOCK_MONOTONIC.
std::int64_t monotonic_now();

}  // namespace achost::gpio
