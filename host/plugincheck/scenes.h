// What is examined, each in a process of its own.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "stage.h"

namespace plugincheck {

struct Scene {
  enum class Act { loading, starting, playing };  // one that finds something in its act leaves nothing for the next

  std::string name;
  std::vector<ClauseId> clauses;  // that are under examination at its beginning
  std::function<void(const Plan&)> play;
  Act act = Act::playing;
  Level level = Level::contract;
};

// All of them, in the order in which they are told.
std::vector<Scene> all_scenes();

std::vector<Scene> loading_scenes();
std::vector<Scene> init_scenes();
std::vector<Scene> running_scenes();
std::vector<Scene> growth_scenes();
std::vector<Scene> uhf_scenes();

}  // namespace plugincheck
