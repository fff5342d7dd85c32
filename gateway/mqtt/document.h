// A door's desired state as it comes over the broker: a manifest, and the parts that it names.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/base/json.h"

namespace mqtt {

using gateway::Json;

inline constexpr std::size_t kLargestPart = std::size_t{64} * 1024;  // bytes
inline constexpr std::size_t kMostParts = 3'000;

struct Manifest {
  std::int64_t revision = 0;
  std::vector<std::string> parts;  // what each is named by: the first 32 hexadecimal digits of its SHA-256
  std::string by;                  // who wants it; may be empty
};

// It is none; what() says what is wrong with it.
class BadManifest : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws BadManifest.
Manifest manifest_of(std::string_view text);

std::string hash_of(std::string_view text);

// What turns the lines of some parts into those of others, as desired_apply takes it with "from". needs_schedules: a
// row of schedules is different, and all of the new ones are to come behind it (remove_schedules, should there be
// none).
struct Difference {
  std::string lines;
  bool needs_schedules = false;
  bool removes_users = false;
};

// gone, come: the parts that only the old or only the new document has. Throws BadManifest for what is no document.
Difference difference(const std::vector<std::string>& gone, const std::vector<std::string>& come);

// The lines with rows of schedules of a part.
std::string schedules_of(std::string_view part);

// Whether a line of the part has that key.
bool says(std::string_view part, const char* key);

}  // namespace mqtt
