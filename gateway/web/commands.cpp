#include "gateway/web/commands.h"

#include <algorithm>
#include <array>

namespace web {
namespace {

// Those that answer with one line; a page that needs another adds it.
constexpr std::array<std::string_view, 5> kCommands = {"door", "door_open", "door_mode", "why", "why_now"};

}  // namespace

bool may_be_asked(std::string_view command) { return std::ranges::find(kCommands, command) != kCommands.end(); }

std::string commands_text() {
  std::string text;
  for (const auto& command : kCommands) {
    text += (text.empty() ? "" : ", ") + std::string(command);
  }
  return text;
}

}  // namespace web
