#include "stage.h"

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "ac/post_office.h"
#include "ac/util.h"
#include "guarded.h"
#include "loader/plugin_impl.h"
#include "notes.h"
#include "refhost/answer.h"
#include "refhost/delivery.h"
#include "refhost/watchdog.h"

namespace plugincheck {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* kRecipient = "plug-in";

// Between two looks at a condition.
constexpr milliseconds kPeriod{5};

// The settings of the host with their changes, as the text that a schema is made from. What is changed is taken as it
// stands, whatever it should be.
std::string schema_text(const std::vector<SettingChange>& changes) {
  nlohmann::json entries = nlohmann::json::array();
  const auto add = [&entries](const std::string& name, const std::string& value) {
    const auto dot = name.find('.');
    entries.push_back({{"section", name.substr(0, dot)},
                       {"key", name.substr(dot + 1)},
                       {"type", "text"},
                       {"default", value},
                       {"live", true},
                       {"help", name}});
  };
  const auto change_of = [&changes](const std::string& name) {
    return std::ranges::find(changes.rbegin(), changes.rend(), name, &SettingChange::name);
  };
  for (const auto& setting : refhost::SettingsSchema::builtin().settings()) {
    const std::string name = setting.section + "." + setting.key;
    if (change_of(name) == changes.rend()) {
      add(name, setting.default_value);
    }
  }
  for (auto change = changes.begin(); change != changes.end(); ++change) {
    if (change->value.has_value() && change_of(change->name).base() == change + 1) {
      add(change->name, *change->value);
    }
  }
  return nlohmann::json{{"settings", entries}}.dump();
}

std::vector<std::string> types_of(const std::vector<ac::MessageListener>& listeners) {
  std::vector<std::string> types;
  for (const auto& listener : listeners) {
    if (std::ranges::find(types, listener.type) == types.end()) {
      types.push_back(listener.type);
    }
  }
  return types;
}

std::string ending_of(int (*run)()) {
  try {
    return "it returned " + std::to_string(run());
  } catch (const std::exception& failure) {
    return std::string("it threw ") + failure.what();
  } catch (...) {
    return "it threw what is no std::exception";
  }
}

// Ends the process with a finding unless it is gone in time.
class TimeLimit {
 public:
  TimeLimit() : thread_([this] { wait(); }) {}
  ~TimeLimit() {
    {
      const std::lock_guard lock(mutex_);
      is_over_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }
  TimeLimit(const TimeLimit&) = delete;
  TimeLimit& operator=(const TimeLimit&) = delete;

 private:
  void wait() {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, kPatience, [this] { return is_over_; })) {
      Notes::found("2.2", "init() has not come back after ten seconds");
      Notes::end();
    }
  }

  std::mutex mutex_;  // guards is_over_
  std::condition_variable changed_;
  bool is_over_ = false;
  std::thread thread_;  // last: it uses all above
};

}  // namespace

std::unique_ptr<ac::Message> message_of(const std::string& type, const Fields& fields) {
  auto message = std::make_unique<ac::Message>(type);
  for (const auto& [name, value] : fields) {
    if (const auto* const number = std::get_if<int>(&value)) {
      message->add_int(name, *number);
    } else if (const auto* const wide = std::get_if<std::int64_t>(&value)) {
      message->add_int64(name, *wide);
    } else {
      message->add_string(name, std::get<std::string>(value));
    }
  }
  return message;
}

std::vector<long> threads_of_process() {
  std::vector<long> threads;
  for (const auto& entry : fs::directory_iterator("/proc/self/task")) {
    threads.push_back(std::stol(entry.path().filename()));
  }
  return threads;
}

