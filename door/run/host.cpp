#include "door/run/host.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <thread>

#include "ac/util.h"
#include "door/base/settings_rules.h"
#include "door/run/temporary_state.h"
#include "refhost/clock.h"
#include "refhost/delivery.h"
#include "refhost/line_writer.h"
#include "refhost/loader.h"
#include "refhost/log.h"
#include "refhost/work.h"

namespace achost {
namespace {

// How often the watchdog checks: each second, several times within a short limit, and as often as the supervisor wants
// to hear of it.
std::chrono::milliseconds checking_period(std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds kUsual(1000);
  const auto longest = std::min(kUsual, Supervisor::watchdog_period().value_or(kUsual));
  return std::clamp(limit / 4, std::chrono::milliseconds(1), longest);
}

// At once and past everything else: the thread that is late may hold any lock.
[[noreturn]] void end_late(const refhost::WatchdogTable::Late& late) {
  std::array<char, 512> line{};
  std::snprintf(line.data(), line.size(), "achost: watchdog: %s has not reported for %.1f s, ending\n",
                late.name.c_str(), std::chrono::duration<double>(late.silence).count());
  refhost::write_if_taken(STDERR_FILENO, line.data());
  _exit(kWatchdog);
}

// An exception that left a thread of the plug-in.
[[noreturn]] void end_terminated() {
  const char* reason = "unknown exception";
  try {
    if (const auto current = std::current_exception()) {
      std::rethrow_exception(current);
    }
  } catch (const std::exception& failure) {
    reason = failure.what();
  } catch (...) {
  }
  std::array<char, 512> line{};
  std::snprintf(line.data(), line.size(), "achost: a thread of the plug-in ended: %s\n", reason);
  refhost::write_if_taken(STDERR_FILENO, line.data());
  _exit(kPluginEnded);
}

// Whoever wants to leave waits for no disk, reader or setting: the exit button and the inputs have a lane of their own.
const refhost::Lane kInputs{.name = "inputs", .types = {"sec_box_rex_changed", "gpio_notified"}};

// A plug-in that does not come back from its init is late like any other thread.
refhost::LoadedPlugin load_within_limit(const std::string& path) {
  refhost::Work work("init of the plug-in");
  const refhost::Work::Step step(work);
  return refhost::load(path, {kInputs});
}

refhost::AuditRetention retention(const refhost::SettingsStore& settings) {
  constexpr std::int64_t kDay = 24LL * 60 * 60 * 1000;
  return {.keep = settings.get_int("host", "audit_keep").value(),
          .youngest_to_go = settings.get_int("host", "audit_keep_days").value() * kDay,
          .knows_ages = refhost::clock_is_trusted()};
}

}  // namespace

Host::Host(const std::filesystem::path& state, Reader& reader, Printer::Form form,
           std::chrono::milliseconds watchdog_limit, bool state_is_temporary)
    : state_(state),
      state_is_temporary_(state_is_temporary),
      form_(form),
      reader_(reader),
      lock_(state),
      settings_(state, refhost::SettingsStore::Access::read_write),
      audit_(state),
      users_(state, UserStore::Access::read_write),
      printer_(form, [this](int reason) { output_lost(reason); }),
      watchdog_(refhost::WatchdogTable::instance(), checking_period(watchdog_limit), end_late,
                [this] { see_that_all_is_well(); }),
      control_(state, control_table(controlled())) {
  refhost::WatchdogTable::instance().set_limit(watchdog_limit);
  settings_.keep(settings_rules(watchdog_limit));
  for (const auto& fault : settings_.make_safe_for_run()) {
    refhost::log::error("a stored combination of settings is not used: " + fault +
                        "; achost config set mends what is stored");
  }
  audit_.on_append([](const refhost::AuditEntry& entry) {
    refhost::Delivery::mark();  // a handler that fails afterwards is not to write another one
    refhost::announce(entry);
  });
  audit_.retain([this] { return retention(settings_); });
  refhost::SettingsStore::make_current(&settings_);
  refhost::AuditLog::make_current(&audit_);
}

// Regularly, on the watchdog's thread.
void Host::see_that_all_is_well() {
  supervisor_.tell("WATCHDOG=1");
  door_.close_when_due();  // should its timer's thread not come to it
}

void Host::start_plugin(const std::string& path) {
  settings_.check_rules();
  settings_.begin_run();
  std::set_terminate(end_terminated);
  std::thread([this, path] { run_plugin(path); }).detach();
}

ControlledHost Host::controlled() {
  return {.state = state_,
          .started = started_,
          .settings = settings_,
          .changes = changes_,
          .alarms = alarms_,
          .gpio = gpio_,
          .enroller = enroller_,
          .reader = reader_.description(),
          .simulated = reader_.simulated(),
          .plugin = [this] { return plugin(); }};
}

std::string Host::plugin() const {
  const auto* const plugin = plugin_.load();
  return plugin == nullptr ? "" : plugin->name;
}

void Host::run_plugin(const std::string& path) {
  using refhost::LoadError;
  ac::util::set_thread_name("plugin", pthread_self());
  try {
    // Never destroyed: its other threads go on when its main function has ended.
    const auto& plugin = *new refhost::LoadedPlugin(load_within_limit(path));
    refhost::log::say("achost: " + plugin.name + " (" + path + ") reads at " + reader_.description() + "; Ctrl-C ends");
    plugin_ = &plugin;
    changes_.plugin_has_started();
    supervisor_.tell("READY=1\nSTATUS=" + plugin.name + " reads at " + reader_.description());
    reader_.story().begin({.commands = control_table(controlled()),
                           .users = users_,
                           .say = [this](const std::string& text) { printer_.say(text); }});
    ending_.request({.status = kPluginEnded, .reason = refhost::run_until_it_ends(plugin)});
  } catch (const LoadError& failure) {
    const bool loaded = failure.stage() == LoadError::Stage::start;
    const std::string way_out = loaded ? "; check the reader at " + reader_.description() : "";
    ending_.request({.status = loaded ? kNoReader : kNoPlugin, .reason = failure.what() + way_out});
  }
}

void Host::output_lost(int reason) {
  const bool nobody_reads = reason == EPIPE;
  ending_.request(
      {.status = nobody_reads ? kDone : kFailed,
       .reason = nobody_reads ? "" : std::string("cannot write to standard output: ") + std::strerror(reason),
       .output_gone = true});
}

void Host::print_end(const Ending::Outcome& outcome) {
  const std::string summary = printer_.finish(std::chrono::steady_clock::now() - started_);
  if (!outcome.reason.empty()) {
    refhost::log::say("achost: " + outcome.reason);
  }
  const bool never_ran = outcome.status == kNoReader || outcome.status == kNoPlugin;
  const bool is_for_people = form_ != Printer::Form::json;
  if (!outcome.output_gone && !never_ran) {
    if (!is_for_people) {
      refhost::log::say("achost: " + summary);
    }
    printer_.end_with(is_for_people ? summary : "");
  }
  refhost::log::drain(kLongestEnd);
}

void Host::end_process(std::optional<std::chrono::steady_clock::time_point> deadline) {
  const auto outcome = ending_.wait(deadline);
  supervisor_.tell("STOPPING=1");
  print_end(outcome);
  control_.unlink();
  settings_.seal();
  audit_.seal();
  users_.seal();
  if (state_is_temporary_) {
    remove_temporary_state(state_);
  }
  _exit(outcome.status);
}

}  // namespace achost
