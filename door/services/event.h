// What happens on the device, for those who watch it.
#pragma once

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ac/message.h"
#include "door/services/user.h"

namespace achost {

// One thing that happened, made from one message of the bus.
struct Event {
  // How much it matters to somebody at a door.
  enum class Weight { good, bad, plain, dim };

  std::chrono::system_clock::time_point time;
  // identification, door_open, door_contact, door_mode, enrollment, relay, config, audit, gpio, alarm or departure
  std::string name;
  std::string subject;  // for a person: "card 33 (0x21)"
  std::string text;     // for a person: "opens for user 7"
  Weight weight = Weight::plain;
  nlohmann::ordered_json fields;  // for a program

  // The types of message that become events.
  static std::vector<std::string> message_types();

  // From a message of one of these types; fields that it lacks are 0 or empty. Nothing when it tells a person nothing,
  // as the closing of a door.
  static std::optional<Event> from(const ac::Message& message, std::chrono::system_clock::time_point time);

  // For a person, local time, without a newline: "21:30:01.123  card 33 (0x21)            opens for user 7". Without
  // show_cards a card shows its last four digits alone.
  std::string line(bool colour, bool show_cards) const;

  // For a program: one JSON object without a newline, "event" and "time" (ISO 8601 with milliseconds and zone) first.
  std::string json() const;
};

}  // namespace achost
