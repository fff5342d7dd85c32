#include "door/run/reader.h"

#include <utility>

#include "default_story.h"  // made by the build from share/story.txt
#include "door/base/failure.h"
#include "refhost/settings_store.h"
#include "uhfsim/scenario.h"

namespace achost {
namespace {

using refhost::SettingsStore;

// The option, or the setting as this run will have it.
std::string wanted_port(const RunOptions& options, const std::filesystem::path& state,
                        const std::vector<Assignment>& assignments) {
  if (!options.port.empty()) {
    return std::filesystem::absolute(options.port).string();
  }
  SettingsStore settings(state, SettingsStore::Access::read_only);
  for (const auto& [section, key, value] : assignments) {
    settings.override_for_run(section, key, value);
  }
  return settings.get(kDefaultSection, kPortSetting).value();
}

uhfsim::Scenario load_scenario(const RunOptions& options, Story& story) {
  if (options.interactive) {
    return {};
  }
  const auto check = [&story](const std::string& line) { story.check(line); };
  try {
    return options.scenario.empty() ? uhfsim::Scenario::parse(embedded::default_story, "built-in scenario", check)
                                    : uhfsim::Scenario::load(options.scenario, check);
  } catch (const uhfsim::ScenarioError& failure) {
    throw Failure(kUsage, failure.what());
  }
}

}  // namespace

Reader::Reader(const RunOptions& options, const std::filesystem::path& state,
               const std::vector<Assignment>& assignments) {
  if (!options.simulate) {
    port_ = wanted_port(options, state, assignments);
    try {
      guard_ = std::make_unique<line::PortGuard>(port_, "try --simulate");
    } catch (const line::PortError& failure) {
      throw Failure(failure.kind() == line::PortError::Kind::busy ? kPortBusy : kNoReader, failure.what());
    }
    return;
  }
  auto scenario = load_scenario(options, story_);
  uhfsim::Options simulation;
  simulation.seed = options.seed;
  simulation.on_host_line = [this](const std::string& line) { story_.tell(line); };
  simulated_ = std::make_unique<uhfsim::SimulatedReader>(std::move(simulation));
  simulated_->play(std::move(scenario));
  port_ = simulated_->path();
}

}  // namespace achost
