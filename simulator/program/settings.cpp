#include "settings.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/command_line.h"
#include "cli/program.h"
#include "console.h"
#include "version.h"

namespace uhfsim {

namespace {

constexpr std::size_t kLongestReply = 1'000'000;
constexpr double kMostSeconds = 1e6;

// What is in the field unless the command line says otherwise: near, half way, and at the edge.
constexpr const char* kUsualField =
    "add E28011700000020A00000001 rssi=210\n"
    "add E28011700000020A00000002 rssi=190\n"
    "add E28011700000020A00000003 rssi=150\n";

Command fault_from(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == text.npos) throw CommandError("fault \"" + text + "\"; expected NAME=PROBABILITY");
  return parse_command({"fault", std::string_view(text).substr(0, equals), std::string_view(text).substr(equals + 1)});
}

std::string footer() {
  return "The first line of standard output is the device to open. After that, standard\n"
         "input is read for commands, one a line; answers go to standard output, errors to\n"
         "standard error, and a bad command changes nothing:\n" +
         Console::help() +
         "\nIt runs until SIGINT or SIGTERM, \"quit\", the end of --seconds, or its terminal\n"
         "is closed. The end of standard input ends it if that is a terminal (Ctrl-D).\n"
         "\nExit status: 0 done, 1 failed, 2 wrong usage or a scenario that cannot be read.";
}

cli::Manual manual() {
  std::vector<std::string> faults;
  for (const auto name : FaultInjector::names()) faults.push_back(std::string(name) + "=1");
  return {
      .examples = {{"uhf-sim --link /tmp/reader", "A reader at /tmp/reader, with three tags in its field."},
                   {"uhf-sim --scenario cards.txt", "Tags that come and go as the file tells."},
                   {"uhf-sim --empty --fault corrupt-checksum=0.1",
                    "Nothing in the field, and a wrong checksum in every tenth reply."}},
      .files = {{"/dev/pts/N", "The device to open; its number is another each time, --link gives it a lasting name."}},
      .environment = {},
      .offers = {{"", "--fault", faults}, {"", "--baud", {"0", "9600", "115200"}}}};
}

}  // namespace

std::optional<Settings> read_command_line(int argc, char** argv, int& status) {
  Settings settings;
  std::optional<std::string> scenario;
  bool empty = false;
  std::vector<std::string> faults;
  CLI::App app("A simulated UHF reader on a pseudo-terminal.", "uhf-sim");
  cli::set_up_help(app);
  app.footer(footer());
  app.set_version_flag("--version", UHF_VERSION, "Tell the version");
  auto* const file =
      app.add_option("--scenario", scenario, "What comes and goes in the field (default: three tags that stay)");
  file->type_name("FILE");
  app.add_flag("--empty", empty, "Begin with no tag in the field")->excludes(file);
  app.add_option("--seed", settings.reader.seed, "Seed of all chance (default: 1)")->type_name("N");
  app.add_option("--baud", settings.reader.baud, "Line speed; 0 delivers at once (default: 115200)")->type_name("N");
  app.add_option("--chunk", settings.reader.chunk, "Deliver in chunks of N bytes; 0 is whole replies (default: 0)")
      ->type_name("N")
      ->check(cli::range(std::size_t{0}, kLongestReply));
  app.add_flag("--quiet-when-empty", settings.reader.quiet_when_empty, "Say nothing when no tag is read");
  app.add_option("--link", settings.link, "Make a symbolic link to the device, gone at the end")->type_name("PATH");
  app.add_option("--seconds", settings.seconds, "End after so long")
      ->type_name("N")
      ->check(cli::range(0.0, kMostSeconds));
  app.add_option("--fault", faults, "Switch a fault on (may be given again)")
      ->type_name("NAME=P")
      ->expected(1)
      ->take_all();
  try {
    if (!cli::read_command_line(app, manual(), argc, argv)) return std::nullopt;
    for (const std::string& fault : faults) settings.faults.push_back(fault_from(fault));
    if (scenario) settings.scenario = Scenario::load(*scenario);
    if (!scenario && !empty) settings.scenario = Scenario::parse(kUsualField, "usual field");
    return settings;
  } catch (const std::runtime_error& error) {
    std::cerr << "uhf-sim: " << error.what() << std::endl;
    status = kExitUsage;
  }
  return std::nullopt;
}

}  // namespace uhfsim
