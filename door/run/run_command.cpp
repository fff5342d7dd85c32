#include "door/run/run_command.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>

#include "door/base/assignment.h"
#include "door/base/state_directory.h"
#include "door/run/host.h"
#include "door/run/reader.h"
#include "door/run/temporary_state.h"
#include "refhost/loader.h"
#include "refhost/log.h"

namespace achost {
namespace {

using std::chrono::steady_clock;

std::string plugin_path(const RunOptions& options) {
  if (!options.plugin.empty()) {
    return options.plugin;
  }
  // Where a package puts it, else where a build does.
  const auto libraries = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "lib";
  const auto packaged = libraries / "uhf" / "uhf.so";
  return (std::filesystem::exists(packaged) ? packaged : libraries / "uhf.so").string();
}

template <typename Duration>
Duration of_seconds(double seconds) {
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

// What to try in another terminal: lines to copy, as they are.
void print_hints(const std::filesystem::path& state) {
  const auto programs = std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
  std::string text = "achost: nothing happens by itself. Try in another terminal:\n  export ACHOST_STATE=\"" +
                     state.string() + "\"" + (programs == "/usr/bin" ? "" : " PATH=\"" + programs + ":$PATH\"");
  for (const char* const command :
       {"field add E28011700000020A00000001", "enroll --user 1", "field remove E28011700000020A00000001", "rex",
        "gpio set 1 1", "config set read_interval 500", "status", "events", "audit list"}) {
    text += std::string("\n  achost ") + command;
  }
  refhost::log::say(text);
}

// One rule for the output and the log: card values are for whoever asks for them or sits at a terminal, and not for a
// journal, which more people read and which is kept.
bool shows_cards(const RunOptions& options, int output) { return options.show_cards || isatty(output) != 0; }

void set_up_log(const RunOptions& options) {
  refhost::log::set_threshold(options.debug ? refhost::log::Level::debug : refhost::log::Level::warning);
  refhost::log::show_cards(shows_cards(options, STDERR_FILENO));
}

Printer::Form form_of(const RunOptions& options) {
  if (options.json) {
    return Printer::Form::json;
  }
  return shows_cards(options, STDOUT_FILENO) ? Printer::Form::human : Printer::Form::masked;
}

}  // namespace

void run(const RunOptions& options) {
  std::optional<steady_clock::time_point> deadline;
  if (options.seconds.has_value()) {
    deadline = steady_clock::now() + of_seconds<steady_clock::duration>(*options.seconds);
  }
  set_up_log(options);
  // All that can be wrong with the command line and the port shows before the state directory is touched.
  const auto assignments = parse_assignments(options.settings);
  const std::string plugin = plugin_path(options);
  refhost::check_plugin_path(plugin);
  std::optional<TemporaryState> temporary;  // also gone when the run does not come about
  if (options.temporary_state) {
    temporary.emplace();
  }
  const auto state = temporary.has_value() ? temporary->directory() : state_directory(options.state);
  Reader reader(options, state, assignments);

  Host host(state, reader, form_of(options), of_seconds<std::chrono::milliseconds>(options.watchdog_limit),
            options.temporary_state);
  for (const auto* const settings : {&reader.story().givens(), &assignments}) {
    for (const auto& [section, key, value] : *settings) {
      host.settings().override_for_run(section, key, value);
    }
  }
  host.settings().override_for_run(kDefaultSection, kPortSetting, reader.port());
  if (options.interactive) {
    print_hints(state);
  }
  host.start_plugin(plugin);
  host.end_process(deadline);
}

}  // namespace achost
