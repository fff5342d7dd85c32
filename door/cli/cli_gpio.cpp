// The GPIO lines: of a host that runs, else of the chip itself.
#include <algorithm>
#include <csignal>
#include <iterator>
#include <thread>

#include "cli/command_line.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/cli.h"
#include "door/cli/gpio_table.h"
#include "door/cli/request.h"
#include "door/control/gpio_commands.h"
#include "door/gpio/chip_lines.h"
#include "door/gpio/kept_plan.h"
#include "door/gpio/on_chip.h"
#include "door/services/door_service.h"
#include "refhost/log.h"

namespace achost {
namespace {

using refhost::SettingsStore;
using std::filesystem::path;

// What the settings say, where no host runs.
class StoredPlan {
 public:
  explicit StoredPlan(const path& state)
      : state_(state), store_(state, SettingsStore::Access::read_only), plan_(gpio_plan(settings())) {}

  const GpioPlan& plan() const { return plan_; }
  SettingsValues settings() const {
    return [this](const std::string& section, const std::string& key) { return store_.get(section, key).value(); };
  }

  // Virtual lines are those of a host that runs. Throws NoHost.
  const StoredPlan& wired() const {
    if (plan_.chip.empty()) {
      throw NoHost(state_);
    }
    return *this;
  }

  // Some of the lines, in use as by a host.
  std::unique_ptr<gpio::ChipLines> lines(const std::function<bool(const PlannedLine&)>& matches) const {
    GpioPlan part{.chip = plan_.chip, .lines = {}};
    std::ranges::copy_if(plan_.lines, std::back_inserter(part.lines), matches);
    const auto tell = [](const std::string& trouble) {
      refhost::log::say("achost: " + (trouble.empty() ? "the lines are back" : trouble));
    };
    return std::make_unique<gpio::ChipLines>(gpio::ChipLines::Needs{gpio::Kernel::instance(), settings(), tell},
                                             std::move(part));
  }

