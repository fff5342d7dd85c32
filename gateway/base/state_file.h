// The files of this program's own.
#pragma once

#include <filesystem>
#include <string_view>

namespace gateway {

// An open file, made by root perhaps, belongs to whom the directory does.
void give_to_owner_of(const std::filesystem::path& directory, int fd);

// The whole text or, after a crash, the old one. For its owner alone. Throws std::runtime_error.
void replace_file(const std::filesystem::path& path, std::string_view text);

}  // namespace gateway
