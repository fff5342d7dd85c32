// achost, the door daemon. The command line; what it asks for stands in the other files.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>

#include "cli/command_line.h"
#include "cli/program.h"
#include "door/base/failure.h"
#include "door/cli/cli.h"
#include "door/cli/config_command.h"
#include "door/cli/manual.h"
#include "door/run/run_command.h"
#include "refhost/loader.h"
#include "refhost/log.h"
#include "refhost/log_entry.h"
#include "refhost/settings_schema.h"
#include "version.h"

namespace {

constexpr const char* kStatuses =
    "Exit status:\n"
    "  0  done; also ended by Ctrl-C, SIGTERM or a closed standard output\n"
    "  1  the operation failed\n"
    "  2  wrong usage or a setting that is not allowed\n"
    "  3  no such port, or the plug-in did not start: no reader, or one that refused\n"
    "  5  the port is in use\n"
    "  6  the plug-in cannot be loaded\n"
    "  7  a thread stopped reporting to the watchdog\n"
    "  8  the plug-in ended\n"
    "  9  the setting is stored, but not in force yet\n"
    "  10 what is stored is damaged (achost check)";

struct ConfigOptions {
  std::string state;
  bool json = false;
  bool markdown = false;
  bool force = false;
  std::vector<std::string> words;
  std::string file;
};

void add_state(CLI::App& command, std::string& state) {
  command
      .add_option("--state", state,
                  "Directory of settings, users and audit log (default: $ACHOST_STATE, else /var/lib/achost for root, "
                  "else ~/.local/state/achost)")
      ->type_name("DIR");
}

void add_reader_options(CLI::App& command, achost::RunOptions& options) {
  auto* const port =
      command.add_option("--port", options.port, "Serial device of the reader (default: the setting serial_port_path)");
  port->type_name("DEVICE");
  command.add_flag("--wait", options.wait,
                   "Begin without the reader, and start the plug-in when it answers (as a service does)");
  command.add_flag("--direct", options.direct, "Give the plug-in the port itself: no health, recovery or lending");
  auto* const simulate = command.add_flag("--simulate", options.simulate, "Use a simulated reader")->excludes(port);
  command
      .add_flag("--interactive", options.interactive,
                "With a simulated reader: nothing happens but what you make happen")
      ->needs(simulate);
  command
      .add_option("--scenario", options.scenario,
                  "What happens in the simulated field and to the host (default: built in)")
      ->type_name("FILE")
      ->needs(simulate);
  command.add_option("--seed", options.seed, "Seed of the simulation's chance (default: 1)")
      ->type_name("N")
      ->needs(simulate);
}

void add_run(CLI::App& app, achost::RunOptions& options) {
  constexpr double kLongest = 1e9;
  CLI::App& command = *app.add_subcommand("run", "Run the plug-in and print what happens at the door");
  command
      .add_option("--plugin", options.plugin,
                  "Plug-in, by absolute path (default: ../lib/uhf/uhf.so or ../lib/uhf.so from here)")
      ->type_name("PATH");
  add_state(command, options.state);
  command
      .add_flag("--temporary-state", options.temporary_state, "Keep the state in a directory that goes with the run")
      ->excludes("--state");
  add_reader_options(command, options);
  command.add_option("--set", options.settings, "Override a setting for this run; may be repeated")
      ->type_name("[SECTION.]KEY=VALUE")
      ->take_all()
      ->expected(1);
  command.add_option("--seconds", options.seconds, "End after that time, with a summary")
      ->type_name("N")
      ->check(cli::range(0.001, kLongest));
  command.add_flag("--json", options.json, "Print one JSON object a line");
  command.add_flag("--debug", options.debug, "Show the debug log on standard error");
  command.add_flag("--show-cards", options.show_cards,
                   "Show card values in full, also where the output or the log is no terminal");
  command
      .add_option("--watchdog-limit", options.watchdog_limit,
                  "Seconds that a thread may be silent before the run is ended (default: 30)")
      ->type_name("S")
      ->check(cli::range(0.1, kLongest));
  command.callback([&options] { achost::run(options); });
}

void add_config(CLI::App& app, ConfigOptions& options) {
  CLI::App& config = *app.add_subcommand("config", "Show and change settings")->require_subcommand(1);
  CLI::App& list = *config.add_subcommand("list", "Show all settings");
  list.add_flag("--json", options.json, "One JSON object a line");
  list.add_flag("--markdown", options.markdown, "What settings there are, as a document")->excludes("--json");
  list.callback([&options] {
    options.markdown ? achost::document_settings() : achost::list_settings(options.state, options.json);
  });
  CLI::App& get = *config.add_subcommand("get", "Show the value of a setting");
  get.add_option("[SECTION] KEY", options.words, "The setting; section uhf unless given")
      ->type_name("[SECTION] KEY")
      ->required()
      ->expected(1, 2);
  get.callback([&options] { achost::get_setting(options.state, options.words); });
  CLI::App& set = *config.add_subcommand("set", "Change a setting, also of a host that runs, and show what is stored");
  set.add_option("[SECTION] KEY VALUE", options.words,
                 "The setting, section uhf unless given, and its value; or any number of [SECTION.]KEY=VALUE, all or "
                 "none")
      ->type_name("[SECTION] KEY VALUE")
      ->required()
      ->expected(1, 100);
  set.add_flag("--force", options.force, "Also more power or other channels than the region allows");
  set.callback([&options] { achost::set_setting(options.state, options.words, options.force); });
  CLI::App& export_all = *config.add_subcommand("export", "Show the settings that are not the default, for a copy");
  export_all.callback([&options] { achost::export_settings(options.state); });
  CLI::App& import_all = *config.add_subcommand("import", "Change all settings of a copy, or none if it has an error");
  import_all.add_option("FILE", options.file, "The copy; - is standard input")->type_name("FILE")->required();
  import_all.callback([&options] { achost::import_settings(options.state, options.file); });
  for (CLI::App* const command : {&list, &get, &set, &export_all, &import_all}) {
    add_state(*command, options.state);
  }
}

}  // namespace

