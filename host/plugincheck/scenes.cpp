#include "scenes.h"

namespace plugincheck {

std::vector<Scene> all_scenes() {
  std::vector<Scene> scenes;
  for (const auto& part : {loading_scenes(), running_scenes(), growth_scenes(), uhf_scenes(), init_scenes()}) {
    scenes.insert(scenes.end(), part.begin(), part.end());
  }
  return scenes;
}

}  // namespace plugincheck
