// A line between the plug-in's own driver and a simulated reader, all on real pseudo-terminals.
#pragma once

#include <gmock/gmock.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "line/conversation.h"
#include "line/line.h"
#include "line/port_guard.h"
#include "t640.h"
#include "uhfsim/simulated_reader.h"

namespace line::test {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kPatience(10);

// What the line tells, for tests to wait for. Any thread.
class Events {
 public:
  void add(const Event& event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
    times_.push_back(Clock::now());
    changed_.notify_all();
  }

  // The first event that fits, from that number on; nothing when none comes in time.
  template <typename Predicate>
  std::optional<Event> wait_for(Predicate fits, std::size_t from = 0) {
    std::unique_lock lock(mutex_);
    std::optional<Event> found;
    changed_.wait_for(lock, kPatience, [&] {
      for (std::size_t i = from; i < events_.size() && !found.has_value(); ++i) {
        found = fits(events_[i]) ? std::optional(events_[i]) : std::nullopt;
      }
      return found.has_value();
    });
    return found;
  }

  std::optional<Event> state(State state, std::size_t from = 0) {
    return wait_for([state](const Event& e) { return e.kind == Event::Kind::state && e.health.state == state; }, from);
  }

  // When the last event of that state was told, from that number on; it must be there.
  Clock::time_point time_of(State state, std::size_t from) const {
    const std::lock_guard lock(mutex_);
    std::size_t last = events_.size();
    do {
      --last;
    } while (last > from && (events_[last].kind != Event::Kind::state || events_[last].health.state != state));
    return times_[last];
  }

  std::size_t count() const {
    const std::lock_guard lock(mutex_);
    return events_.size();
  }

  std::string texts() const {
    const std::lock_guard lock(mutex_);
    std::string all;
    for (const Event& event : events_) {
      all += event.text + "\n";
    }
    return all;
  }

 private:
  mutable std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  std::vector<Event> events_;
  std::vector<Clock::time_point> times_;
};

// A reader's port, and the line and the driver at it once they are asked for.
class Place {
 public:
  Place() {
    std::string pattern = testing::TempDir() + "line.XXXXXX";
    directory_ = mkdtemp(pattern.data());
    plug_in();
  }
  ~Place() {
    driver_.reset();
    line_.reset();
    std::filesystem::remove_all(directory_);
  }

  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  std::filesystem::path port() const { return directory_ / "reader"; }

  // A reader at the port, which is a link, as those of /dev/serial/by-id are: each has a terminal of its own.
  void plug_in(uhfsim::Options options = {.baud = 0}, const std::vector<Bytes>& tags = {}) {
    reader_ = std::make_unique<uhfsim::SimulatedReader>(std::move(options));
    for (const Bytes& epc : tags) {
      reader_->field().add({.epc = epc});
    }
    std::filesystem::remove(port());
    std::filesystem::create_symlink(reader_->path(), port());
  }
  void pull_out() {
    std::filesystem::remove(port());
    reader_.reset();
  }

  void open(LineOptions options = {}) {
    options.path = port().string();
    line_ = std::make_unique<Line>(std::move(options), [this](const Event& event) { events_.add(event); });
  }

  // The plug-in's driver at the line's end.
  const ac::UHF::T640& driver() {
    if (driver_ == nullptr) {
      driver_ = std::make_unique<ac::UHF::T640>(line_->terminal(), milliseconds(200));
    }
    return *driver_;
  }

  // The EPCs that a poll reads; nothing when it fails.
  std::vector<Bytes> poll() {
    std::vector<Bytes> epcs;
    for (const auto& tag : driver().inventoryCard().second) {
      epcs.push_back(tag.epc);
    }
    return epcs;
  }

  // Poll until it comes true.
  template <typename Condition>
  bool poll_until(Condition condition) {
    const auto end = Clock::now() + kPatience;
    while (!condition()) {
      if (Clock::now() > end) {
        return false;
      }
      poll();
    }
    return true;
  }

  bool poll_until_state(State state) {
    return poll_until([this, state] {
      const Health health = line_->health();
      return health.state == state && health.last_good.has_value();
    });
  }

  static inline const Bytes kTag{1, 2, 3, 4};

  std::filesystem::path directory_;
  std::unique_ptr<uhfsim::SimulatedReader> reader_;
  Events events_;
  std::unique_ptr<Line> line_;
  std::unique_ptr<ac::UHF::T640> driver_;
};

class LineTest : public testing::Test, protected Place {};

}  // namespace line::test