std::shared_ptr<std::string> achost::add_state(CLI::App& command) {
  auto state = std::make_shared<std::string>();
  ::add_state(command, *state);
  return state;
}

namespace {

int run_command_line(int argc, char** argv) {
  achost::RunOptions run_options;
  ConfigOptions config_options;
  CLI::App app("The door daemon: loads a reader plug-in and runs it on this machine.", "achost");
  cli::set_up_help(app);
  app.set_version_flag("--version", UHF_VERSION, "Tell the version");
  app.require_subcommand(1);
  add_run(app, run_options);
  add_config(app, config_options);
  achost::add_control(app);
  achost::add_reader(app);
  achost::add_journal(app);
  achost::add_why(app);
  achost::add_audit(app);
  achost::add_user(app);
  achost::add_schedule(app);
  achost::add_desired(app);
  achost::add_check(app);
  achost::add_backup(app);
  // Afterwards, so that the other commands do not take it over.
  app.footer(kStatuses);
  app.get_subcommand("run")->footer(kStatuses);
  cli::read_command_line(app, achost::manual(), argc, argv);
  return achost::kDone;
}

// With the statuses of what libac.so throws.
int run(int argc, char** argv) {
  try {
    return run_command_line(argc, argv);
  } catch (const refhost::SettingError& failure) {
    throw achost::Failure(achost::kUsage, failure.what());
  } catch (const refhost::LoadError& failure) {
    throw achost::Failure(achost::kNoPlugin, failure.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  // All that this program makes is for its user alone, from the first byte.
  umask(077);
  // Output that nobody reads any more shows as an error of its write.
  std::signal(SIGPIPE, SIG_IGN);
  const int status = cli::explained(
      "achost", [=] { return run(argc, argv); }, refhost::log::escape);
  refhost::log::drain(std::chrono::seconds(1));
  return status;
}
