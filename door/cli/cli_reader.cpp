// What a running host is asked about its reader.
#include <cstdlib>

#include "cli/command_line.h"
#include "cli/output_file.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/cli.h"
#include "door/cli/health_line.h"
#include "door/cli/request.h"

namespace achost {
namespace {

// For scripts and monitoring, whose 3 is "nobody can tell".
enum HealthStatus : int { kHealthy = 0, kNoisy = 1, kDown = 2, kUnknown = 3 };

HealthStatus status_of_state(const std::string& state) {
  if (state == "noisy") {
    return kNoisy;
  }
  return state == "silent" || state == "gone" ? kDown : kHealthy;
}

Json health_or_end(const std::filesystem::path& state) {
  try {
    return ask(state, {{"command", "health"}});
  } catch (const std::exception& failure) {
    print(std::string("unknown: ") + failure.what() + "\n");
    std::exit(kUnknown);
  }
}

void add_health(CLI::App& app) {
  CLI::App& command = *app.add_subcommand(
      "health", "Tell in one line how the reader does; ends with 0, 1 (noisy), 2 (silent, gone) or 3 (no host)");
  const auto state = add_state(command);
  const auto json = std::make_shared<bool>();
  command.add_flag("--json", *json, "One JSON object");
  command.callback([=] {
    const Json health = health_or_end(state_directory(*state));
    print(*json ? health.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n" : health_line(health) + "\n");
    std::exit(status_of_state(health.at("state")));
  });
}

void add_recording(CLI::App& app) {
  CLI::App& recording =
      *app.add_subcommand("recording", "What went over the reader's line and the bus lately")->require_subcommand(1);
  CLI::App& save = *recording.add_subcommand("save", "Write it to a file, for uhfctl decode and uhfctl replay");
  const auto state = add_state(save);
  const auto file = std::make_shared<std::string>();
  save.add_option("FILE", *file, "The file, which takes its place when it is whole")->type_name("FILE")->required();
  save.callback([=] {
    OutputFile out(*file, OutputFile::Form::whole);
    std::size_t size = 0;
    follow(state_directory(*state), {{"command", "recording"}}, [&](const Json& line) {
      const auto text = line.at("text").get<std::string>();
      size += text.size();
      out.write(text);
      return true;
    });
    if (size == 0) {
      throw Failure(kFailed, "the host has sent no recording: see achost status");
    }
    out.close();
    print(std::to_string(size) + " bytes in " + *file + "; `uhfctl decode " + *file + "` reads it\n");
  });
}

}  // namespace

void add_reader(CLI::App& app) {
  add_health(app);
  add_recording(app);
}

}  // namespace achost
