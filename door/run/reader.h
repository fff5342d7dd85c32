// The reader of a run.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "door/base/assignment.h"
#include "door/run/run_options.h"
#include "door/simulation/story.h"
#include "line/line.h"
#include "line/port_guard.h"
#include "line/terminal.h"
#include "uhfsim/simulated_reader.h"

namespace achost {

inline constexpr const char* kPortSetting = "serial_port_path";

// A simulated one, or a real one at its port, with the line between it and the plug-in; or, on demand, the port alone,
// held for this process.
class Reader {
 public:
  // Writes nothing, but mends settings that cannot be read otherwise. Throws Failure: kUsage for a scenario that cannot
  // be read, kNoReader or kPortBusy for a port that is not to be waited for.
  Reader(const RunOptions& options, const std::filesystem::path& state, const std::vector<Assignment>& assignments);

  // The device that the plug-in opens.
  const std::string& port() const { return plug_in_port_; }

  // The simulated one; null when it is real.
  uhfsim::SimulatedReader* simulated() { return simulated_.get(); }

  // Null when the plug-in has the port itself.
  line::Line* line() { return line_.get(); }

  // Whether the run begins before the reader answers.
  bool is_waited_for() const { return is_waited_for_; }

  // Who is told what the line says, on the line's thread; what it has said before comes at once.
  void on_event(std::function<void(const line::Event&)> listener);

  // Who is told what became of each question of the plug-in's, on the line's thread. To be set before the plug-in
  // starts.
  void on_exchange(std::function<void(line::Exchange)> listener);

  // What was wrong with the settings, a line each, when they told the port.
  const std::vector<std::string>& settings_faults() const { return settings_faults_; }

  // What the scenario does to the host; a real reader has none.
  Story& story() { return story_; }

  // For a person.
  std::string description() const { return real_port_ + (simulated_ == nullptr ? "" : " (simulated)"); }

 private:
  std::unique_ptr<line::Line> make_line(const std::filesystem::path& state, const std::vector<Assignment>& assignments);
  void tell(const line::Event& event);

  const std::unique_ptr<line::Terminal> controlling_terminal_ = line::controlling_terminal();
  std::string real_port_;
  std::string plug_in_port_;
  bool is_waited_for_ = false;
  std::vector<std::string> settings_faults_;
  std::unique_ptr<line::PortGuard> guard_;
  Story story_;
  std::unique_ptr<uhfsim::SimulatedReader> simulated_;  // it stops telling the story before that goes
  std::mutex mutex_;                                    // guards the next three
  std::function<void(const line::Event&)> listener_;
  std::function<void(line::Exchange)> exchange_listener_;
  std::vector<line::Event> early_;    // told before there was a listener
  std::unique_ptr<line::Line> line_;  // last: its thread uses the others
};

}  // namespace achost
