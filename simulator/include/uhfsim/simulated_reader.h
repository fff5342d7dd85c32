#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "uhfsim/faults.h"
#include "uhfsim/field.h"
#include "uhfsim/pacing.h"
#include "uhfsim/pty_link.h"
#include "uhfsim/reader.h"
#include "uhfsim/scenario.h"

namespace uhfsim {

/// How a simulated reader behaves.
struct Options {
  /// Seed of all chance: which tags are read and in what order, which replies suffer a fault.
  std::uint64_t seed = 1;
  /// Line speed at which replies arrive, in bits per second; 0 is at once.
  unsigned baud = 115200;
  /// Bytes that the client gets at a time; 0 is each reply whole.
  std::size_t chunk = 0;
  /// Say nothing when an inventory reads no tag, instead of a failure response.
  bool quiet_when_empty = false;
  /// What takes the scenario's lines for the host, on the reader's own thread, or in play(), at their time; the reader
  /// waits meanwhile, so it is to return at once, and it must not call the reader. Without it they are dropped.
  std::function<void(const std::string& line)> on_host_line = nullptr;
  /// What is told, on the reader's own thread, that the line has hung up and is back at this path. It must not call the
  /// reader.
  std::function<void(const std::string& path)> on_hang_up = nullptr;
};

/// What has happened on the line since the reader was built.
struct Counters {
  std::uint64_t commands = 0;   // whole commands received, unknown ones included
  std::uint64_t notices = 0;    // tags reported by the engine, whether or not a fault kept them from the line
  std::uint64_t skipped = 0;    // received bytes that belong to no valid command
  std::uint64_t bytes_in = 0;   // received
  std::uint64_t bytes_out = 0;  // put on the line
  std::uint64_t overruns = 0;   // bytes lost because the client did not read; only on a paced line
  std::uint64_t lost_in = 0;    // received bytes lost because the module was busy and its buffer full
  std::uint64_t hang_ups = 0;
  std::uint64_t departures = 0;  // times that the last client closed the line, and what waited for it was dropped
};

/// A UHF reader module at the end of a serial line, to be opened by path() like any serial device.
///
/// One thread of its own serves the line and plays the scenario. It handles one command after the other: while a reply
/// is on its way, the next commands wait, as many as fit into kReceiveBuffer; the others are lost, so that the client
/// can always write. When the client does not read and the line is full, a paced line
/// loses bytes (counted as overruns); with baud 0 the rest waits until there is room.
///
/// Any thread may call any operation. Should the pseudo-terminal itself fail, the exception leaves the thread and ends
/// the process: a reader that is deaf and looks healthy would be worse.
class SimulatedReader {
 public:
  /// Bytes that the module can receive while it is busy.
  static constexpr std::size_t kReceiveBuffer = 64;

  /// Opens the line and starts to serve it. Throws std::system_error.
  explicit SimulatedReader(Options options);

  /// Stops at once, also in the middle of a reply, and closes the line.
  ~SimulatedReader();

  SimulatedReader(const SimulatedReader&) = delete;
  SimulatedReader& operator=(const SimulatedReader&) = delete;

  /// The device to open; it may be another one after a hang-up.
  std::string path() const;

  /// The tags in front of the antenna.
  Field& field() { return field_; }

  /// What goes wrong on the line.
  FaultInjector& faults() { return faults_; }

  /// What the module has been told so far.
  State state() const;

  Counters counters() const;

  /// Clears the field and starts the scenario's clock now, in place of a scenario that is being played. What happens
  /// at time 0 has happened when this returns.
  void play(Scenario scenario);

 private:
  /// A part of a reply on its way to the client.
  struct Outgoing {
    Bytes bytes;
    Clock::time_point due;
    bool hang_up = false;
  };

  // On the reader's own thread.
  void run();
  void play_due();
  void write_due();
  bool write_front();
  void read_line();
  void answer_waiting();
  void forget_client();
  void enqueue(const Sending& sending);
  void hang_up();
  void await_work();
  std::optional<Clock::time_point> next_sending() const;
  std::optional<Clock::time_point> next_scenario_instant() const;

  void play_until(Clock::time_point now);
  void wake() const;

  Field field_;
  FaultInjector faults_;
  const LinePacing pacing_;
  const Chunking chunking_;
  const std::function<void(const std::string&)> on_host_line_;
  const std::function<void(const std::string&)> on_hang_up_;
  const Descriptor wake_;  // eventfd: look at stop_ and the scenario again
  std::atomic<bool> stop_ = false;

  Bytes waiting_;                  // for the reader's own thread; received, and not answered yet
  std::deque<Outgoing> outgoing_;  // for the reader's own thread; in order of time
  Clock::time_point line_free_{};  // for the reader's own thread; when the last byte of outgoing_ is through

  mutable std::mutex mutex_;  // guards all below
  Reader reader_;
  std::optional<PtyLink> link_;  // always there; only the reader's own thread changes or uses it, path() apart
  Counters line_;                // only the counts of bytes and hang-ups; the engine has the others
  Scenario scenario_;
  Clock::time_point scenario_start_{};
  Scenario::Time scenario_done_ = Scenario::kBeforeStart;  // what is due until then has happened

  std::thread thread_;  // last: it uses all above
};

}  // namespace uhfsim
