// Asking the host that runs on a state directory.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>

#include "door/control/control.h"

namespace achost {

// How long a host may take to answer; for ever when nothing is given.
using Patience = std::optional<std::chrono::milliseconds>;

// The answer without "ok". Throws NoHost when none runs, Failure with the host's own words when it refuses, and
// ac::ac_exception when it takes longer.
Json ask(const std::filesystem::path& state, const Json& request, Patience patience = ControlClient::kPatience);

// The same; nothing when no host runs there.
std::optional<Json> ask_if_running(const std::filesystem::path& state, const Json& request,
                                   Patience patience = ControlClient::kPatience);

// Hand each line that comes before the answer to a function, until it returns false. Throws as ask() does.
void follow(const std::filesystem::path& state, const Json& request, const std::function<bool(const Json&)>& take);

}  // namespace achost
