#include "pin.h"

#include <sched.h>

#include <vector>

namespace {

std::vector<int> allowed() {
  cpu_set_t set;
  sched_getaffinity(0, sizeof set, &set);
  std::vector<int> processors;
  for (int processor = CPU_SETSIZE - 1; processor >= 0; --processor) {
    if (CPU_ISSET(processor, &set)) {
      processors.push_back(processor);
    }
  }
  return processors;
}

}  // namespace

void pin(int place) {
  static const std::vector<int> processors = allowed();  // before the first pin
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(processors.at(static_cast<std::size_t>(place) % processors.size()), &set);
  sched_setaffinity(0, sizeof set, &set);
}
