// Who is invited to join, as the centre keeps it: a file for its owner alone.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "gateway/fleet/json.h"

namespace fleet {

struct Invitation {
  std::string door;
  std::string code;        // as mqtt::meant_code() has it
  std::int64_t until = 0;  // ms since 1970
  std::string used_by;     // the hash of the key that it was used for; empty: of none yet
};

// What a door wants to have signed.
struct KeyRequest {
  std::string text;
  std::string key;  // the hash of the key in it: a request for the same key is another text each time
};

// Several processes may use the file at once. Throws cli::Failure.
class Invitations {
 public:
  explicit Invitations(std::filesystem::path directory);

  // In place of one that the serial number had. The code, to be typed at the door.
  std::string invite(const std::string& serial, const std::string& door, std::int64_t until);

  // The invitation by which this key may be signed, which from then on is for this key alone: an answer may be lost.
  // Nothing when there is none. proof: that the door knows the code.
  std::optional<Invitation> use(const std::string& serial, const KeyRequest& request, const std::string& proof,
                                std::int64_t now);

 private:
  class Lock;
  Json read() const;
  void write(const Json& all) const;

  const std::filesystem::path directory_;
};

}  // namespace fleet
