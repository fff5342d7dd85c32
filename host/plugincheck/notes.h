// What a scene finds, told to the process that has started it.
#pragma once

#include <initializer_list>
#include <string>

#include "clauses.h"

namespace plugincheck {

// Any thread. Each note goes to the descriptor at once, so that a crash loses none.
class Notes {
 public:
  static void to(int descriptor);

  // From here on these are examined, and what ends the process breaks them.
  static void examine(std::initializer_list<ClauseId> clauses);

  // These are examined as well; what ends the process says nothing of them.
  static void look_at(std::initializer_list<ClauseId> clauses);

  // The clause is broken; text says what was seen, without a full stop.
  static void found(ClauseId id, const std::string& text);

  // The clause is not examined here.
  static void leave_out(ClauseId id, const std::string& reason);

  // The scene is over, and so is the process, whatever threads it has.
  [[noreturn]] static void end();

  // From now on an exception that nobody catches is as good an end as another.
  static void let_it_end();
};

}  // namespace plugincheck
