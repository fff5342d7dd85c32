// uhfctl: the reader tool for people at the door. The command line; the commands stand in the other files.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <functional>

#include "cli/command_line.h"
#include "cli/program.h"
#include "commands.h"
#include "failure.h"
#include "manual.h"
#include "port.h"
#include "version.h"

namespace {

constexpr const char* kFooter =
    "Data goes to standard output, everything else to standard error.\nNO_COLOR is honoured.\n\n"
    "Beside a running achost that has the port, inventory, record, decode --live\n"
    "and info look on while it works; the others that need the reader borrow it.\n\n"
    "Exit status:\n"
    "  0  done\n"
    "  1  the operation failed\n"
    "  2  wrong usage\n"
    "  3  no such port, or no reader at it\n"
    "  4  no answer in time\n"
    "  5  the port is in use";

using uhfctl::Common;

// A command with its options; run is what it does.
CLI::App& add(CLI::App& app, const std::string& name, const std::string& help, std::function<void()> run) {
  auto& command = *app.add_subcommand(name, help);
  command.callback(std::move(run));
  return command;
}

void add_region(CLI::App& command, std::string& region) {
  command.add_option("--region", region, "Whose limits hold; BRAZIL unless given")->envname("UHFCTL_REGION");
}

void add_law(CLI::App& command, const std::shared_ptr<uhfctl::Law>& law) {
  add_region(command, law->region);
  command.add_flag("--force", law->force, "Also what the region does not allow");
}

void add_inventory(CLI::App& app, const Common& common) {
  const auto options = std::make_shared<uhfctl::InventoryOptions>();
  auto& command =
      add(app, "inventory", "Show the tags in the field", [&common, options] { inventory(common, *options); });
  command.add_option("--seconds", options->seconds, "How long; 0 is until Ctrl-C")
      ->capture_default_str()
      ->check(cli::range(0.0, 1e6));
  command.add_option("--count", options->count, "End when so many tags have been seen")->check(cli::range(1, 100000));
  command.add_option("--filter", options->filter, "Only EPCs that begin with these hexadecimal digits")
      ->type_name("PREFIX");
  command.add_flag("--card-value", options->card_value, "Show the number that the plug-in would announce");
  command.add_option("--identification-bits", options->identification_bits, "As the setting of that name")
      ->type_name("BITS")
      ->capture_default_str()
      ->check(cli::range(0, 64));
  command.add_option("--reader-type", options->reader_type, "As the setting of that name")
      ->type_name("msb|lsb")
      ->capture_default_str()
      ->check(cli::one_of({"msb", "lsb"}));
}

void add_radio(CLI::App& app, const Common& common) {
  auto& power = *app.add_subcommand("power", "The transmit power");
  power.require_subcommand(1);
  add(power, "get", "Ask for it", [&common] { get_power(common); });
  const auto wanted = std::make_shared<std::string>();
  const auto power_law = std::make_shared<uhfctl::Law>();
  auto& set_power = add(power, "set", "Set it, and ask for it",
                        [&common, wanted, power_law] { uhfctl::set_power(common, *wanted, *power_law); });
  set_power.add_option("POWER", *wanted, "21dBm, or 2100, which is the same in hundredths of a dBm")->required();
  add_law(set_power, power_law);

  auto& region = *app.add_subcommand("region", "The regulatory region (it cannot be asked for)");
  region.require_subcommand(1);
  add(region, "get", "Say why it cannot be asked for", [] { uhfctl::cannot_be_asked("region", "region"); });
  const auto name = std::make_shared<std::string>();
  add(region, "set", "Set it", [&common, name] { set_region(common, *name); })
      .add_option("REGION", *name, "BRAZIL, CHINA_900MHZ, CHINA_800MHZ, AMERICA, EUROPE or KOREA")
      ->required();

  auto& channels = *app.add_subcommand("channels", "The working channels (they cannot be asked for)");
  channels.require_subcommand(1);
  add(channels, "get", "Say why they cannot be asked for", [] { uhfctl::cannot_be_asked("channels", "work_channel"); });
  const auto list = std::make_shared<std::string>();
  const auto law = std::make_shared<uhfctl::Law>();
  auto& set = add(channels, "set", "Set them", [&common, list, law] { set_channels(common, *list, *law); });
  set.add_option("RANGES", *list, "Such as \"0-10;26-51\"")->required();
  add_law(set, law);

  auto& sensitivity = *app.add_subcommand("sensitivity", "The receive demodulator's settings");
  sensitivity.require_subcommand(1);
  add(sensitivity, "get", "Ask for them", [&common] { get_sensitivity(common); });
  const auto values = std::make_shared<std::vector<int>>();
  add(sensitivity, "set", "Set them, and ask for them",
      [&common, values] {
        if ((*values)[0] > 255 || (*values)[1] > 255) {
          throw uhfctl::Failure(uhfctl::kUsage, "M and I are at most 255");
        }
        set_sensitivity(common, *values);
      })
      .add_option("M I THRESHOLD", *values, "Mixer gain and amplifier gain (0 to 255), threshold (0 to 65535)")
      ->required()
      ->expected(3)
      ->check(cli::range(0, 65535).description(""));
}

void add_survey(CLI::App& app, const Common& common) {
  const auto options = std::make_shared<uhfctl::SurveyOptions>();
  auto& command = add(app, "survey", "Step through powers, and recommend one for a tag",
                      [&common, options] { survey(common, *options); });
  command.add_option("--power", options->power, "Which, such as 15dBm:30dBm:2.5dBm, or 1500:3000:250")
      ->type_name("FROM:TO:STEP")
      ->required();
  command.add_option("--seconds", options->seconds, "At each power")
      ->capture_default_str()
      ->check(cli::range(0.01, 1e5));
  command.add_option("--tag", options->tag, "The EPC to recommend a power for (default: the tag read most)")
      ->type_name("EPC");
  command.add_option("--out", options->out, "The report; figures go beside it as .csv and .json")
      ->capture_default_str()
      ->type_name("FILE");
  command.add_flag("--overwrite", options->overwrite, "Overwrite the files of an earlier one without asking");
  add_law(command, std::shared_ptr<uhfctl::Law>(options, &options->law));
}

void add_tape(CLI::App& app, const Common& common) {
  const auto file = std::make_shared<std::string>();
  const auto time = std::make_shared<double>(0);
  auto& record = add(app, "record", "Poll, and write every byte, its time and way",
                     [&common, file, time] { uhfctl::record(common, *file, *time); });
  record.add_option("FILE", *file, "A name that is not there yet")->required();
  record.add_option("--seconds", *time, "How long; 0 is until Ctrl-C")
      ->capture_default_str()
      ->check(cli::range(0.0, 1e6));
  auto& replay = add(app, "replay", "Play a recording as a reader; prints its port",
                     [&common, file, time] { uhfctl::replay(common, *file, *time); });
  replay.add_option("FILE", *file, "What record made")->required();
  replay.add_option("--seconds", *time, "How long; 0 is until Ctrl-C")
      ->capture_default_str()
      ->check(cli::range(0.0, 1e6));
  const auto live = std::make_shared<bool>(false);
  auto& decode = add(app, "decode", "Tell every frame, and why bytes are none", [&common, file, live, time] {
    *live ? decode_live(common, *time) : uhfctl::decode(common, *file);
  });
  auto* const what = decode.add_option(
      "WHAT", *file, "A recording, a file of hexadecimal digits, the digits, or - for standard input");
  auto* const is_live = decode.add_flag("--live", *live, "What goes over the line, as it goes");
  decode.add_option("--seconds", *time, "How long, with --live; 0 is until Ctrl-C")
      ->capture_default_str()
      ->check(cli::range(0.0, 1e6))
      ->needs(is_live);
  what->excludes(is_live);
  decode.require_option(1, 2);
}

int run(int argc, char** argv) {
  Common common;
  CLI::App app("Looks at a UHF reader, sets it up, and finds out why a card does not read.", "uhfctl");
  cli::set_up_help(app);
  app.footer(kFooter);
  app.set_version_flag("--version", UHF_VERSION, "Tell the version");
  app.require_subcommand(1);
  app.fallthrough();
  app.parse_complete_callback([&app, &common] { common.command = app.get_subcommands().front()->get_name(); });
  app.add_option("--port", common.port, "Serial device of the reader")->envname("UHFCTL_PORT")->type_name("DEVICE");
  app.add_option("--timeout", common.timeout, "Milliseconds that the reader may take to begin its answer")
      ->type_name("MS")
      ->capture_default_str()
      ->check(cli::range(100, 25500));
  app.add_flag("--json", common.json, "Print JSON, an object a line");
  add(app, "info", "Whether a reader answers; its settings and speed", [&common] { info(common); });
  add_inventory(app, common);
  add_radio(app, common);
  add_survey(app, common);
  add_tape(app, common);
  const auto region = std::make_shared<std::string>("BRAZIL");
  add_region(add(app, "doctor", "Look at what can be wrong, one after the other",
                 [&common, region] { doctor(common, *region); }),
             *region);
  cli::read_command_line(app, uhfctl::manual(), argc, argv);
  return uhfctl::kDone;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  const int status = cli::explained("uhfctl", [=] { return run(argc, argv); });
  if (uhfctl::Port::left_alone()) {
    std::fflush(nullptr);
    _exit(status);
  }
  return status;
}