 private:
  const path state_;
  const SettingsStore store_;
  const GpioPlan plan_;
};

Json list_of(const path& state, const std::string& chip) {
  if (!chip.empty()) {
    return json_of(report_of(gpio::Chip(gpio::Kernel::instance(), chip), {},
                             [](const PlannedLine&, unsigned) { return std::nullopt; }));
  }
  if (auto answer = ask_if_running(state, {{"command", "gpio_list"}})) {
    return *answer;
  }
  const StoredPlan stored(state);
  return json_of(report_of(gpio::Kernel::instance(), stored.wired().plan(), stored.settings()));
}

// A change as the bus has it.
Json event_of(const gpio::Change& change) {
  Json fields = change.line == kExitButton ? Json{{"active", 1 - change.level}}
                                           : Json{{"gpio", change.line}, {"value", change.level}};
  fields["at"] = change.at;
  return {{"fields", std::move(fields)}};
}

[[noreturn]] void follow_chip(const path& state) {
  const StoredPlan stored(state);
  const auto lines = stored.wired().lines([](const PlannedLine& line) { return !line.is_output; });
  lines->begin([](const gpio::Change& change) {
    if (!print(edge_line(event_of(change)))) {
      std::_Exit(0);
    }
  });
  for (;;) {
    std::this_thread::sleep_for(std::chrono::hours(1));
  }
}

void follow_lines(const path& state) {
  // Ctrl-C is the way out, so it is no failure.
  std::signal(SIGINT, [](int) { std::_Exit(0); });
  std::signal(SIGTERM, [](int) { std::_Exit(0); });
  try {
    follow(state, {{"command", "events"}, {"types", "gpio_notified,sec_box_rex_changed"}},
           [](const Json& line) { return print(edge_line(line)); });
  } catch (const NoHost&) {
    follow_chip(state);
  }
}

// Without a host, nobody else moves the relay meanwhile; nothing is left of the second but the relay at rest.
void try_on_chip(const path& state, int relay) {
  const StoredPlan stored(state);
  const std::string use = "relay_" + std::to_string(relay);
  const auto& planned = stored.wired().plan().lines;
  const auto found = std::ranges::find(planned, use, &PlannedLine::use);
  if (found == planned.end()) {
    throw Failure(kFailed, "relay " + std::to_string(relay) + " is virtual, nothing would move: host." + use +
                               " gives it a line");
  }
  const auto lines = stored.lines([&use](const PlannedLine& line) { return line.use == use; });
  lines->begin([](const gpio::Change&) {});
  lines->set(found->number, 1 - lines->level(found->number));
  std::this_thread::sleep_for(kRelayTestTime);
}

void test_relay(const path& state, std::int64_t relay) {
  bool is_door = false;
  if (const auto answer = ask_if_running(state, {{"command", "gpio_test"}, {"relay", relay}})) {
    is_door = answer->at("door");
  } else {
    try_on_chip(state, static_cast<int>(relay));
  }
  print("relay " + std::to_string(relay) +
        (is_door ? " opens the door for a second\n" : " was switched for a second\n"));
}

// Those of the last run, where a service knows of it.
SettingsValues last_settings(const path& state) {
  if (auto kept = gpio::KeptPlan::of_last_run()) {
    return *kept;
  }
  const auto stored = std::make_shared<SettingsStore>(state, SettingsStore::Access::read_only);
  return [stored](const std::string& section, const std::string& key) { return stored->get(section, key).value(); };
}

void put_lines_at_rest(const path& state) {
  const auto settings = last_settings(state);
  const auto plan = gpio_plan(settings);
  if (plan.chip.empty()) {
    print("all lines are virtual: there is nothing to put at rest\n");
    return;
  }
  const auto outcome = gpio::put_at_rest(gpio::Kernel::instance(), plan, settings);
  for (const auto& use : outcome.at_rest) {
    print(use + " is at rest\n");
  }
  std::string faults;
  for (const auto& fault : outcome.faults) {
    faults += (faults.empty() ? "not at rest: " : "; ") + fault;
  }
  if (!faults.empty()) {
    throw Failure(kFailed, faults);
  }
}

void add_list(CLI::App& gpio) {
  const auto add = [](CLI::App& command, bool has_subcommands) {
    const auto state = add_state(command);
    const auto chip = std::make_shared<std::string>();
    const auto json = std::make_shared<bool>();
    const auto follows = std::make_shared<bool>();
    auto* const another = command.add_option("--chip", *chip, "Another chip, by path, name or label");
    another->type_name("CHIP");
    command.add_flag("--json", *json, "One JSON object");
    if (has_subcommands) {
      command.add_flag("--follow", *follows, "Show each change as it comes, until Ctrl-C")->excludes(another);
    }
    command.callback([=, &command] {
      if (!command.get_subcommands().empty()) {
        return;
      }
      if (*follows) {
        follow_lines(state_directory(*state));
        return;
      }
      const Json list = list_of(chip->empty() ? state_directory(*state) : path(), *chip);
      print(*json ? list.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n" : gpio_table(list));
    });
  };
  add(gpio, true);
  add(*gpio.add_subcommand("list", "Show the lines"), false);
}

void add_set(CLI::App& gpio) {
  CLI::App& set = *gpio.add_subcommand("set", "Set a line, as a wire would");
  const auto state = add_state(set);
  const auto line = std::make_shared<std::int64_t>();
  const auto value = std::make_shared<std::int64_t>();
  set.add_option("LINE", *line,
                 "0 to 260; line 1 is the reader's trigger or inhibit input, 256 the exit button, 257 the door's "
                 "contact, 258 the case's, 260 the mode switch")
      ->required()
      ->check(cli::whole_number());
  set.add_option("VALUE", *value, "0 or 1")->required()->check(cli::whole_number());
  set.callback([=] {
    ask(state_directory(*state), {{"command", "gpio_set"}, {"line", *line}, {"value", *value}});
    print("line " + std::to_string(*line) + " is " + std::to_string(*value) + "\n");
  });
}

void add_test(CLI::App& gpio) {
  CLI::App& relay = *gpio.add_subcommand("test", "Try a real line")
                         ->require_subcommand(1)
                         ->add_subcommand("relay", "Switch a relay for a second");
  const auto state = add_state(relay);
  const auto number = std::make_shared<std::int64_t>();
  relay.add_option("N", *number, "Its number")->required()->check(cli::range(1, 8));
  relay.callback([=] { test_relay(state_directory(*state), *number); });
}

void add_rest(CLI::App& gpio) {
  CLI::App& rest = *gpio.add_subcommand("rest", "Put the outputs at rest that a host which was killed has left");
  const auto state = add_state(rest);
  rest.callback([=] { put_lines_at_rest(settings_state(*state)); });
}

}  // namespace

void add_gpio(CLI::App& app) {
  CLI::App& gpio =
      *app.add_subcommand("gpio", "Show, watch, set and try the lines of the door")->require_subcommand(0, 1);
  add_list(gpio);
  add_set(gpio);
  add_test(gpio);
  add_rest(gpio);
}

}  // namespace achost
