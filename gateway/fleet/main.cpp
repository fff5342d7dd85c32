// achost-fleet, the centre's command line for doors on a broker.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "cli/command_line.h"
#include "cli/failure.h"
#include "cli/program.h"
#include "door/base/time_of.h"
#include "gateway/base/state_file.h"
#include "gateway/fleet/commands.h"
#include "gateway/fleet/manual.h"
#include "gateway/fleet/provision.h"
#include "version.h"

namespace {

constexpr const char* kProgram = "achost-fleet";
constexpr const char* kStatuses =
    "Exit status:\n"
    "  0  done; also ended by Ctrl-C or SIGTERM\n"
    "  1  the operation failed, or a door refused it\n"
    "  2  wrong usage\n"
    "  4  the broker or a door did not answer";

struct Options {
  fleet::Access access;
  bool json = false;
  fleet::Words doors;
  std::string door;
  fleet::PushOptions push;
  std::string card;
  std::string span = "10min";
  std::string mode;
  std::string length;
  fleet::ProvisionOptions provision;
  std::function<int()> run;
};

bool as_json(const Options& options) { return options.json || isatty(STDOUT_FILENO) == 0; }

// The file that the environment names, the person's own, or that of the machine.
std::string usual_config() {
  if (const char* const named = std::getenv("ACHOST_FLEET"); named != nullptr && *named != '\0') {
    return named;
  }
  const char* const home = std::getenv("HOME");
  const auto own = std::filesystem::path(home != nullptr ? home : "") / ".config/achost-fleet";
  std::error_code failure;
  return home != nullptr && std::filesystem::exists(own, failure) ? own.string() : "/etc/achost-fleet.conf";
}

using Act = std::function<int(fleet::Centre&)>;

CLI::App& add_command(CLI::App& app, Options& options, const char* name, const char* description, const Act& act) {
  CLI::App& command = *app.add_subcommand(name, description);
  command.fallthrough();
  command.footer(kStatuses);
  command.callback([&options, act] {
    options.run = [&options, act] {
      fleet::Centre centre(options.access);
      return act(centre);
    };
  });
  return command;
}

void add_doors(CLI::App& command, Options& options) {
  command.add_option("doors", options.doors, "Doors, also by patterns such as 'gate-*'; all unless given")
      ->type_name("DOOR");
}

void add_door(CLI::App& command, std::string& door, const char* what) {
  command.add_option("door", door, what)->type_name("DOOR")->required();
}

void add_push(CLI::App& app, Options& options) {
  auto& push = options.push;
  CLI::App& command = add_command(app, options, "push", "Say who and what doors are to have", [&options](auto& centre) {
    return fleet::push(centre, options.push, as_json(options));
  });
  command.add_option("people", push.people, "A table as `achost user import` takes it: all the people there are to be")
      ->type_name("FILE");
  command.add_option("--to", push.to, "A door, or a pattern such as 'gate-*'; may be repeated")
      ->type_name("DOOR")
      ->required()
      ->take_all()
      ->expected(1);
  command.add_option("--schedules", push.schedules, "A table as `achost schedule import` takes it")->type_name("FILE");
  command.add_option("--settings", push.settings, "Settings as `achost config import` takes them")->type_name("FILE");
  command.add_flag("--dry-run", push.dry_run, "Only tell what would change, line by line");
  command.add_flag("--new", push.is_new, "Also for a door that has not joined yet, by its whole name");
  command.add_flag("--remove-most", push.remove_most, "Also where more than half of a door's people go, or all");
  command.add_flag("--anew", push.anew, "Do not look at what the broker has: all of it is sent again");
  command.add_option("--wait", push.wait, "How many seconds doors have to take it")
      ->type_name("SECONDS")
      ->capture_default_str()
      ->check(cli::range<std::int64_t>(0, 86'400));
}

void add_looks(CLI::App& app, Options& options) {
  add_doors(
      add_command(app, options, "list", "How all doors are",
                  [&options](auto& centre) { return fleet::list_doors(centre, options.doors, as_json(options)); }),
      options);
  add_doors(add_command(app, options, "watch", "What happens at doors, as it comes, until Ctrl-C",
                        [&options](auto& centre) { return fleet::watch(centre, options.doors, as_json(options)); }),
            options);
  add_doors(
      add_command(app, options, "drift", "What is not as it is to be at doors",
                  [&options](auto& centre) { return fleet::show_drift(centre, options.doors, as_json(options)); }),
      options);
  CLI::App& why = add_command(app, options, "why", "Why a card opened a door, or did not", [&options](auto& centre) {
    return fleet::tell_why(centre, options.door, options.card, 1000 * achost::seconds_of(options.span),
                           as_json(options));
  });
  add_door(why, options.door, "The door");
  why.add_option("card", options.card, "The card, such as 33 or 0x21, or an EPC")->type_name("CARD")->required();
  why.add_option("--last", options.span, "How far back, such as 10min or 2h")->type_name("TIME")->capture_default_str();
}

void add_acts(CLI::App& app, Options& options) {
  add_door(add_command(app, options, "open", "Open a door, as its exit button does",
                       [&options](auto& centre) { return fleet::open_door(centre, options.door, as_json(options)); }),
           options.door, "The door, by its whole name");
  CLI::App& mode =
      add_command(app, options, "mode", "Let doors open for cards, for nobody, or stay open", [&options](auto& centre) {
        const auto seconds = options.length.empty() ? 0 : achost::seconds_of(options.length);
        return fleet::set_mode(centre, options.door, options.mode, seconds, as_json(options));
      });
  add_door(mode, options.door, "The door, or a pattern such as 'gate-*'");
  mode.add_option("mode", options.mode, "normal, locked, unlocked or auto")
      ->type_name("MODE")
      ->required()
      ->check(cli::one_of({"normal", "locked", "unlocked", "auto"}));
  mode.add_option("--for", options.length, "How long, such as 10min; for good unless given")->type_name("TIME");
}

void add_state(CLI::App& command, fleet::ProvisionOptions& options) {
  command
      .add_option(
          "--state", options.state,
          "Directory of who is invited (default: /var/lib/achost-fleet for root, else ~/.local/state/achost-fleet)")
      ->type_name("DIR");
}

void add_invite(CLI::App& app, Options& options) {
  auto& own = options.provision;
  CLI::App& invite = *app.add_subcommand("invite", "Print a code with which a new door may join, once");
  invite.fallthrough();
  invite.footer(kStatuses);
  add_door(invite, own.door, "What the door is to be called");
  invite.add_option("--serial", own.serial, "The new board's serial number")->type_name("SERIAL")->required();
  invite.add_option("--for", own.lasts, "How long the code is good, such as 2h or 7days")
      ->type_name("TIME")
      ->capture_default_str();
  invite
      .add_option("--new-doors-at", own.new_doors_at,
                  "The broker's listener for new doors (default: the broker's host, 8884)")
      ->type_name("HOST:PORT");
  add_state(invite, own);
  invite.callback([&options] {
    options.run = [&options] {
      auto& wanted = options.provision;
      wanted.state = gateway::own_state(kProgram, wanted.state);
      wanted.new_doors_at =
          wanted.new_doors_at.empty() ? fleet::place_of(options.access).host + ":8884" : wanted.new_doors_at;
      return fleet::invite(wanted, as_json(options));
    };
  });
}

void add_provision(CLI::App& app, Options& options) {
  auto& own = options.provision;
  CLI::App& provision = *app.add_subcommand("provision", "Let invited doors in, until Ctrl-C");
  provision.fallthrough();
  provision.footer(kStatuses);
  provision.add_option("--ca-key", own.key, "The key of the authority that --ca names, PEM")
      ->type_name("FILE")
      ->required();
  provision.add_option("--for-doors", own.for_doors, "Where doors reach the broker (default: where this does)")
      ->type_name("HOST:PORT");
  provision.add_option("--days", own.days, "How long a door's certificate is good")
      ->type_name("DAYS")
      ->capture_default_str()
      ->check(cli::range(1, 3650));
  add_state(provision, own);
  provision.callback([&options] {
    options.run = [&options] {
      auto& wanted = options.provision;
      wanted.state = gateway::own_state(kProgram, wanted.state);
      const fleet::Authority authority(options.access.files.ca, wanted.key);
      const auto broker = wanted.for_doors.empty() ? options.access.broker : wanted.for_doors;
      fleet::Centre centre(options.access);
      return fleet::provision(centre, authority, wanted, broker, as_json(options));
    };
  });
}

void add_access(CLI::App& app, Options& options) {
  app.add_option("--broker", options.access.broker, "Where the broker is")
      ->type_name("HOST:PORT")
      ->capture_default_str();
  app.add_option("--ca", options.access.files.ca, "Who vouches for the broker, PEM")->type_name("FILE");
  app.add_option("--certificate", options.access.files.certificate, "Your own certificate, PEM")->type_name("FILE");
  app.add_option("--key", options.access.files.key, "Its key, PEM")->type_name("FILE");
  app.add_flag("--json", options.json, "One JSON object a line, as it is without a terminal");
  app.set_config("--config", usual_config(), "A file with these options as lines, such as broker=localhost:8883")
      ->type_name("FILE");
  app.allow_config_extras(false);
}

int run_command_line(int argc, char** argv) {
  Options options;
  CLI::App app("Doors on a broker, seen and told from one place.", kProgram);
  cli::set_up_help(app);
  app.set_version_flag("--version", UHF_VERSION, "Tell the version");
  app.require_subcommand(1);
  add_access(app, options);
  add_looks(app, options);
  add_acts(app, options);
  add_push(app, options);
  add_invite(app, options);
  add_provision(app, options);
  app.footer(kStatuses);
  return cli::read_command_line(app, fleet::manual(), argc, argv) ? options.run() : int(cli::kDone);
}

}  // namespace

int main(int argc, char** argv) {
  umask(077);
  std::signal(SIGPIPE, SIG_IGN);
  return cli::explained(kProgram, [=] { return run_command_line(argc, argv); });
}
