#include "daemon/run_command.h"

#include <chrono>
#include <filesystem>

#include "daemon/assignment.h"
#include "daemon/host.h"
#include "daemon/reader.h"
#include "daemon/state_directory.h"
#include "refhost/loader.h"
#include "refhost/log.h"

namespace achost {
namespace {

using std::chrono::steady_clock;

std::string plugin_path(const RunOptions& options) {
  if (!options.plugin.empty()) {
    return options.plugin;
  }
  const auto program = std::filesystem::read_symlink("/proc/self/exe");
  return (program.parent_path().parent_path() / "lib" / "uhf.so").string();
}

template <typename Duration>
Duration of_seconds(double seconds) {
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

void set_up_log(const RunOptions& options) {
  refhost::log::set_threshold(options.debug ? refhost::log::Level::debug : refhost::log::Level::warning);
  refhost::log::show_cards(options.show_cards);
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
  const auto state = state_directory(options.state);
  const std::string plugin = plugin_path(options);
  refhost::check_plugin_path(plugin);
  Reader reader(options, state, assignments);

  Host host(state, reader, options.json ? Printer::Form::json : Printer::Form::human,
            of_seconds<std::chrono::milliseconds>(options.watchdog_limit));
  for (const auto& [section, key, value] : assignments) {
    host.settings().override_for_run(section, key, value);
  }
  host.settings().override_for_run(kDefaultSection, kPortSetting, reader.port());
  host.start_plugin(plugin);
  host.end_process(deadline);
}

}  // namespace achost
