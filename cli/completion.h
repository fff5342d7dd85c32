// Completions for shells.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "cli/manual.h"

namespace cli {

std::string bash_completion(const CLI::App& app, const std::vector<Offer>& offers);
std::string zsh_completion(const CLI::App& app, const std::vector<Offer>& offers);
std::string fish_completion(const CLI::App& app, const std::vector<Offer>& offers);

}  // namespace cli
