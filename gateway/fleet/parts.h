// A document in parts, of which a small change of it changes few, and the manifest that names them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "gateway/fleet/document.h"

namespace fleet {

inline constexpr std::size_t kLargestPart = std::size_t{64} * 1024;  // bytes

// By what names it: the first 32 hexadecimal digits of its SHA-256.
using Parts = std::map<std::string, std::string>;

// The same document makes the same parts. Throws cli::Failure (kUsage) for a line that fits in none.
Parts parts_of(const Document& document);

std::string hash_of(std::string_view text);

struct Manifest {
  struct Part {
    std::string hash;
    std::size_t bytes = 0;

    bool operator==(const Part&) const = default;
  };

  std::int64_t revision = 0;
  std::vector<Part> parts;

  bool names(const std::string& hash) const;
};

Manifest manifest_of(std::int64_t revision, const Parts& parts);
std::string text_of(const Manifest& manifest);

// Throws cli::Failure (kFailed) for what is none.
Manifest parse_manifest(const std::string& text);

}  // namespace fleet