std::size_t descriptors_of_process() {
  const fs::directory_iterator entries("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

uhfsim::Tag Stage::tag(std::uint32_t card) {
  uhfsim::Bytes epc = {0xE2, 0x80, 0x11, 0x70, 0x00, 0x00, 0x02, 0x0A};
  for (const int shift : {24, 16, 8, 0}) {
    epc.push_back(static_cast<std::uint8_t>(card >> shift));
  }
  return {.epc = epc};
}

Stage::Stage(const Plan& plan, const std::vector<SettingChange>& changes)
    : plan_(plan), random_(plan.seed), reader_({.seed = plan.seed, .baud = 0}) {
  open_settings(changes);
  audit_.emplace(plan.directory);
  audit_->on_append([this](const refhost::AuditEntry& entry) {
    const std::lock_guard lock(mutex_);
    if (records_all_) {
      records_.push_back(entry.record);
    }
  });
  refhost::AuditLog::make_current(&*audit_);
  tap_ = std::make_unique<refhost::BusTap>([this](const ac::Message& message) { see(message); });
  const ac::MessageListener question = {"gpio_current_state", [this](ac::Message* message) { answer(*message); }, true};
  gpio_ = std::make_unique<refhost::Subscriber>("gpio", std::vector{question});
}

// What the scene changes stands above what the command line does, and that above what every scene has.
void Stage::open_settings(const std::vector<SettingChange>& changes) {
  std::vector<SettingChange> all = {{"uhf.serial_port_path", reader_.path()},
                                    {"uhf.serial_port_timeout", "1000"},  // a machine may be busy
                                    {"uhf.watchdog_timeout", "100"},
                                    {"uhf.read_interval_diff_tags", "0"}};
  for (const auto& setting : plan_.settings) {
    const auto equals = setting.find('=');
    all.push_back({setting.substr(0, equals), setting.substr(equals + 1)});
  }
  all.insert(all.end(), changes.begin(), changes.end());
  static const refhost::SettingsSchema& schema = *new refhost::SettingsSchema(schema_text(all));
  settings_.emplace(plan_.directory, refhost::SettingsStore::Access::read_write, schema);
  settings_->on_change([](const refhost::SettingsStore::Change& change) {
    ac::PostOffice::send_message(refhost::announcement_of(change));
  });
  refhost::SettingsStore::make_current(&*settings_);
}

Stage::Outcome Stage::init() {
  void* const handle = dlopen(plan_.file.c_str(), RTLD_NOW | RTLD_LOCAL);
  auto* const entry = handle == nullptr ? nullptr : dlsym(handle, "init");
  if (entry == nullptr) {
    return {false, "it cannot be loaded any more"};
  }
  const auto call = reinterpret_cast<bool (*)(ac::Plugin*, std::string*)>(entry);
  Guarded guarded;
  Outcome outcome;
  try {
    const TimeLimit limit;
    outcome.started = call(guarded.plugin(), guarded.text());
    outcome.text = *guarded.text();
  } catch (const std::exception& failure) {
    outcome.text = failure.what();
  } catch (...) {
    outcome.text = "what it threw";
    Notes::found("2.4", "it threw what is no std::exception");
  }
  auto& described = ac::Plugin::Impl::of(*guarded.plugin());
  run_ = described.run;
  listeners_ = described.listeners;
  types_ = types_of(listeners_);
  const std::string name = described.name;
  guarded.take_back();
  note_what_init_left(outcome, run_ != nullptr, name);
  return outcome;
}

void Stage::note_what_init_left(const Outcome& outcome, bool has_run, const std::string& name) const {
  if (!outcome.started) {
    if (outcome.text.empty()) {
      Notes::found("2.3", "init() returned false, and its text is empty");
    }
    return;
  }
  if (!has_run) {
    Notes::found("2.7", "init() returned true without a call of set_run()");
  }
  if (name.empty()) {
    Notes::found("2.8", "its name is empty");
  }
  for (const auto& listener : listeners_) {
    if (listener.type.empty() || !listener.handler) {
      Notes::found(
          "2.9", listener.type.empty() ? "a listener has no type" : "that of \"" + listener.type + "\" has no handler");
    }
  }
}

void Stage::run() {
  plugin_ = std::make_unique<refhost::Subscriber>(kRecipient, listeners_);
  std::thread([this] {
    ac::util::set_thread_name("plugin", pthread_self());
    const std::string text = ending_of(run_);
    const std::lock_guard lock(mutex_);
    ending_ = text;
  }).detach();
}

Stage* Stage::started(const Plan& plan, const std::vector<SettingChange>& changes) {
  Stage& stage = *new Stage(plan, changes);
  const auto outcome = stage.init();
  if (!outcome.started || stage.run_ == nullptr) {
    Notes::found("2.1", "it failed: " + outcome.text);
    return nullptr;
  }
  stage.run();
  return &stage;
}

std::optional<std::string> Stage::ending() const {
  const std::lock_guard lock(mutex_);
  return ending_;
}

bool Stage::tell(std::unique_ptr<ac::Message> message) {
  const std::string type = message->type();
  struct Through {
    std::mutex mutex;  // guards reports
    std::condition_variable changed;
    int reports = 0;
  };
  const auto through = std::make_shared<Through>();  // a handler may end after the wait
  const auto delivery = refhost::Delivery::send_to(kRecipient, std::move(message), [through] {
    const std::lock_guard lock(through->mutex);
    ++through->reports;
    through->changed.notify_all();
  });
  if (delivery->recipients().empty()) {
    return true;
  }
  std::unique_lock lock(through->mutex);
  if (through->changed.wait_for(lock, kPatience, [&] { return through->reports > 0; })) {
    return true;
  }
  Notes::found("3.2", "the handler of \"" + type + "\" has not returned after ten seconds");
  return false;
}

bool Stage::wait(const std::function<bool()>& condition, milliseconds longest) {
  const auto deadline = steady_clock::now() + longest;
  while (!condition()) {
    if (steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(kPeriod);
  }
  return true;
}

std::vector<std::string> Stage::sent(const std::string& type) const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> lines;
  for (const auto& [its, line] : sent_) {
    if (type.empty() || its == type) {
      lines.push_back(line);
    }
  }
  return lines;
}

// What a sender sends; its own messages do not pass here, as they are followed.
void Stage::see(const ac::Message& message) {
  constexpr std::size_t kMost = 100'000;
  if (message.type().empty()) {
    Notes::found("3.5", "it sent a message of the type \"\"");
  }
  const std::lock_guard lock(mutex_);
  if (records_all_ && sent_.size() < kMost) {
    sent_.emplace_back(message.type(), refhost::line_of(message));
  }
}

void Stage::stop_recording() {
  const std::lock_guard lock(mutex_);
  records_all_ = false;
}

void Stage::answer_gpio(std::optional<int> level) {
  const std::lock_guard lock(mutex_);
  gpio_level_ = level;
}

void Stage::answer(const ac::Message& message) const {
  std::optional<int> level;
  {
    const std::lock_guard lock(mutex_);
    level = gpio_level_;
  }
  if (level.has_value()) {
    refhost::Answer(message).add_int("value", *level).send();
  }
}

// A look that itself comes late says nothing of the plug-in: the machine stood still.
void Stage::watch_keep_alives(milliseconds limit) {
  std::thread([limit] {
    constexpr milliseconds kLook{50};
    auto& table = refhost::WatchdogTable::instance();
    table.set_limit(limit);
    for (auto last = steady_clock::now();; std::this_thread::sleep_for(kLook)) {
      const auto now = steady_clock::now();
      const bool is_in_time = now - std::exchange(last, now) < limit / 4;
      for (const auto& [name, silence] : table.silences(now)) {
        if (is_in_time && silence > limit) {
          Notes::found("4.2", "\"" + name + "\" has said nothing for " + std::to_string(silence.count()) + " ms");
          return;
        }
      }
    }
  }).detach();
}

std::vector<std::string> Stage::names_alive() const {
  std::vector<std::string> names;
  for (const auto& [name, silence] : refhost::WatchdogTable::instance().silences(steady_clock::now())) {
    names.push_back(name);
  }
  return names;
}

std::vector<refhost::AuditRecord> Stage::records() const {
  const std::lock_guard lock(mutex_);
  return records_;
}

}  // namespace plugincheck
