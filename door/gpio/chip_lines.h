// Real lines, on a GPIO chip.
#pragma once

#include <poll.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "door/gpio/chip.h"
#include "door/gpio/lines.h"
#include "refhost/work.h"

namespace achost::gpio {

// The lines of a plan, each requested for this process; the others are as virtual ones. A thread of its own,
// "gpio_edges", waits for edges. When the chip vanishes, that is said, and the lines are requested again once a second;
// outputs begin at rest then, and what has changed meanwhile is told.
class ChipLines : public Lines {
 public:
  struct Needs {
    Kernel& kernel;
    SettingsValues settings;                          // as they are when it asks
    std::function<void(const std::string&)> trouble;  // told what is wrong, empty when it is mended; on any thread
  };

  // Requests every line. Throws ac::ac_exception when one is missing or taken.
  ChipLines(Needs needs, GpioPlan plan);

  // Outputs are at rest.
  ~ChipLines() override;

  bool is_real_input(int line) const override;
  bool is_real(int line) const override;
  void settings_changed() override;
  Report report() const override;
  void rest() noexcept override;

  // The same for all that there are in the process, without a lock: for an end at once.
  static void rest_at_once() noexcept;

 protected:
  bool move(int line, int level) override;
  void watch() override;

 private:
  struct Line {
    PlannedLine planned;
    Descriptor holder;                // mutex_
    std::atomic<int> descriptor{-1};  // of the holder
    std::atomic<int> is_inverted{0};  // it is 1 on the chip when it is 0 on the bus
  };

  Line* find(int number) const;
  void request_all();
  void let_go() noexcept;
  int put(const Line& line, int level) const noexcept;
  void put_at_rest() const noexcept;
  void watch_edges();
  bool wait_for_edges();
  bool take_edges(const Line& line, short events);
  void compare(const Line& line);
  void mend();

  const Needs needs_;
  const GpioPlan plan_;
  std::vector<std::unique_ptr<Line>> lines_;  // constant but for what they hold
  std::vector<pollfd> polled_;                // the watching thread's: the end, and the lines in their order
  const Descriptor over_;                     // readable at the end
  std::mutex mutex_;                          // guards the holders, is_resting_ and the giving of levels to outputs
  bool is_resting_ = false;
  std::atomic<bool> is_broken_{false};  // a line did not take its level, or the chip has gone
  refhost::Work work_{"edges of the GPIO lines"};
  std::thread thread_;
};

}  // namespace achost::gpio
