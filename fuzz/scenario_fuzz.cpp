// Scenario files, and the line that a scenario tells a host.
#include "input.h"
#include "uhfsim/scenario.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using uhfsim::Scenario;
  try {
    const Scenario scenario = Scenario::parse({reinterpret_cast<const char*>(data), size}, "fuzz");
    uhfsim::Field field;
    uhfsim::FaultInjector faults(1);
    auto at = Scenario::kBeforeStart;
    for (int steps = 0; steps < 100; ++steps) {
      const auto next = scenario.next(at);
      if (!next) {
        break;
      }
      fuzz::require(*next > at, "time goes on");
      const auto commands = scenario.due(at, *next);
      fuzz::require(!commands.empty(), "something happens when something is to happen");
      for (const auto& command : commands) {
        apply(command, field, faults);
      }
      at = *next;
    }
  } catch (const uhfsim::ScenarioError& error) {
    const std::string text = error.what();
    fuzz::require(text.find('\n') == std::string::npos, "an error is one line");
  }
  return 0;
}
