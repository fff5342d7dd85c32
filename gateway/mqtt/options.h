// How achost-mqtt is to run.
#pragma once

#include <filesystem>
#include <string>

#include "gateway/mqtt/broker.h"

namespace mqtt {

struct Options {
  std::string door;
  std::string broker;  // HOST or HOST:PORT
  Files files;
  bool discovery = false;
  bool without_tls = false;      // for a broker on this machine
  std::filesystem::path state;   // this program's own
  std::filesystem::path daemon;  // the daemon's
};

// Lines KEY=VALUE: door, broker, ca, certificate, key, discovery. What the options have already stays. Throws
// cli::Failure (kUsage), which names the line.
void read_options(const std::filesystem::path& file, Options& options);

// Throws cli::Failure (kUsage) for what cannot be.
Place place_of(const Options& options);

}  // namespace mqtt
