// uhfctl as a process, and a simulated reader for it.
#pragma once

#include <gmock/gmock.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "process.h"
#include "uhfsim/simulated_reader.h"
#include "uhfsim/text.h"

namespace uhfctl::testing {

struct Result {
  int status;
  std::string out;
  std::string err;
};

// Runs it to its end.
inline Result run(std::vector<std::string> arguments) {
  uhfsim::testing::Process process(UHFCTL, std::move(arguments));
  process.close_input();
  Result result{.status = 0, .out = process.read_all(), .err = process.read_all_errors()};
  result.status = process.wait();
  return result;
}

inline std::vector<nlohmann::json> objects_of(const std::string& text) {
  std::vector<nlohmann::json> objects;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    objects.push_back(nlohmann::json::parse(line));
  }
  return objects;
}

// A reader on a line that takes no time, with two tags in the field, and a directory that goes with the test.
class WithReader : public ::testing::Test {
 protected:
  WithReader() {
    std::string name = std::filesystem::temp_directory_path() / "uhfctl-test-XXXXXX";
    directory = mkdtemp(name.data());
    reader.field().add({.epc = {0xE2, 0x00, 0x00, 0x01}, .rssi = 180});
    reader.field().add({.epc = {0x30, 0x08, 0x33, 0xB2}, .rssi = 90});
  }
  ~WithReader() override { std::filesystem::remove_all(directory); }

  // uhfctl at this reader's port.
  Result uhfctl(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"--port", reader.path()});
    return run(std::move(arguments));
  }

  std::string file(const std::string& name) const { return directory / name; }

  static std::string content_of(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  uhfsim::SimulatedReader reader{[] {
    uhfsim::Options options;
    options.baud = 0;
    return options;
  }()};
  std::filesystem::path directory;
};

}  // namespace uhfctl::testing
