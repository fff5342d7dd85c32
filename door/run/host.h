// The host of one run: the stores, the services and the plug-in.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "door/control/control.h"
#include "door/control/control_commands.h"
#include "door/control/event_ring.h"
#include "door/gpio/kept_plan.h"
#include "door/journal/bookkeeping.h"
#include "door/journal/journal.h"
#include "door/journal/journal_feed.h"
#include "door/run/clock_watch.h"
#include "door/run/ending.h"
#include "door/run/figures.h"
#include "door/run/host_stores.h"
#include "door/run/printer.h"
#include "door/run/reader.h"
#include "door/run/reader_watch.h"
#include "door/run/reading_watch.h"
#include "door/run/supervisor.h"
#include "door/run/visit_feed.h"
#include "door/services/alarms.h"
#include "door/services/door_service.h"
#include "door/services/door_supervision.h"
#include "door/services/enroller_service.h"
#include "door/services/gpio_service.h"
#include "door/services/identifier_service.h"
#include "door/services/settings_changes.h"
#include "door/services/user_store.h"
#include "door/services/visits.h"
#include "refhost/audit_log.h"
#include "refhost/instance_lock.h"
#include "refhost/loader.h"
#include "refhost/settings_store.h"
#include "refhost/upkeep.h"
#include "refhost/watchdog.h"

namespace achost {

// Must not be destroyed once start_plugin() was called: the plug-in's threads never stop.
class Host {
 public:
  // Open the state directory for this process alone, and let others ask for things. watchdog_limit: how long a thread
  // that reports to the watchdog may be silent before the process is ended. state_is_temporary: it goes with the run.
  // Throws ac::ac_exception.
  Host(const std::filesystem::path& state, Reader& reader, Printer::Form form, std::chrono::milliseconds watchdog_limit,
       bool state_is_temporary);

  // For overrides, before the plug-in starts.
  refhost::SettingsStore& settings() { return settings_; }

  // Load the plug-in and run it on a thread of its own; returns at once. It ends the run when it cannot be loaded, does
  // not start, or ends. Throws refhost::SettingError, with nothing started, when the overrides do not go together with
  // the other settings.
  void start_plugin(const std::string& path);

  // Wait for the end, for the deadline at the latest; then print the reason and the summary, close the stores as far as
  // their disk answers soon, and end the process. Destructors do not run.
  [[noreturn]] void end_process(std::optional<std::chrono::steady_clock::time_point> deadline);

 private:
  void tell_of_damage();
  void tell_of_damage(const std::string& file, const std::vector<std::string>& faults);
  void begin_journal();
  void note(const Entry& entry);
  bool lets_open() const;
  void see_that_all_is_well();
  void look_at_the_disk();
  SettingsValues values() const;
  ScheduleLookup schedules() const;
  void use_real_lines();
  void run_plugin(const std::string& path);
  void wait_for_reader();
  void let_out(const ac::Message& request) const;
  std::string plugin() const;
  ControlledHost controlled();
  void output_lost(int reason);
  Json second_opinion() const;
  Json figures() const;
  int door_line() const;
  void close_journal();
  void print_end(const Ending::Outcome& outcome);
  void begin_anew();
  [[noreturn]] void close_and_exit(const Ending::Outcome& outcome);

  const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
  const std::filesystem::path state_;
  const bool state_is_temporary_;
  const std::chrono::milliseconds disk_patience_;
  const Printer::Form form_;
  Reader& reader_;
  refhost::InstanceLock lock_;
  refhost::SettingsStore settings_;
  refhost::AuditLog audit_;
  UserStore users_;
  Journal journal_;
  const Bookkeeping books_{.note = [this](const Entry& entry) { note(entry); },
                           .lets_open = [this] { return lets_open(); }};
  Ending ending_;
  const Supervisor supervisor_;
  Printer printer_;
  Alarms alarms_;
  SettingsChanges changes_{settings_, alarms_};
  HostStores stores_{state_, settings_, changes_, users_, journal_};
  gpio::KeptPlan kept_plan_;
  GpioService gpio_;
  DoorService door_{books_};
  DoorSupervision supervision_{door_, gpio_, alarms_, values(), schedules()};
  Visits visits_;
  VisitFeed visit_feed_{settings_, visits_};
  ClockWatch clock_{alarms_};
  IdentifierService identifier_{{.users = users_,
                                 .changes = changes_,
                                 .books = books_,
                                 .visits = visits_,
                                 .clock = clock_.trust(),
                                 .is_locked = [this] { return supervision_.is_locked(); }}};
  EnrollerService enroller_{users_};
  const JournalFeed journal_feed_{books_.note};  // before who tells of the reader's states
  ReadingWatch readings_{settings_, gpio_, books_.note, [this] { return journal_.has_room_for_sightings(); }};
  Figures figures_{[this] { return door_line(); }};
  EventRing events_;
  const refhost::BusTap events_tap_{[this](const ac::Message& message) { events_.note(message); }};
  const refhost::BusTap figures_tap_{[this](const ac::Message& message) { figures_.see(message); }};
  const ReaderWatch reader_watch_;
  const refhost::Subscriber way_out_;  // for as long as no plug-in handles exit requests
  refhost::Watchdog watchdog_;
  std::atomic<const refhost::LoadedPlugin*> plugin_ = nullptr;  // once it has started; written by its thread
  ControlServer control_;
  refhost::Upkeep upkeep_;  // last, so that the stores outlive it
};

}  // namespace achost
