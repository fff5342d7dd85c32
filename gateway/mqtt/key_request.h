// A key of one's own, and the request to have it signed.
#pragma once

#include <filesystem>
#include <string>

namespace mqtt {

// The key in the file, which is made where it is missing, for its owner alone. PEM, the request for that name. Throws
// cli::Failure.
std::string key_request(const std::filesystem::path& key_file, const std::string& name);

}  // namespace mqtt
