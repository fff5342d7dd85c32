// Messages as no sender should send them, and yet one will.
#pragma once

#include <memory>
#include <string>

#include "ac/message.h"
#include "uhfsim/random.h"

namespace plugincheck {

// A message of that type with some of the fields that messages have: missing, odd, of another type.
std::unique_ptr<ac::Message> odd_message(const std::string& type, uhfsim::Random& random);

}  // namespace plugincheck
