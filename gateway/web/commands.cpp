#include "gateway/web/commands.h"

#include <algorithm>
#include <array>
#include <utility>

namespace web {
namespace {

// Those that answer with one line; a page that needs another adds it.
constexpr std::array<std::pair<std::string_view, Role>, 5> kCommands = {{{"door", Role::view},
                                                                         {"door_mode", Role::admin},
                                                                         {"door_open", Role::admin},
                                                                         {"why", Role::view},
                                                                         {"why_now", Role::view}}};

}  // namespace

std::optional<Role> role_for(std::string_view command) {
  const auto found = std::ranges::find(kCommands, command, [](const auto& one) { return one.first; });
  return found == kCommands.end() ? std::nullopt : std::optional(found->second);
}

std::string commands_text() {
  std::string text;
  for (const auto& [command, role] : kCommands) {
    text += (text.empty() ? "" : ", ") + std::string(command);
  }
  return text;
}

}  // namespace web
