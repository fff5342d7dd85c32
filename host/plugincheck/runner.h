// Plays scenes, each in a process of its own, and gathers what they find.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "report.h"
#include "scenes.h"

namespace plugincheck {

struct RunnerOptions {
  std::vector<std::string> arguments;  // of this program, to which those of a scene are added
  std::vector<std::string> under;      // what starts this program: an emulator and its options, or nothing
  std::filesystem::path directory;     // empty, for what the scenes need
  bool shows_output = false;           // of the plug-in
};

// Throws std::system_error. Returns false when a signal has asked for the end.
bool play_all(const std::vector<Scene>& scenes, Level level, const RunnerOptions& options, Report& report);

}  // namespace plugincheck
