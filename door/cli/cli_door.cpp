// The door: how it stands, opening it, and its mode.
#include <chrono>

#include "cli/command_line.h"
#include "cli/text_table.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/base/time_of.h"
#include "door/cli/cli.h"
#include "door/cli/door_table.h"
#include "door/cli/request.h"

namespace achost {
namespace {

// "90s", "2h", "1h30min", in seconds.
std::int64_t length_of(const std::string& text) {
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  try {
    return now.time_since_epoch().count() - time_of("-" + text, now) / 1000;
  } catch (const Failure&) {
    throw Failure(kUsage, "\"" + text + "\" is no length of time: it is such as 90s, 10min, 2h or 1h30min");
  }
}

void show_door(const std::string& state, bool as_json) {
  const Json door = ask(state_directory(state), {{"command", "door"}});
  print(as_json ? door.dump() + "\n" : "DOOR\n" + aligned(door_rows(door)));
}

// A mode that is to stay is stored, also where no host runs.
void set_mode(const std::string& state, const std::string& mode, const std::string& length) {
  Json request = {{"command", "door_mode"}, {"mode", mode}};
  if (!length.empty()) {
    request["seconds"] = length_of(length);
    print(aligned(door_rows(ask(state_directory(state), request))));
  } else if (const auto door = ask_if_running(state_directory(state), request, StoreOwner::kPatience)) {
    print(aligned(door_rows(*door)));
  } else {
    StoreOwner(writable_state(state))
        .ask({{"command", "config_set"}, {"section", "host"}, {"key", "door_mode"}, {"value", mode}});
    print("host.door_mode = " + mode + ", for the next run\n");
  }
}

void add_show(CLI::App& command) {
  const auto state = add_state(command);
  const auto json = std::make_shared<bool>();
  command.add_flag("--json", *json, "One JSON object");
  command.callback([=, &command] {
    if (command.get_subcommands().empty()) {
      show_door(*state, *json);
    }
  });
}

void add_open(CLI::App& door) {
  CLI::App& open = *door.add_subcommand("open", "Open it, as the exit button does, in any mode");
  const auto state = add_state(open);
  open.callback([=] {
    ask(state_directory(*state), {{"command", "door_open"}});
    print("the door opens\n");
  });
}

void add_mode(CLI::App& door) {
  CLI::App& mode = *door.add_subcommand("mode", "Give it a mode, over its switch and schedules");
  const auto state = add_state(mode);
  const auto name = std::make_shared<std::string>();
  const auto length = std::make_shared<std::string>();
  mode.add_option("MODE", *name,
                  "normal; locked: no card opens it; unlocked: it is open; auto: as its switch and schedules say")
      ->required()
      ->check(cli::one_of({"auto", "normal", "locked", "unlocked"}));
  mode.add_option("--for", *length, "For so long, such as 90s, 10min, 2h; it ends with the daemon, too")
      ->type_name("TIME");
  mode.callback([=] { set_mode(*state, CLI::detail::to_lower(*name), *length); });
}

}  // namespace

void add_door(CLI::App& app) {
  CLI::App& door = *app.add_subcommand("door", "Show the door, open it, or give it a mode")->require_subcommand(0, 1);
  add_show(door);
  add_show(*door.add_subcommand("status", "Show how it stands"));
  add_open(door);
  add_mode(door);
}

}  // namespace achost
