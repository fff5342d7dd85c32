// The host and the reader of one scene: libac's own bus, settings, audit log and watchdog, and a simulated reader.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ac/message.h"
#include "clauses.h"
#include "refhost/audit_log.h"
#include "refhost/bus_view.h"
#include "refhost/send.h"
#include "refhost/settings_store.h"
#include "refhost/subscriber.h"
#include "uhfsim/random.h"
#include "uhfsim/simulated_reader.h"

namespace plugincheck {

// What the command line says of all scenes.
struct Plan {
  std::string file;  // absolute
  Level level = Level::contract;
  std::uint64_t seed = 1;
  std::vector<std::string> settings;  // "SECTION.KEY=VALUE", which need not be the host's own
  std::filesystem::path directory;    // of the scene, empty at the start
};

// A change of what settings there are.
struct SettingChange {
  std::string name;                  // "uhf.region"
  std::optional<std::string> value;  // nothing: there is none of that name. Any text is taken
};

// How long is waited for what a whole plug-in does at once.
inline constexpr std::chrono::seconds kPatience{10};

// How long nothing must happen.
inline constexpr std::chrono::milliseconds kQuiet{700};

// A message with this type and these fields; a text in place of a type is found nowhere else.
using Fields = std::vector<std::pair<std::string, refhost::FieldValue>>;
std::unique_ptr<ac::Message> message_of(const std::string& type, const Fields& fields);

std::vector<long> threads_of_process();
std::size_t descriptors_of_process();

// The stage of one scene in a process of its own, which ends with it: a plug-in's threads never stop.
class Stage {
 public:
  // A tag's last four bytes are its card.
  static uhfsim::Tag tag(std::uint32_t card);

  Stage(const Plan& plan, const std::vector<SettingChange>& changes);
  ~Stage() = delete;  // never: a plug-in uses it until the process ends

  struct Outcome {
    bool started = false;
    std::string text;  // why not
  };

  // Load it and call its init(); what is wrong with that is noted.
  Outcome init();

  // Let handlers and run() be called.
  void run();

  // A stage with init() and run() behind it; null, and noted, when it does not start.
  static Stage* started(const Plan& plan, const std::vector<SettingChange>& changes = {});

  // Whether run() has ended, and how.
  std::optional<std::string> ending() const;

  // Send a message to the plug-in and wait until its handlers have returned; false, and noted, when they do not. One
  // that it does not listen to is no failure.
  bool tell(std::unique_ptr<ac::Message> message);

  // Wait for a condition; false when it does not come true.
  static bool wait(const std::function<bool()>& condition, std::chrono::milliseconds longest = kPatience);

  // What it has sent, of a type; of all for an empty one.
  std::vector<std::string> sent(const std::string& type) const;  // a line each
  std::size_t count(const std::string& type) const { return sent(type).size(); }

  // From now on nothing is remembered, so that the check itself does not grow.
  void stop_recording();

  // Note what is late to tell the watchdog, until the process ends.
  void watch_keep_alives(std::chrono::milliseconds limit);
  std::vector<std::string> names_alive() const;

  // The level that "gpio_current_state" is answered with; nothing: not at all.
  void answer_gpio(std::optional<int> level);

  const std::vector<std::string>& types() const { return types_; }  // that it listens to, each once
  uhfsim::SimulatedReader& reader() { return reader_; }
  uhfsim::Random& random() { return random_; }
  refhost::SettingsStore& settings() { return *settings_; }
  std::vector<refhost::AuditRecord> records() const;

 private:
  void open_settings(const std::vector<SettingChange>& changes);
  void note_what_init_left(const Outcome& outcome, bool has_run, const std::string& name) const;
  void see(const ac::Message& message);
  void answer(const ac::Message& message) const;

  const Plan& plan_;
  uhfsim::Random random_;
  uhfsim::SimulatedReader reader_;
  std::optional<refhost::SettingsStore> settings_;
  std::optional<refhost::AuditLog> audit_;
  int (*run_)() = nullptr;
  std::vector<ac::MessageListener> listeners_;
  std::vector<std::string> types_;
  std::unique_ptr<refhost::Subscriber> plugin_;
  std::unique_ptr<refhost::Subscriber> gpio_;
  std::unique_ptr<refhost::BusTap> tap_;

  mutable std::mutex mutex_;                               // guards all below
  std::vector<std::pair<std::string, std::string>> sent_;  // types with their lines
  std::optional<std::string> ending_;
  std::optional<int> gpio_level_ = 0;
  std::vector<refhost::AuditRecord> records_;
  bool records_all_ = true;
};

}  // namespace plugincheck
