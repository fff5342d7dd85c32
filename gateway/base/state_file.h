// Where a gateway keeps what is its own, and how.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace gateway {

// The directory of that program: the one that is given, or the machine's for root, else the user's own.
std::filesystem::path own_state(const std::string& program, const std::filesystem::path& given);

// The door daemon's: the one that is given, or that the environment names, or the machine's.
std::filesystem::path daemons_state(const std::filesystem::path& given);

// An open file, made by root perhaps, belongs to whom the directory does.
void give_to_owner_of(const std::filesystem::path& directory, int fd);

// The whole text or, after a crash, the old one. For its owner alone. Throws std::runtime_error.
void replace_file(const std::filesystem::path& path, std::string_view text);

}  // namespace gateway
