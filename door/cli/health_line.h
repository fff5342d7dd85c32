// The reader's health, for a person.
#pragma once

#include <string>

#include "door/control/control.h"

namespace achost {

// "answering for 3 min 2 s: 62 polls/s, 0 % bad, last answer 0.0 s ago"; "silent for 5 s: the reader at ... does not
// answer; is it powered...". From what "health" answers.
std::string health_line(const Json& health);

// "3 h 25 min", "12 s".
std::string duration_text(std::int64_t seconds);

}  // namespace achost
