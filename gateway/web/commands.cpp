#include "gateway/web/commands.h"

#include <algorithm>
#include <array>

namespace web {
namespace {

// What waits for the reader, or for many rows.
constexpr std::chrono::seconds kLong{60};

// Those that answer with one line; a page that needs another adds it.
constexpr auto kCommands = std::to_array<Command>({{"card_add", Role::admin},
                                                   {"card_forms", Role::view},
                                                   {"card_remove", Role::admin},
                                                   {"choose_power", Role::view},
                                                   {"config_get", Role::view},
                                                   {"config_import", Role::admin, kLong},
                                                   {"config_list", Role::view},
                                                   {"config_schema", Role::view},
                                                   {"config_set", Role::admin, kLong},
                                                   {"door", Role::view},
                                                   {"door_mode", Role::admin},
                                                   {"door_open", Role::admin},
                                                   {"schedule_list", Role::view},
                                                   {"try_power", Role::admin, kLong},
                                                   {"user_add", Role::admin},
                                                   {"user_block", Role::admin},
                                                   {"user_find", Role::view},
                                                   {"user_put", Role::admin},
                                                   {"user_remove", Role::admin},
                                                   {"why", Role::view},
                                                   {"why_now", Role::view}});

}  // namespace

std::optional<Command> command_of(std::string_view name) {
  const auto* const found = std::ranges::find(kCommands, name, &Command::name);
  return found == kCommands.end() ? std::nullopt : std::optional(*found);
}

std::string commands_text() {
  std::string text;
  for (const Command& command : kCommands) {
    text += (text.empty() ? "" : ", ") + std::string(command.name);
  }
  return text;
}

}  // namespace web
