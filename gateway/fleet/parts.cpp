#include "gateway/fleet/parts.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <span>
#include <stdexcept>

#include "cli/failure.h"
#include "gateway/fleet/json.h"

namespace fleet {
namespace {

// A part of users is divided beyond this size, so that one with a changed card is sent in no time.
constexpr std::size_t kDivided = std::size_t{32} * 1024;

// Spreads numbers that follow each other over all bits (the finaliser of splitmix64).
std::uint64_t spread(std::int64_t id) {
  auto bits = static_cast<std::uint64_t>(id);
  bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9U;
  bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EBU;
  return bits ^ (bits >> 31U);
}

struct Line {
  std::uint64_t place;
  const std::string* text;
};

void add(Parts& parts, std::string text) {
  if (text.size() > kLargestPart) {
    throw cli::Failure(cli::kUsage, "a line of " + std::to_string(text.size()) + " bytes (" + text.substr(0, 40) +
                                        "...) fits in no part, which has " + std::to_string(kLargestPart) +
                                        ": give the user fewer cards");
  }
  if (!text.empty()) {
    std::string hash = hash_of(text);
    parts.emplace(std::move(hash), std::move(text));
  }
}

// Divides the users bit by bit of their places until each part is small: who joins or goes changes the part that has
// him, and divides it at most.
void divide(Parts& parts, std::span<Line> lines, unsigned bit) {
  std::size_t size = 0;
  for (const auto& line : lines) {
    size += line.text->size() + 1;
  }
  if (size > kDivided && lines.size() > 1 && bit < 64) {
    const auto is_low = [bit](const Line& line) { return (line.place >> bit & 1U) == 0; };
    const auto middle = std::stable_partition(lines.begin(), lines.end(), is_low);
    const auto low = static_cast<std::size_t>(middle - lines.begin());
    divide(parts, lines.first(low), bit + 1);
    divide(parts, lines.subspan(low), bit + 1);
    return;
  }
  std::string text;
  text.reserve(size);
  for (const auto& line : lines) {
    text += *line.text + "\n";
  }
  add(parts, std::move(text));
}

// In order, as many in a part as fit.
template <typename Lines, typename TextOf>
void fill_parts(Parts& parts, const Lines& lines, const TextOf& text_of_line) {
  std::string text;
  for (const auto& line : lines) {
    const std::string& one = text_of_line(line);
    if (text.size() + one.size() + 1 > kLargestPart) {
      add(parts, std::exchange(text, {}));
    }
    text += one + "\n";
  }
  add(parts, std::move(text));
}

bool is_hash(const std::string& text) {
  return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

std::string hash_of(std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (EVP_Digest(text.data(), text.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("cannot reckon a SHA-256");
  }
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hash;
  for (const unsigned byte : std::span(digest).first(16)) {
    hash += {kDigits[byte >> 4U], kDigits[byte & 15U]};
  }
  return hash;
}

Parts parts_of(const Document& document) {
  Parts parts;
  std::vector<Line> lines;
  lines.reserve(document.users.size());
  for (const auto& [id, text] : document.users) {
    lines.push_back({spread(id), &text});
  }
  divide(parts, lines, 0);
  if (document.users.empty()) {
    add(parts, line_of({{"remove_users", true}}) + "\n");
  }
  if (document.schedules.has_value()) {
    fill_parts(parts, *document.schedules, [](const auto& line) -> const std::string& { return line; });
    add(parts, document.schedules->empty() ? line_of({{"remove_schedules", true}}) + "\n" : "");
  }
  fill_parts(parts, document.settings, [](const auto& entry) -> const std::string& { return entry.second; });
  return parts;
}

bool Manifest::names(const std::string& hash) const {
  return std::ranges::find(parts, hash, &Part::hash) != parts.end();
}

Manifest manifest_of(std::int64_t revision, const Parts& parts) {
  Manifest manifest{.revision = revision, .parts = {}};
  for (const auto& [hash, text] : parts) {
    manifest.parts.push_back({hash, text.size()});
  }
  return manifest;
}

std::string text_of(const Manifest& manifest) {
  Json json = {{"revision", manifest.revision}, {"parts", Json::array()}};
  for (const auto& [hash, bytes] : manifest.parts) {
    json["parts"].push_back({{"hash", hash}, {"bytes", bytes}});
  }
  return line_of(json);
}

Manifest parse_manifest(const std::string& text) {
  const Json json = object_of(text);
  const Json parts = value_in(json, "parts");
  Manifest manifest{.revision = number_in(json, "revision").value_or(-1), .parts = {}};
  bool is_right = manifest.revision >= 0 && parts.is_array();
  for (const auto& part : parts) {
    manifest.parts.push_back({text_in(part, "hash"), static_cast<std::size_t>(number_in(part, "bytes").value_or(-1))});
    is_right = is_right && is_hash(manifest.parts.back().hash) && manifest.parts.back().bytes <= kLargestPart;
  }
  if (!is_right) {
    throw cli::Failure(cli::kFailed, "the broker has a manifest of a desired state that is none: push with --anew");
  }
  return manifest;
}

}  // namespace fleet
