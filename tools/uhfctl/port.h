// The reader at its port.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "ac/exception.h"
#include "failure.h"
#include "inventory_card_info.h"
#include "line/port_guard.h"
#include "line_faults.h"
#include "serial_port.h"
#include "t640.h"

namespace uhfctl {

using Clock = std::chrono::steady_clock;

// What one inventory brought.
struct Poll {
  bool answered = false;  // something came back
  std::vector<ac::UHF::InventoryCardInfo> tags;
  int answers = 0;  // frames of the reader, with a right checksum or another
  LineFault fault = LineFault::none;
  Clock::duration took{};  // until the last byte
};

// Which way bytes went.
enum class Direction { to_reader, from_reader };

// Sees the bytes of polls as they go over the line.
using Tap = std::function<void(Direction, std::span<const unsigned char>)>;

// Held for this process alone while the object lives. One thread uses it.
class Port {
 public:
  // timeout: how long the reader may take to begin its answer, in tenths of a second of the line. Throws Failure:
  // kNoReader when there is no such port, kPortBusy when somebody else has it.
  Port(const std::string& path, std::chrono::milliseconds timeout);

  ~Port();
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  const std::string& path() const { return path_; }

  // For talking().
  const ac::UHF::T640& driver() const { return *driver_; }

  // Runs a call of the driver on a thread of its own until it is done, which is_done tells within a time. Throws
  // Failure kNoAnswer when it is left alone, and then each time.
  void run_apart(std::function<void()> call, const std::function<bool(std::chrono::milliseconds)>& is_done) const;

  // Whether a call was left alone in this process: its thread goes on, so that the process must leave by _exit.
  static bool left_alone();

  // The power, as a sign of life; a damaged answer is asked for again. Throws Failure kNoReader when nobody answers.
  unsigned short power_or_nobody() const;

  // The power of a reader that has answered before; also a sign of life after a poll without an answer, which is what
  // some readers say when there is no tag. Throws Failure kNoAnswer.
  unsigned short power() const;

  // Asks for the tags in the field and takes every frame of the answer, unlike the driver, which leaves out the older
  // half of the tag reports. An answer ends after 64 KiB or 2 s. Throws Failure kFailed when the line fails.
  Poll poll(const Tap& tap = nullptr) const;

  // The same; a reader that says nothing is asked for its power, as some say nothing of an empty field. Throws what
  // power() throws.
  Poll poll_living() const;

 private:
  // The bytes of a poll.
  void exchange(Poll& poll, const Tap& tap) const;

  // Nothing when there is no good answer; fault is then what came instead.
  std::optional<unsigned short> ask_power(LineFault& fault) const;

  std::string path_;
  std::chrono::milliseconds timeout_;
  line::PortGuard guard_;
  std::unique_ptr<ac::UHF::T640> driver_;  // also of the thread of a call
  std::unique_ptr<ac::UHF::SerialPort> line_;
};

// What a line that fails means for a person.
std::string line_failure(const std::string& path, const std::string& reason);

// Runs what talks to the reader by the driver, which goes on as long as an answer does: one that does not end, or that
// Ctrl-C does not wait for, is left alone. What work needs it has by value. Throws Failure: kFailed, which names the
// port, when the line fails, kNoAnswer when it was left alone.
template <typename Work>
auto talking(const Port& port, Work work) {
  using Result = decltype(work(port.driver()));
  const auto task = std::make_shared<std::packaged_task<Result()>>(
      [work = std::move(work), &driver = port.driver()] { return work(driver); });
  auto result = task->get_future();
  port.run_apart([task] { (*task)(); },
                 [&result](auto time) { return result.wait_for(time) == std::future_status::ready; });
  try {
    return result.get();
  } catch (const ac::ac_exception& failure) {
    throw Failure(kFailed, line_failure(port.path(), failure.what()));
  }
}

}  // namespace uhfctl
