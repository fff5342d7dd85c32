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
#include "common.h"
#include "door.h"
#include "failure.h"
#include "inventory_card_info.h"
#include "line/port_guard.h"
#include "line_faults.h"
#include "loan.h"
#include "pump.h"
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
using Tap = std::function<void(Clock::time_point, Direction, std::span<const unsigned char>)>;

// Who has the port now: this process, or a door.
struct Claim {
  // Throws Failure: kNoReader when there is no such port, kPortBusy when somebody has it who does not share it.
  explicit Claim(const std::string& path);

  std::unique_ptr<line::PortGuard> guard;
  std::optional<Door> door;  // when there is no guard
};

// Held for this process alone while the object lives, or borrowed from the door that has it. One thread uses it.
class Port {
 public:
  // The reader may take the patience to begin its answer, in tenths of a second of the line. Throws Failure.
  explicit Port(const Common& common) : Port(common, Claim(common.port)) {}
  Port(const Common& common, Claim claim);

  ~Port();
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  const std::string& path() const { return path_; }

  // The door that lends it, whose settings the reader gets back at the end; null when it is nobody else's.
  const Loan* loan() const { return loan_.get(); }

  // For talking().
  const ac::UHF::T640& driver() const { return *driver_; }

  // Throws Failure kFailed that says what a line that fails means for a person.
  [[noreturn]] void fail(const std::string& reason) const;

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

  // Throws when the door has taken the line back.
  void check_loan() const;

  // Nothing when there is no good answer; fault is then what came instead.
  std::optional<unsigned short> ask_power(LineFault& fault) const;

  std::string path_;
  std::chrono::milliseconds timeout_;
  std::unique_ptr<line::PortGuard> guard_;
  std::unique_ptr<Pump> pump_;             // with a guard
  std::unique_ptr<Loan> loan_;             // without
  std::unique_ptr<ac::UHF::T640> driver_;  // also of the thread of a call
  std::unique_ptr<ac::UHF::SerialPort> line_;
};

// Sorts what is found in the bytes of a poll into it; the number of bytes that are not done. all: no more will come.
std::size_t take_frames(std::span<const unsigned char> bytes, bool all, Poll& poll);

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
    port.fail(failure.what());
  }
}

}  // namespace uhfctl
