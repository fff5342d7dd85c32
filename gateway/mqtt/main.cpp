// achost-mqtt, the bridge of a door to a fleet's broker. The command line.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "cli/command_line.h"
#include "cli/failure.h"
#include "cli/program.h"
#include "gateway/base/state_file.h"
#include "gateway/mqtt/bridge.h"
#include "gateway/mqtt/join.h"
#include "gateway/mqtt/manual.h"
#include "version.h"

namespace {

constexpr const char* kProgram = "achost-mqtt";
constexpr const char* kStatuses =
    "Exit status:\n"
    "  0  done; also ended by Ctrl-C or SIGTERM\n"
    "  1  the operation failed\n"
    "  2  wrong usage\n"
    "  4  nobody answered (join)";
constexpr const char* kConfig = "/etc/achost-mqtt.conf";

struct Words {
  mqtt::Options options;
  std::string config;
  mqtt::JoinOptions join;
};

// That of a door that has joined, or the machine's.
std::filesystem::path usual_config(const std::filesystem::path& state) {
  std::error_code failure;
  const auto joined = state / "achost-mqtt.conf";
  return std::filesystem::exists(joined, failure) ? joined : kConfig;
}

// The file counts where the door or its broker is not named.
void run(Words& words) {
  mqtt::Options& options = words.options;
  options.state = gateway::own_state(kProgram, options.state);
  if (!words.config.empty() || options.door.empty() || options.broker.empty()) {
    mqtt::read_options(words.config.empty() ? usual_config(options.state).string() : words.config, options);
  }
  options.daemon = gateway::daemons_state(options.daemon);
  mqtt::run(options);
}

void add_run(CLI::App& app, Words& words) {
  mqtt::Options& options = words.options;
  CLI::App& command = *app.add_subcommand("run", "Tell a broker what happens at the door, and do what is asked there");
  command
      .add_option("--config", words.config,
                  "Options as lines KEY=VALUE (default: what join has made, else /etc/achost-mqtt.conf)")
      ->type_name("FILE");
  command.add_option("--door", options.door, "The door's name there: a-z, 0-9 and -")->type_name("NAME");
  command.add_option("--broker", options.broker, "Where it is; the port is 8883 with TLS, else 1883")
      ->type_name("HOST[:PORT]");
  command.add_option("--ca", options.files.ca, "Who vouches for the broker, PEM")->type_name("FILE");
  command.add_option("--certificate", options.files.certificate, "The door's certificate, PEM")->type_name("FILE");
  command.add_option("--key", options.files.key, "Its key, PEM")->type_name("FILE");
  command.add_flag("--without-tls", options.without_tls, "For a broker on this machine");
  command.add_flag("--discovery", options.discovery, "Tell Home Assistant what there is");
  command
      .add_option(
          "--state", options.state,
          "Directory of what it keeps (default: /var/lib/achost-mqtt for root, else ~/.local/state/achost-mqtt)")
      ->type_name("DIR");
  command
      .add_option("--host-state", options.daemon,
                  "State directory of the door daemon (default: $ACHOST_STATE, else /var/lib/achost)")
      ->type_name("DIR");
  command.footer(kStatuses);
  command.callback([&words] { run(words); });
}

void add_join(CLI::App& app, mqtt::JoinOptions& options) {
  CLI::App& command =
      *app.add_subcommand("join", "Join a fleet with a one-time code: make a key, get name and certificate");
  command.add_option("--broker", options.broker, "Where the fleet's broker takes new doors")
      ->type_name("HOST:PORT")
      ->required();
  command.add_option("--serial", options.serial, "This board's serial number, for which the code is")
      ->type_name("SERIAL")
      ->required();
  command.add_option("code", options.code, "As achost-fleet invite has printed it")->type_name("CODE")->required();
  command
      .add_option("--directory", options.directory,
                  "Where key, certificates and achost-mqtt.conf are kept (default: where run keeps its state)")
      ->type_name("DIR");
  command.footer(kStatuses);
  command.callback([&options] {
    const bool is_for_service = options.directory.empty() && geteuid() == 0;
    options.directory = gateway::own_state(kProgram, options.directory);
    const auto joined = mqtt::join(options);
    const auto start = is_for_service ? "systemctl enable --now achost-mqtt"
                                      : "achost-mqtt run --config " + (options.directory / "achost-mqtt.conf").string();
    std::printf("this is %s now, of the fleet at %s; start it with\n  %s\n", joined.door.c_str(), joined.broker.c_str(),
                start.c_str());
  });
}

int run_command_line(int argc, char** argv) {
  Words words;
  CLI::App app("The bridge of a door to a fleet's broker.", kProgram);
  cli::set_up_help(app);
  app.set_version_flag("--version", UHF_VERSION, "Tell the version");
  app.require_subcommand(1);
  add_run(app, words);
  add_join(app, words.join);
  app.footer(kStatuses);
  cli::read_command_line(app, mqtt::manual(), argc, argv);
  return cli::kDone;
}

}  // namespace

int main(int argc, char** argv) {
  umask(077);
  std::signal(SIGPIPE, SIG_IGN);
  return cli::explained(kProgram, [=] { return run_command_line(argc, argv); });
}
