// The topics of a fleet: who tells what where. docs/mqtt.md has what goes there.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mqtt::topics {

// What may name a door, and a serial number: [a-z0-9-]{1,64}, so that it is one level of a topic, and no wildcard.
bool is_id(std::string_view text);

inline std::string of(std::string_view door, std::string_view rest) {
  return "doors/" + std::string(door) + "/" + std::string(rest);
}

inline std::string state(std::string_view door) { return of(door, "state"); }
inline std::string health(std::string_view door) { return of(door, "health"); }
inline std::string figures(std::string_view door) { return of(door, "figures"); }

// Everything, once acknowledged, in the order of its numbers.
inline std::string journal(std::string_view door, std::string_view kind) {
  return of(door, "journal/" + std::string(kind));
}

// The same entries ahead of their turn, while older ones are still on their way.
inline std::string live(std::string_view door, std::string_view kind) { return of(door, "live/" + std::string(kind)); }

// What is asked of a door, and where it answers who has named no topic for that. "+" for the name: all.
inline std::string command(std::string_view door, std::string_view name) {
  return of(door, "cmd/" + std::string(name));
}
inline std::string answer(std::string_view door, std::string_view name) {
  return of(door, "answer/" + std::string(name));
}

inline std::string desired(std::string_view door) { return of(door, "desired"); }
inline std::string desired_part(std::string_view door, std::string_view hash) {
  return of(door, "desired/parts/" + std::string(hash));
}
inline std::string desired_answer(std::string_view door) { return of(door, "desired/answer"); }

// A board that is to become a door has no name yet: this is its client id, to which the broker's rules tie its topics.
inline std::string newcomer(std::string_view serial) { return "new-" + std::string(serial); }

inline std::string provision_request(std::string_view serial) { return "provision/" + newcomer(serial) + "/request"; }
inline std::string provision_answer(std::string_view serial) { return "provision/" + newcomer(serial) + "/answer"; }

// The serial number in provision_request(); nothing of another topic.
std::optional<std::string_view> serial_of_request(std::string_view topic);

// Whether a text may be a serial number, and a door's name: what is made of it is an id too.
inline bool is_serial(std::string_view text) { return is_id(text) && is_id(newcomer(text)); }

// A door's topic, taken apart: "doors/gate-1/journal/denied" is of gate-1, "journal/denied". Nothing for another.
struct Place {
  std::string_view door;
  std::string_view rest;
};
std::optional<Place> place_of(std::string_view topic);

// What stands behind a beginning: "denied" of "journal/denied" behind "journal/". Nothing when it does not begin so.
std::optional<std::string_view> behind(std::string_view text, std::string_view beginning);

}  // namespace mqtt::topics
