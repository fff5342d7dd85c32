// The modes of a door, and which of them is in force.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace achost {

enum class DoorMode {
  normal,    // cards open it
  locked,    // no card does; the exit button and a command do
  unlocked,  // it is open
};

// Who asks for a mode, in the order in which they are listened to.
enum class ModeGiver { command, input, schedule, nobody };

// For a program and for a person: "locked"; "command".
std::string_view name_of(DoorMode mode);
std::string_view name_of(ModeGiver giver);

// The mode of that name; nothing when there is none.
std::optional<DoorMode> door_mode_of(std::string_view name);

struct ModeWishes {
  std::optional<DoorMode> command = {};
  std::optional<DoorMode> input = {};
  bool is_time_to_lock = false;
  bool is_time_to_unlock = false;
};

struct ModeInForce {
  DoorMode mode = DoorMode::normal;
  ModeGiver by = ModeGiver::nobody;

  bool operator==(const ModeInForce&) const = default;
};

// A command is over an input, and that over the schedules; of these, what locks is over what unlocks.
ModeInForce mode_in_force(const ModeWishes& wishes);

}  // namespace achost
