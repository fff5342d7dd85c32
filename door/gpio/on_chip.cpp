#include "door/gpio/on_chip.h"

#include <algorithm>

#include "ac/exception.h"

namespace achost::gpio {

Report report_of(const Chip& chip, const GpioPlan& plan,
                 const std::function<std::optional<int>(const PlannedLine& line, unsigned offset)>& level) {
  Report report{.chip = chip.description(), .lines = {}};
  for (const auto& state : chip.survey()) {
    auto& line = report.lines.emplace_back();
    line.offset = state.offset;
    line.name = state.name;
    line.is_output = state.is_output;
    line.consumer = state.consumer.empty() && state.is_used ? "?" : state.consumer;
    const auto planned = std::ranges::find_if(plan.lines, [&state](const PlannedLine& one) {
      const auto offset = one.wired.offset();
      return offset.has_value() ? *offset == state.offset : one.wired.line == state.name;
    });
    if (planned != plan.lines.end()) {
      line.use = planned->use;
      line.level = level(*planned, state.offset);
    }
  }
  return report;
}

Report report_of(Kernel& kernel, const GpioPlan& plan, const SettingsValues& settings) {
  const Chip chip(kernel, plan.chip);
  const int inverted = inverted_line(settings);
  return report_of(chip, plan, [&](const PlannedLine& line, unsigned offset) {
    auto level = chip.peek(offset);
    if (level.has_value()) {
      *level ^= (line.wired.active_low ? 1 : 0) ^ (line.number == inverted ? 1 : 0);
    }
    return level;
  });
}

RestOutcome put_at_rest(Kernel& kernel, const GpioPlan& plan, const SettingsValues& settings) {
  RestOutcome outcome;
  const Chip chip(kernel, plan.chip);
  const int inverted = inverted_line(settings);
  for (const auto& line : plan.lines) {
    if (!line.is_output) {
      continue;
    }
    try {
      chip.request(line, line.wired.rest ^ (line.number == inverted ? 1 : 0));
      outcome.at_rest.push_back(line.use);
    } catch (const ac::ac_exception& failure) {
      outcome.faults.emplace_back(failure.what());
    }
  }
  return outcome;
}

}  // namespace achost::gpio
