// A message with fields of every type, and what is not as it should be in it.
#pragma once

#include <memory>
#include <string>

#include "desk.h"

namespace hostcheck {

std::unique_ptr<ac::Message> with_known_fields(Type type);

// Nothing when all of them are there, and the type.
std::string difference_in(const ac::Message& message, Type type);

}  // namespace hostcheck
