#include "gateway/mqtt/one_time_code.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <array>
#include <span>
#include <stdexcept>

namespace mqtt {
namespace {

// None that is easily taken for another.
constexpr std::string_view kLetters = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";
constexpr std::size_t kLetterCount = 20;

char meant_letter(char c) {
  const char upper = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return upper == 'O' ? '0' : upper == 'I' || upper == 'L' ? '1' : upper;
}

}  // namespace

std::string new_code() {
  std::array<unsigned char, kLetterCount> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    throw std::runtime_error("this machine gives no random numbers");
  }
  std::string code;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    code += (i % 5 == 0 && i > 0 ? "-" : "");
    code += kLetters[bytes.at(i) % kLetters.size()];
  }
  return code;
}

std::string meant_code(std::string_view text) {
  std::string code;
  for (const char c : text) {
    if (c == '-' || c == ' ') {
      continue;
    }
    code += meant_letter(c);
    if (kLetters.find(code.back()) == std::string_view::npos) {
      return "";
    }
  }
  return code.size() == kLetterCount ? code : "";
}

std::string proof_of(std::string_view code, std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
  if (HMAC(EVP_sha256(), code.data(), static_cast<int>(code.size()), bytes, text.size(), digest.data(), &size) ==
      nullptr) {
    throw std::runtime_error("cannot reckon a proof");
  }
  std::string proof;
  for (const unsigned byte : std::span(digest).first(size)) {
    proof += {"0123456789abcdef"[byte >> 4U], "0123456789abcdef"[byte & 15U]};
  }
  return proof;
}

bool is_proof(std::string_view proof, std::string_view code, std::string_view text) {
  const std::string right = proof_of(code, text);
  return proof.size() == right.size() && CRYPTO_memcmp(proof.data(), right.data(), right.size()) == 0;
}

}  // namespace mqtt
