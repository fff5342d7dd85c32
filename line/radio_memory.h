// What the plug-in had set last in the reader, from the commands that passed.
#pragma once

#include <map>
#include <optional>
#include <vector>

#include "line/conversation.h"
#include "line/frames.h"

namespace line {

// One thread uses it.
class RadioMemory {
 public:
  // A question that is done with. What the reader answered counts; a setting without an answer failed.
  void saw(const Exchange& exchange);

  // The same from a command alone, for one that reaches the reader later.
  void will_set(const Frame& command);

  // The commands that give a reader all of it, in the order of the plug-in's own set-up; none when nothing was set.
  std::vector<Bytes> commands() const;

  // Hundredths of a dBm, as it was set, or as it was read and left.
  std::optional<int> power() const { return power_; }

  // The answer to a command as a reader with these settings, and with no tag, would give it; nothing for a question
  // that cannot be answered from memory.
  std::optional<Bytes> answer_to(const Frame& command) const;

 private:
  std::map<Code, Bytes> parameters_;  // by setter
  std::optional<int> power_;
};

}  // namespace line
