#include "uhfsim/scenario.h"

#include <algorithm>

namespace uhfsim {

std::vector<Command> Scenario::due(Time after, Time until) const {
  std::vector<Command> commands;
  const auto take = [&](Time start) {
    for (const Event& event : events_) {
      if (start + event.at > after && start + event.at <= until) commands.push_back(event.command);
    }
  };
  if (!loop_) {
    take(Time::zero());
    return commands;
  }
  for (auto round = std::max(after, Time::zero()) / *loop_; round * *loop_ <= until; ++round) {
    const Time start = round * *loop_;
    if (round > 0 && start > after) commands.emplace_back(ClearField{});
    take(start);
  }
  return commands;
}

std::optional<Scenario::Time> Scenario::next(Time after) const {
  const Time start = loop_ ? std::max(after, Time::zero()) / *loop_ * *loop_ : Time::zero();
  const auto event = std::ranges::find_if(events_, [&](const Event& e) { return start + e.at > after; });
  if (event != events_.end()) return start + event->at;
  if (loop_) return start + *loop_;
  return std::nullopt;
}

}  // namespace uhfsim
