// What a bridge is known by at the broker, and nobody else is to know: the broker ends the connection of whoever is
// there already under the same client id.
#pragma once

#include <filesystem>
#include <string>

namespace mqtt {

// 32 hexadecimal digits that nobody can guess. They stay the same as long as the file does: a bridge that starts anew
// takes the place of a connection that the broker still believes in, whose will would otherwise be told behind its
// back. Throws std::runtime_error when it cannot be written.
std::string kept_secret(const std::filesystem::path& file);

}  // namespace mqtt
