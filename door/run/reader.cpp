#include "door/run/reader.h"

#include <cstdlib>
#include <utility>

#include "ac/exception.h"
#include "default_story.h"  // made by the build from share/story.txt
#include "door/base/failure.h"
#include "door/base/gpio_plan.h"
#include "door/run/reader_reset.h"
#include "refhost/instance_lock.h"
#include "refhost/settings_store.h"
#include "uhfsim/scenario.h"

namespace achost {
namespace {

using refhost::SettingsStore;

constexpr const char* kAlternative = "try --simulate";

// What nobody else can read, because it is damaged or of an earlier version, its owner can.
std::unique_ptr<SettingsStore> readable_settings(const std::filesystem::path& state, std::vector<std::string>& faults) {
  try {
    return std::make_unique<SettingsStore>(state, SettingsStore::Access::read_only);
  } catch (const ac::ac_exception&) {
    const refhost::InstanceLock lock(state);
    faults = SettingsStore(state, SettingsStore::Access::read_write).faults();
    return std::make_unique<SettingsStore>(state, SettingsStore::Access::read_only);
  }
}

// The settings as this run will have them.
class SettingsOfRun {
 public:
  // faults: gets what was wrong with them, if that had to be mended.
  SettingsOfRun(const std::filesystem::path& state, const std::vector<Assignment>& assignments,
                std::vector<std::string>& faults)
      : store_(readable_settings(state, faults)) {
    for (const auto& [section, key, value] : assignments) {
      store_->override_for_run(section, key, value);
    }
  }

  std::string text(const char* section, const char* key) { return store_->get(section, key).value(); }
  int number(const char* section, const char* key) { return static_cast<int>(store_->get_int(section, key).value()); }

 private:
  std::unique_ptr<SettingsStore> store_;
};

// A service may begin before its reader is there; a person is told at once.
bool is_service() {
  const char* const socket = std::getenv("NOTIFY_SOCKET");
  return socket != nullptr && *socket != '\0';
}

uhfsim::Scenario load_scenario(const RunOptions& options, Story& story) {
  if (options.interactive) {
    return {};
  }
  const auto check = [&story](const std::string& line) { story.check(line); };
  try {
    return options.scenario.empty() ? uhfsim::Scenario::parse(embedded::default_story, "built-in scenario", check)
                                    : uhfsim::Scenario::load(options.scenario, check);
  } catch (const uhfsim::ScenarioError& failure) {
    throw Failure(kUsage, failure.what());
  }
}

// What a port that cannot be had does to the run.
template <typename Work>
auto or_fail(const Work& work) {
  try {
    return work();
  } catch (const line::PortError& failure) {
    throw Failure(failure.kind() == line::PortError::Kind::busy ? kPortBusy : kNoReader, failure.what());
  }
}

}  // namespace

Reader::Reader(const RunOptions& options, const std::filesystem::path& state,
               const std::vector<Assignment>& assignments) {
  if (options.simulate) {
    auto scenario = load_scenario(options, story_);
    uhfsim::Options simulation;
    simulation.seed = options.seed;
    simulation.on_host_line = [this](const std::string& line) { story_.tell(line); };
    simulated_ = std::make_unique<uhfsim::SimulatedReader>(std::move(simulation));
    simulated_->play(std::move(scenario));
    real_port_ = simulated_->path();
  } else {
    real_port_ = options.port.empty()
                     ? SettingsOfRun(state, assignments, settings_faults_).text(kDefaultSection, kPortSetting)
                     : std::filesystem::absolute(options.port).string();
  }
  if (options.direct) {
    guard_ = or_fail([&] { return std::make_unique<line::PortGuard>(real_port_, kAlternative); });
    plug_in_port_ = real_port_;
    return;
  }
  is_waited_for_ = !options.simulate && (options.wait || is_service());
  line_ = or_fail([&] { return make_line(state, assignments); });
  plug_in_port_ = line_->terminal();
}

std::unique_ptr<line::Line> Reader::make_line(const std::filesystem::path& state,
                                              const std::vector<Assignment>& assignments) {
  SettingsOfRun settings(state, assignments, settings_faults_);
  line::LineOptions line;
  line.path = real_port_;
  line.alternative = kAlternative;
  line.may_be_missing = is_waited_for_;
  line.give_up_after = std::chrono::seconds(settings.number("host", "reader_give_up"));
  line.reset = reader_reset(real_port_, reader_reset_line([&settings](const auto& section, const auto& key) {
                              return settings.text(section.c_str(), key.c_str());
                            }));
  line.alive = report_line_alive;
  line.on_exchange = [this](line::Exchange exchange) {
    const std::lock_guard lock(mutex_);
    if (exchange_listener_) {
      exchange_listener_(std::move(exchange));
    }
  };
  return std::make_unique<line::Line>(std::move(line), [this](const line::Event& event) { tell(event); });
}

void Reader::on_event(std::function<void(const line::Event&)> listener) {
  const std::lock_guard lock(mutex_);
  listener_ = std::move(listener);
  for (const auto& event : std::exchange(early_, {})) {
    listener_(event);
  }
}

void Reader::on_exchange(std::function<void(line::Exchange)> listener) {
  const std::lock_guard lock(mutex_);
  exchange_listener_ = std::move(listener);
}

void Reader::tell(const line::Event& event) {
  const std::lock_guard lock(mutex_);
  if (listener_) {
    listener_(event);
  } else {
    early_.push_back(event);
  }
}

}  // namespace achost
