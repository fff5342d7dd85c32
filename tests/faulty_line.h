// The simulated reader's engine and its faults on a line whose time passes when somebody waits: the plug-in's driver at
// the port itself, or behind the rules of line/.
#pragma once

#include <algorithm>
#include <chrono>
#include <deque>
#include <utility>

#include "line/conversation.h"
#include "memory_line.h"
#include "uhfsim/faults.h"
#include "uhfsim/reader.h"

namespace faulty {

using std::chrono::milliseconds;
using uhfsim::Bytes;
using uhfsim::ByteView;

// The driver at the port.
class Port : public memory_line::Line {
 public:
  explicit Port(std::uint64_t seed) : faults(seed), engine_(field, {.seed = seed}) {}

  uhfsim::Field field;
  uhfsim::FaultInjector faults;

  bool write(ByteView bytes) override {
    if (hung_up_) {
      return false;
    }
    for (Bytes& reply : engine_.feed(bytes)) {
      for (uhfsim::Sending& sending : faults.intercept(std::move(reply), bytes)) {
        free_ = std::max(free_, now_) + sending.pause;
        coming_.push_back({std::move(sending.bytes), free_, sending.hang_up});
      }
    }
    return true;
  }

  Bytes read(std::size_t most, milliseconds timeout) override {
    const milliseconds deadline = now_ + timeout;
    Bytes bytes = take(most);
    while (bytes.empty() && !coming_.empty() && coming_.front().due <= deadline) {
      now_ = std::max(now_, coming_.front().due);
      bytes = take(most);
    }
    if (bytes.empty()) {
      now_ = deadline;
    }
    delivered.insert(delivered.end(), bytes.begin(), bytes.end());
    return bytes;
  }

  virtual void pass(milliseconds time) { now_ += time; }

  // Until all that was late has come, a hang-up included.
  virtual void wait_until_quiet() {
    now_ = quiet_at();
    hung_up_ = hung_up_ || std::ranges::any_of(coming_, &Coming::hang_up);
  }

  bool hung_up() const { return hung_up_; }

  // Bytes that wait to be read.
  virtual std::size_t unread() const {
    std::size_t bytes = 0;
    for (const Coming& part : coming_) {
      bytes += part.bytes.size();
    }
    return bytes;
  }

  // Whether the driver outlives a hang-up, as it does behind the line, which opens the port again.
  virtual bool outlives_hang_up() const { return false; }

  // What was on its way is lost.
  virtual void come_back() {
    hung_up_ = false;
    coming_.clear();
    free_ = now_;
  }

  Bytes delivered;              // to the driver, since somebody cleared it
  std::uint64_t kept_back = 0;  // bytes that came too late for any question, or were left unread; none at the port

 protected:
  // What is there at that time.
  virtual Bytes take(std::size_t most) { return take_from_port(most); }

  Bytes take_from_port(std::size_t most) {
    Bytes bytes;
    while (!coming_.empty() && coming_.front().due <= now_ && bytes.size() < most) {
      Coming& first = coming_.front();
      const auto count = static_cast<std::ptrdiff_t>(std::min(most - bytes.size(), first.bytes.size()));
      bytes.insert(bytes.end(), first.bytes.begin(), first.bytes.begin() + count);
      first.bytes.erase(first.bytes.begin(), first.bytes.begin() + count);
      if (!first.bytes.empty()) {
        break;
      }
      hung_up_ = first.hang_up;
      coming_.pop_front();
      if (hung_up_) {
        coming_.clear();
      }
    }
    return bytes;
  }

  // Lets time pass; what arrives meanwhile arrives at its own time.
  template <typename Arrive>
  void pass_until(milliseconds end, const Arrive& arrive) {
    while (!coming_.empty() && coming_.front().due <= end) {
      now_ = std::max(now_, coming_.front().due);
      arrive();
    }
    now_ = std::max(now_, end);
  }

  milliseconds now() const { return now_; }
  milliseconds quiet_at() const { return std::max(now_, free_); }

 private:
  struct Coming {
    Bytes bytes;
    milliseconds due;
    bool hang_up;
  };

  uhfsim::Reader engine_;
  std::deque<Coming> coming_;
  milliseconds now_{0};
  milliseconds free_{0};
  bool hung_up_ = false;
};

// The driver at the terminal that the line gives it: what arrives is in the terminal at once, if it belongs to an
// answer, and goes when nobody has read it for a second, or when the port is opened again.
class Terminal : public Port {
 public:
  using Port::Port;

  // The port hangs up; the terminal does not.
  bool write(ByteView bytes) override {
    arrive();
    if (Port::write(bytes)) {
      conversation_.ask(at(), {bytes.data(), bytes.size()});
    }
    return true;
  }

  void pass(milliseconds time) override {
    pass_until(now() + time, [this] { arrive(); });
    drop_stale();
  }

  void wait_until_quiet() override { pass(quiet_at() - now()); }

  std::size_t unread() const override { return Port::unread() + waiting_.size(); }

  bool outlives_hang_up() const override { return true; }

  void come_back() override {
    Port::come_back();
    conversation_.end();
    drop_waiting();
  }

 protected:
  Bytes take(std::size_t most) override {
    arrive();
    const auto end = waiting_.begin() + static_cast<std::ptrdiff_t>(std::min(most, waiting_.size()));
    Bytes bytes(waiting_.begin(), end);
    waiting_.erase(waiting_.begin(), end);
    return bytes;
  }

 private:
  static constexpr std::size_t kAtOnce = 16384;  // bytes that the line reads
  static constexpr milliseconds kStale{1000};

  line::Clock::time_point at() const { return line::Clock::time_point(now()); }

  void arrive() {
    drop_stale();
    for (Bytes bytes; !(bytes = take_from_port(kAtOnce)).empty();) {
      const auto taken = conversation_.take(at(), bytes);
      waiting_.insert(waiting_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(taken));
      last_ = taken > 0 ? now() : last_;
      kept_back += bytes.size() - taken;
    }
  }

  void drop_stale() {
    if (now() - last_ > kStale) {
      drop_waiting();
    }
  }

  void drop_waiting() {
    kept_back += waiting_.size();
    waiting_.clear();
  }

  line::Conversation conversation_;
  std::deque<std::uint8_t> waiting_;
  milliseconds last_{0};  // when something came to wait
};

}  // namespace faulty
