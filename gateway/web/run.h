// One run of achost-web.
#pragma once

#include <filesystem>
#include <string>

#include "gateway/web/access.h"
#include "gateway/web/options.h"

namespace web {

// Serve until SIGINT or SIGTERM. Throws cli::Failure or std::runtime_error.
void run(const Options& options);

// "http://localhost:8080/#SECRET": where a run on that state serves, or did last, and a new secret. It stands behind
// the
// "#", which a browser sends to nobody. Throws cli::Failure when there was no run yet.
std::string link_text(const std::filesystem::path& state, Access& access, Role role, const std::string& name);

}  // namespace web
