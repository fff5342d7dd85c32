// The journal, as those see it who have to note what they do before they do it.
#pragma once

#include <functional>

#include "door/journal/entry.h"

namespace achost {

// Any thread may call both; neither waits for a disk.
struct Bookkeeping {
  // Note what happens now; it outlives the process when this returns.
  std::function<void(const Entry&)> note = [](const Entry&) {};

  // Whether the door may open for a card: not so where the journal is required and cannot be written.
  std::function<bool()> lets_open = [] { return true; };
};

}  // namespace achost
