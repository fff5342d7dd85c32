// Asking the host that runs on a state directory.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "door/control/control.h"

namespace achost {

// The answer without "ok". Throws refhost::NoHost when none runs, and Failure with the host's own words when it
// refuses.
refhost::Json ask(const std::filesystem::path& state, const refhost::Json& request);

// The same; nothing when no host runs there.
std::optional<refhost::Json> ask_if_running(const std::filesystem::path& state, const refhost::Json& request);

// Hand each line that comes before the answer to a function, until it returns false.
void follow(const std::filesystem::path& state, const refhost::Json& request,
            const std::function<bool(const refhost::Json&)>& take);

}  // namespace achost
