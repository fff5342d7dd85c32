// How a new door joins a fleet: it makes a key, shows by the one-time code that it is the invited one, and gets its
// name, its certificate and its broker.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace mqtt {

struct JoinOptions {
  std::string broker;  // HOST:PORT of the listener for new doors
  std::string serial;
  std::string code;                 // as it was typed
  std::filesystem::path directory;  // for key.pem, certificate.pem, ca.pem and achost-mqtt.conf, its owner's
  std::chrono::seconds patience{60};
};

struct Joined {
  std::string door;
  std::string broker;
};

// The same key is asked for again when an answer was lost. Nothing that is there is replaced before the answer is known
// to be the centre's. Throws cli::Failure.
Joined join(const JoinOptions& options);

}  // namespace mqtt
