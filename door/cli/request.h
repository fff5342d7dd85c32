// Asking the host that runs on a state directory.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "door/control/control.h"

namespace achost {

// The answer without "ok". Throws NoHost when none runs, and Failure with the host's own words when it
// refuses.
Json ask(const std::filesystem::path& state, const Json& request);

// The same; nothing when no host runs there.
std::optional<Json> ask_if_running(const std::filesystem::path& state, const Json& request);

// Hand each line that comes before the answer to a function, until it returns false.
void follow(const std::filesystem::path& state, const Json& request, const std::function<bool(const Json&)>& take);

}  // namespace achost
