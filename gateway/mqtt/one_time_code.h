// The code with which a new door joins a fleet: the door and the centre each show by it that they know the other's,
// without telling it.
#pragma once

#include <string>
#include <string_view>

namespace mqtt {

// 100 bits, to be typed: "4TQ2M-9XKPA-...".
std::string new_code();

// As whoever typed it meant it: in small letters too, with or without dashes, O for 0 and I for 1. Empty of what is
// none.
std::string meant_code(std::string_view text);

// A text that nobody can make who does not have the code, for exactly this text; hexadecimal.
std::string proof_of(std::string_view code, std::string_view text);

// In a time that tells nothing.
bool is_proof(std::string_view proof, std::string_view code, std::string_view text);

// What the centre's answer proves: nobody else gives a door its name, certificate, authority and broker.
inline std::string proved_text(const std::string& door, const std::string& certificate, const std::string& ca,
                               const std::string& broker) {
  return door + "\n" + broker + "\n" + certificate + ca;
}

}  // namespace mqtt
