// The reader of a run.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "door/base/assignment.h"
#include "door/run/run_options.h"
#include "door/simulation/story.h"
#include "line/port_guard.h"
#include "uhfsim/simulated_reader.h"

namespace achost {

inline constexpr const char* kPortSetting = "serial_port_path";

// A simulated one, or the port at which a real one is, held for this process.
class Reader {
 public:
  // Writes nothing. Throws Failure: kUsage for a scenario that cannot be read, kNoReader or kPortBusy for a port.
  Reader(const RunOptions& options, const std::filesystem::path& state, const std::vector<Assignment>& assignments);

  // The device to open.
  const std::string& port() const { return port_; }

  // The simulated one; null when it is real.
  uhfsim::SimulatedReader* simulated() { return simulated_.get(); }

  // What the scenario does to the host; a real reader has none.
  Story& story() { return story_; }

  // For a person.
  std::string description() const { return port_ + (simulated_ == nullptr ? "" : " (simulated)"); }

 private:
  std::string port_;
  std::unique_ptr<line::PortGuard> guard_;
  Story story_;
  std::unique_ptr<uhfsim::SimulatedReader> simulated_;  // last: it stops telling the story before that goes
};

}  // namespace achost
