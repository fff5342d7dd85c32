#include "door/services/door_mode.h"

#include <algorithm>
#include <array>

namespace achost {
namespace {

constexpr std::array<std::string_view, 3> kModes = {"normal", "locked", "unlocked"};
constexpr std::array<std::string_view, 4> kGivers = {"command", "input", "schedule", "nobody"};

}  // namespace

std::string_view name_of(DoorMode mode) { return kModes.at(static_cast<std::size_t>(mode)); }

std::string_view name_of(ModeGiver giver) { return kGivers.at(static_cast<std::size_t>(giver)); }

std::optional<DoorMode> door_mode_of(std::string_view name) {
  const auto* const found = std::ranges::find(kModes, name);
  return found == kModes.end() ? std::nullopt : std::optional(static_cast<DoorMode>(found - kModes.begin()));
}

ModeInForce mode_in_force(const ModeWishes& wishes) {
  if (wishes.command.has_value()) {
    return {*wishes.command, ModeGiver::command};
  }
  if (wishes.input.has_value()) {
    return {*wishes.input, ModeGiver::input};
  }
  if (wishes.is_time_to_lock || wishes.is_time_to_unlock) {
    return {wishes.is_time_to_lock ? DoorMode::locked : DoorMode::unlocked, ModeGiver::schedule};
  }
  return {};
}

}  // namespace achost
