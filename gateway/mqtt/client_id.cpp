#include "gateway/mqtt/client_id.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "gateway/base/state_file.h"

namespace mqtt {
namespace {

constexpr const char* kDigits = "0123456789abcdef";
constexpr std::size_t kBytes = 16;

std::string new_secret() {
  std::array<unsigned char, kBytes> bytes{};
  if (getentropy(bytes.data(), bytes.size()) != 0) {
    throw std::system_error(errno, std::generic_category(), "this machine gives no random numbers");
  }
  std::string text;
  for (const unsigned byte : bytes) {
    text += {kDigits[byte >> 4U], kDigits[byte & 15U]};
  }
  return text;
}

}  // namespace

std::string kept_secret(const std::filesystem::path& file) {
  std::string secret;
  std::ifstream stream(file);
  if (std::getline(stream, secret) && secret.size() == 2 * kBytes &&
      secret.find_first_not_of(kDigits) == std::string::npos) {
    return secret;
  }
  secret = new_secret();
  gateway::replace_file(file, secret + "\n");
  return secret;
}

}  // namespace mqtt
