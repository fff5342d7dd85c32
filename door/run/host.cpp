#include "door/run/host.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <future>
#include <thread>
#include <utility>
#include <vector>

#include "ac/config_util.h"
#include "ac/util.h"
#include "door/backup/take_over.h"
#include "door/base/gpio_plan.h"
#include "door/base/settings_rules.h"
#include "door/gpio/chip_lines.h"
#include "door/journal/changes.h"
#include "door/journal/journal_file.h"
#include "door/run/start_anew.h"
#include "door/run/temporary_state.h"
#include "door/why/noted_message.h"
#include "refhost/clock.h"
#include "refhost/delivery.h"
#include "refhost/line_writer.h"
#include "refhost/loader.h"
#include "refhost/log.h"
#include "refhost/send.h"
#include "refhost/store_watch.h"
#include "refhost/work.h"
#include "version.h"

namespace achost {
namespace {

// How often the watchdog checks: each second, several times within a short limit, and as often as the supervisor wants
// to hear of it.
std::chrono::milliseconds checking_period(std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds kUsual(1000);
  const auto longest = std::min(kUsual, Supervisor::watchdog_period().value_or(kUsual));
  return std::clamp(limit / 4, std::chrono::milliseconds(1), longest);
}

constexpr const char* kDiskAlarm = "disk";
constexpr const char* kJournalAlarm = "journal";
constexpr const char* kGpioAlarm = "gpio";

// How long the disk may take before it is an alarm; with the time to the next look less than five seconds. In any case
// it comes before the watchdog's end.
constexpr std::chrono::milliseconds kDiskPatience(3000);

// How long a reader that is there takes to answer at the start.
constexpr std::chrono::seconds kFirstAnswer(1);

// How long a command without a host takes at the most, in general: it holds the directory meanwhile.
constexpr std::chrono::milliseconds kCommand(1000);

// How long an end waits for the stores.
constexpr std::chrono::milliseconds kLongestClosing(2000);

double seconds(std::chrono::milliseconds time) { return std::chrono::duration<double>(time).count(); }

// At once and past everything else, without memory: the thread that is late may hold any lock. What it waits for, as
// far as that is known.
[[noreturn]] void end_late(const refhost::WatchdogTable::Late& late) {
  using refhost::StoreTable;
  constexpr std::chrono::milliseconds kWorthAWord(100);
  std::array<char, 384> disk{};
  if (const auto stall = StoreTable::instance().longest_stall(StoreTable::Clock::now(), kWorthAWord)) {
    std::snprintf(disk.data(), disk.size(), "; the disk below %s does not answer for %.1f s (%s)", stall->file.data(),
                  seconds(stall->length), stall->what);
  }
  std::array<char, 640> line{};
  std::snprintf(line.data(), line.size(), "achost: watchdog: %s has not reported for %.1f s, ending%s\n",
                late.name.c_str(), seconds(late.silence), disk.data());
  refhost::write_if_taken(STDERR_FILENO, line.data());
  gpio::ChipLines::rest_at_once();
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
  gpio::ChipLines::rest_at_once();
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

JournalRetention journal_retention(const refhost::SettingsStore& settings) {
  constexpr std::int64_t kDay = 24LL * 60 * 60 * 1000;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto days = settings.get_int("host", "journal_keep_days").value();
  return {.keep = settings.get_int("host", "journal_keep").value(),
          .oldest = days == 0 ? 0 : std::chrono::duration_cast<std::chrono::milliseconds>(now).count() - days * kDay,
          .knows_ages = refhost::clock_is_trusted()};
}

}  // namespace

Host::Host(const std::filesystem::path& state, Reader& reader, Printer::Form form,
           std::chrono::milliseconds watchdog_limit, bool state_is_temporary)
    : state_(state),
      state_is_temporary_(state_is_temporary),
      disk_patience_(std::min(kDiskPatience, watchdog_limit / 2)),
      form_(form),
      reader_(reader),
      lock_(state, kCommand),
      settings_((take_over(state), state), refhost::SettingsStore::Access::read_write),
      audit_(state),
      users_(state, UserStore::Access::read_write),
      journal_(state),
      printer_(form, [this](int reason) { output_lost(reason); }),
      reader_watch_(reader, supervisor_, state,
                    [this](const std::string& reason) { ending_.request({.status = kPluginEnded, .reason = reason}); }),
      way_out_("way_out", {{"sec_box_rex_changed", [this](ac::Message* request) { let_out(*request); }, false}}),
      watchdog_(refhost::WatchdogTable::instance(), checking_period(watchdog_limit), end_late,
                [this] { see_that_all_is_well(); }),
      control_(state, control_table(controlled())),
      upkeep_("upkeep", [this] { return journal_.examine() || audit_.tidy(); }) {
  refhost::WatchdogTable::instance().set_limit(watchdog_limit);
  settings_.keep(settings_rules(watchdog_limit));
  stores_.desired().put_back();
  for (const auto& fault : settings_.make_safe_for_run()) {
    refhost::log::error("a stored combination of settings is not used: " + fault +
                        "; achost config set mends what is stored");
  }
  audit_.on_append([](const refhost::AuditEntry& entry) {
    refhost::Delivery::mark();  // a handler that fails afterwards is not to write another one
    refhost::announce(entry);
  });
  audit_.on_damage([this](const std::vector<std::string>& faults) { tell_of_damage("audit.db", faults); });
  journal_.on_damage([this](const std::vector<std::string>& faults) { tell_of_damage(kJournalFileName, faults); });
  audit_.retain([this] { return retention(settings_); });
  tell_of_damage();
  begin_journal();
  users_.on_change([this](const Entry& entry) { journal_.note(entry); });
  users_.on_damage([this](const std::string& text) { alarms_.raise("users.db", text); });
  refhost::SettingsStore::make_current(&settings_);
  refhost::AuditLog::make_current(&audit_);
}

// What the stores have found at their opening, and have logged.
void Host::tell_of_damage() {
  auto settings_faults = reader_.settings_faults();
  std::ranges::copy(settings_.faults(), std::back_inserter(settings_faults));
  tell_of_damage("settings.db", settings_faults);
  tell_of_damage("audit.db", audit_.faults());
  tell_of_damage("users.db", users_.faults());
  tell_of_damage(kJournalFileName, journal_.faults());
}

void Host::tell_of_damage(const std::string& file, const std::vector<std::string>& faults) {
  std::string text;
  for (const auto& fault : faults) {
    text += (text.empty() ? "" : "; ") + fault;
  }
  if (!text.empty()) {
    alarms_.raise(file, text);
  }
}

void Host::begin_journal() {
  journal_.on_trouble([this](const std::string& trouble) {
    trouble.empty() ? alarms_.clear(kJournalAlarm) : alarms_.raise(kJournalAlarm, trouble);
  });
  journal_.retain([this] { return journal_retention(settings_); });
  changes_.on_stored([this](const refhost::SettingsStore::Change& change) {
    journal_.note(
        setting_change(change.setting.section + "." + change.setting.key, change.value, change.previous_value));
    gpio_.lines().settings_changed();
    kept_plan_.settings_changed(values());
    supervision_.look_soon();
  });
  clock_.begin(state_);
  journal_.note({.kind = Kind::start,
                 .fields = {{"version", UHF_VERSION},
                            {"run_before", journal_.found_unended_run() ? "without an end" : "ended"}}});
}

// No message says that the door was to open and could not.
void Host::note(const Entry& entry) {
  journal_.note(entry);
  if (entry.kind == Kind::refusal && reader_.line() != nullptr) {
    reader_.line()->recorder().note(why::kDoorRefused);
  }
}

// For a card; who wants to leave is not asked for.
bool Host::lets_open() const {
  return settings_.get_int("host", "journal_required").value() == 0 || journal_.is_writable();
}

// Regularly, on the watchdog's thread.
void Host::see_that_all_is_well() {
  supervisor_.tell("WATCHDOG=1");
  door_.close_when_due();  // should its timer's thread not come to it
  look_at_the_disk();
  clock_.look();
  visit_feed_.tell_of_departures();
  journal_.look();
}

void Host::look_at_the_disk() {
  const auto trouble = refhost::StoreTable::instance().trouble(refhost::StoreTable::Clock::now(), disk_patience_);
  if (trouble.empty()) {
    alarms_.clear(kDiskAlarm);
  } else {
    alarms_.raise(kDiskAlarm, trouble);
  }
}

void Host::start_plugin(const std::string& path) {
  settings_.check_rules();
  settings_.begin_run();
  use_real_lines();
  supervision_.begin();
  if (reader_.line() != nullptr) {
    readings_.begin(&reader_.line()->recorder());
    reader_.on_exchange([this](line::Exchange exchange) {
      figures_.saw(exchange);
      visit_feed_.saw(exchange);
      readings_.saw(std::move(exchange));
    });
  }
  std::set_terminate(end_terminated);
  std::thread([this, path] { run_plugin(path); }).detach();
}

SettingsValues Host::values() const {
  return [this](const std::string& section, const std::string& key) { return settings_.get(section, key).value(); };
}

ScheduleLookup Host::schedules() const {
  return [this](const std::string& schedule, std::chrono::system_clock::time_point time) {
    return users_.holds(schedule, time);
  };
}

// From here on the lock is at rest, and people get out with the button.
void Host::use_real_lines() {
  auto plan = gpio_plan(values());
  kept_plan_.begin(values());
  if (plan.chip.empty()) {
    return;
  }
  const auto tell = [this](const std::string& trouble) {
    trouble.empty() ? alarms_.clear(kGpioAlarm) : alarms_.raise(kGpioAlarm, trouble);
  };
  gpio_.use(std::make_unique<gpio::ChipLines>(gpio::ChipLines::Needs{gpio::Kernel::instance(), values(), tell},
                                              std::move(plan)));
}

ControlledHost Host::controlled() {
  return {.version = UHF_VERSION,
          .state = state_,
          .started = started_,
          .settings = settings_,
          .changes = changes_,
          .stores = stores_,
          .alarms = alarms_,
          .gpio = gpio_,
          .door = supervision_,
          .note = books_.note,
          .enroller = enroller_,
          .events = events_,
          .reader = reader_.description(),
          .line = reader_.line(),
          .simulated = reader_.simulated(),
          .why = {.state = state_,
                  .name_of = [this](std::int64_t user) { return users_.name_of(user); },
                  .live = reader_.line() == nullptr ? std::function<std::vector<why::ToldSighting>()>()
                                                    : [this] { return readings_.sightings(); }},
          .second_opinion = [this] { return second_opinion(); },
          .figures = [this] { return figures(); },
          .start_anew = state_is_temporary_ ? std::function<void()>() : [this] { begin_anew(); },
          .plugin = [this] { return plugin(); }};
}

std::string Host::plugin() const {
  const auto* const plugin = plugin_.load();
  return plugin == nullptr ? "" : plugin->name;
}

void Host::run_plugin(const std::string& path) {
  using refhost::LoadError;
  ac::util::set_thread_name("plugin", pthread_self());
  if (reader_.is_waited_for()) {
    wait_for_reader();
  }
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

// The supervisor need not wait with others for it.
void Host::wait_for_reader() {
  supervisor_.tell("READY=1\nSTATUS=waiting for the reader at " + reader_.description());
  const auto& line = *reader_.line();
  if (const auto health = line.health(); health.state == line::State::gone || !line.wait_for_answer(kFirstAnswer)) {
    refhost::log::say("achost: waiting for the reader: " + health.cause + "; " + health.way_out);
    while (!line.wait_for_answer(std::chrono::hours(1))) {
    }
  }
}

// A person who wants to leave need not wait for a reader either.
void Host::let_out(const ac::Message& request) const {
  int level = 1;
  if (plugin_ == nullptr && request.get_int("active", &level) && level == 0) {
    refhost::send("actuator_open_door", {{"id", 1}, {"reason", 1}});
  }
}

void Host::begin_anew() {
  ending_.request({.reason = "a backup takes the place of what is stored: starting anew", .starts_anew = true});
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

// On a thread of its own, which a disk that does not answer may hold up: what it leaves open is as after a crash, and
// nothing that was acknowledged is lost.
void Host::close_and_exit(const Ending::Outcome& outcome) {
  std::vector<std::pair<const char*, std::function<void()>>> steps = {
      {"the control socket", [this] { control_.unlink(); }},
      {"users and cards", [this] { users_.seal(); }},  // before the settings: a desired state holds both, in this order
      {"the settings", [this] { settings_.seal(); }},
      {"the audit log",
       [this] {
         stores_.audit().seal();  // first: who is the last to close the file leaves it without a log beside it
         audit_.seal();
       }},
      {"the journal", [this] { close_journal(); }},
  };
  if (state_is_temporary_) {
    steps.emplace_back("the temporary state", [this] { remove_temporary_state(state_); });
  }
  std::atomic<std::size_t> closed = 0;
  std::promise<void> all_closed;
  const auto close_all = [&] {
    for (const auto& [name, close] : steps) {
      close();
      ++closed;
    }
    all_closed.set_value();
  };
  try {
    std::thread(close_all).detach();
  } catch (const std::exception&) {  // no thread is left
    close_all();
  }
  if (all_closed.get_future().wait_for(kLongestClosing) != std::future_status::ready) {
    std::string open;
    for (std::size_t i = closed; i < steps.size(); ++i) {
      open += (open.empty() ? "" : ", ") + std::string(steps[i].first);
    }
    refhost::log::say("achost: not closed, as the disk does not answer: " + open + "; nothing that was stored is lost");
    refhost::log::drain(kLongestEnd);
  }
  if (outcome.starts_anew) {
    start_anew();
    refhost::log::say(std::string("achost: cannot start anew: ") + std::strerror(errno) + "; start it again");
    refhost::log::drain(kLongestEnd);
  }
  _exit(outcome.starts_anew ? kFailed : outcome.status);
}

// Nothing where nobody looks at the readings.
Json Host::second_opinion() const {
  if (reader_.line() == nullptr) {
    return nullptr;
  }
  const auto [readings, disagreements, left_out] = readings_.counters();
  return {{"readings", readings}, {"disagreements", disagreements}, {"left_out", left_out}};
}

Json Host::figures() const {
  Json figures = figures_.json();
  Json readings = Json::object();
  const auto by_reason = readings_.by_reason();
  for (const auto& row : why::kReasons) {
    if (row.stage != why::Stage::kDoor) {
      readings[std::string(row.name)] = by_reason.at(static_cast<std::size_t>(row.reason));
    }
  }
  figures["readings"] = std::move(readings);
  return figures;
}

// Of its relay.
int Host::door_line() const {
  return ac::config_util::relay_gpio(static_cast<int>(settings_.get_int("host", "door_relay").value()));
}

// With the cards that are in the field.
void Host::close_journal() {
  readings_.end();
  journal_.seal();
}

void Host::end_process(std::optional<std::chrono::steady_clock::time_point> deadline) {
  const auto outcome = ending_.wait(deadline);
  gpio_.lines().rest();
  journal_.note({.kind = Kind::end,
                 .fields = {{"reason", outcome.reason.empty() ? "asked for" : outcome.reason},
                            {"status", static_cast<std::int64_t>(outcome.status)}}});
  supervisor_.tell(outcome.starts_anew ? "STATUS=starting anew" : "STOPPING=1");
  print_end(outcome);
  close_and_exit(outcome);
}

}  // namespace achost
