#include "door/services/settings_changes.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "ac/util.h"
#include "door/base/failure.h"
#include "door/services/announcements.h"
#include "refhost/work.h"

namespace achost {
namespace {

using Clock = Announcements::Clock;
using Place = std::pair<std::string, std::string>;  // section and key

// Rung when there is something to look at. A report of a delivery may come with any lock held, and after the changes
// have gone: so it takes this lock alone, and shares the bell.
class Bell {
 public:
  void ring(bool ending = false) {
    const std::lock_guard lock(mutex_);
    ++rung_;
    ending_ = ending_ || ending;
    ringing_.notify_all();
  }

  std::uint64_t count() const {
    const std::lock_guard lock(mutex_);
    return rung_;
  }

  // Until it has been rung more often than that, or the time has come; false once it ends.
  bool wait(std::uint64_t seen, Clock::time_point until) const {
    std::unique_lock lock(mutex_);
    const auto rings = [&] { return rung_ != seen || ending_; };
    if (until == Clock::time_point::max()) {
      ringing_.wait(lock, rings);
    } else {
      ringing_.wait_until(lock, until, rings);
    }
    return !ending_;
  }

 private:
  mutable std::mutex mutex_;  // guards all below
  mutable std::condition_variable ringing_;
  std::uint64_t rung_ = 0;
  bool ending_ = false;
};

// Settings of the host's own: it looks them up whenever it needs them, so the stored value is in force at once, and who
// listens writes down that it has changed.
constexpr std::string_view kOwnSection = "host";

std::string or_quotes(const std::string& value) { return value.empty() ? "\"\"" : value; }

}  // namespace

std::string text_of(const SettingsChanges::Awaited& awaited) {
  const std::string what = awaited.in_force == awaited.stored
                               ? ", but not everybody has taken that: "
                               : ", but not in force (" + or_quotes(awaited.in_force) + " is): ";
  return "setting " + awaited.section + "." + awaited.key + " is stored as " + or_quotes(awaited.stored) + what +
         (awaited.reason.empty() ? "it is being told" : awaited.reason);
}

struct SettingsChanges::Impl {
  struct Setting {
    std::string stored;
    std::string in_force;
    Announcements announcements;
  };

  Impl(refhost::SettingsStore& the_store, Alarms& the_alarms, RetryTimes the_times)
      : store(the_store), alarms(the_alarms), times(the_times) {}

  // Body of the thread.
  void run();

  // On the thread that changes a setting, with the store's lock held.
  void announce(const refhost::SettingsStore::Change& change);

  // These are called with the mutex held.
  void look();
  Clock::time_point next_look() const;
  std::vector<Awaited> all_awaited() const;
  std::vector<Setting*> those_of(const std::vector<refhost::SettingValue>& wanted);

  // Have the alarms agree with what is awaited.
  void tell_alarms();

  void await_plugin(Clock::time_point deadline);
  void await_handlers(const std::vector<refhost::SettingValue>& wanted, Clock::time_point deadline);

  refhost::SettingsStore& store;
  Alarms& alarms;
  const RetryTimes times;
  const std::shared_ptr<Bell> bell = std::make_shared<Bell>();
  std::mutex mutex;                   // guards the next three; the routes of the bus and the bell are locked within it
  std::map<Place, Setting> settings;  // those that are awaited
  bool plugin_has_started = false;
  std::function<void(const refhost::SettingsStore::Change&)> on_stored;
  std::mutex alarms_mutex;       // held while the alarms are told, so that the latest word is the last; guards raised
  std::set<std::string> raised;  // names of the alarms that stand
  refhost::Work work{"settings"};
  std::thread thread;
};

void SettingsChanges::Impl::announce(const refhost::SettingsStore::Change& change) {
  const std::lock_guard lock(mutex);
  const auto& [setting, value, previous] = change;
  if (on_stored) {
    on_stored(change);
  }
  auto& entry = settings
                    .try_emplace(Place(setting.section, setting.key),
                                 Setting{value, previous, Announcements(times, [bell = bell] { bell->ring(); })})
                    .first->second;
  entry.stored = value;
  if (setting.section == kOwnSection) {
    entry.in_force = value;
  }
  entry.announcements.announce(change, Clock::now());
  bell->ring();
}

void SettingsChanges::Impl::look() {
  const auto now = Clock::now();
  for (auto& [place, setting] : settings) {
    setting.announcements.look(now);
  }
  std::erase_if(settings, [](const auto& one) { return one.second.announcements.is_over(); });
}

Clock::time_point SettingsChanges::Impl::next_look() const {
  auto next = Clock::time_point::max();
  for (const auto& [place, setting] : settings) {
    next = std::min(next, setting.announcements.next_look());
  }
  return next;
}

std::vector<SettingsChanges::Awaited> SettingsChanges::Impl::all_awaited() const {
  std::vector<Awaited> all;
  for (const auto& [place, setting] : settings) {
    all.push_back({.section = place.first,
                   .key = place.second,
                   .stored = setting.stored,
                   .in_force = setting.in_force,
                   .reason = setting.announcements.reason()});
  }
  return all;
}

std::vector<SettingsChanges::Impl::Setting*> SettingsChanges::Impl::those_of(
    const std::vector<refhost::SettingValue>& wanted) {
  std::vector<Setting*> found;
  for (const auto& one : wanted) {
    if (const auto place = settings.find(Place(one.section, one.key)); place != settings.end()) {
      found.push_back(&place->second);
    }
  }
  return found;
}

void SettingsChanges::Impl::run() {
  ac::util::set_thread_name("settings", pthread_self());
  std::uint64_t seen = 0;
  Clock::time_point next;
  do {
    const refhost::Work::Step step(work);
    seen = bell->count();
    {
      const std::lock_guard lock(mutex);
      look();
      next = next_look();
    }
    tell_alarms();
  } while (bell->wait(seen, next));
}

void SettingsChanges::Impl::tell_alarms() {
  const std::lock_guard alarms_lock(alarms_mutex);
  std::vector<Awaited> all;
  {
    const std::lock_guard lock(mutex);
    all = all_awaited();
  }
  std::set<std::string> standing;
  for (const auto& one : all) {
    if (!one.reason.empty()) {
      const std::string name = one.section + "." + one.key;
      alarms.raise(name, text_of(one));
      standing.insert(name);
    }
  }
  for (const auto& name : raised) {
    if (!standing.contains(name)) {
      alarms.clear(name);
    }
  }
  raised = std::move(standing);
}

void SettingsChanges::Impl::await_plugin(Clock::time_point deadline) {
  for (;;) {
    const auto seen = bell->count();
    {
      const std::lock_guard lock(mutex);
      if (plugin_has_started) {
        return;
      }
    }
    if (Clock::now() >= deadline || !bell->wait(seen, deadline)) {
      throw Failure(kFailed, "nothing is stored: the plug-in has not started yet; try again");
    }
  }
}

// A change that a handler makes itself is waited for too, as it is known by the time the handler is through.
void SettingsChanges::Impl::await_handlers(const std::vector<refhost::SettingValue>& wanted,
                                           Clock::time_point deadline) {
  for (;;) {
    const auto seen = bell->count();
    {
      const std::lock_guard lock(mutex);
      look();
      const auto mine = those_of(wanted);
      if (std::ranges::none_of(mine, [](const Setting* one) { return one->announcements.is_under_way(); })) {
        return;
      }
      if (Clock::now() >= deadline) {
        std::ranges::for_each(mine, [](Setting* one) { one->announcements.give_up_waiting(); });
        return;
      }
    }
    if (!bell->wait(seen, deadline)) {
      return;
    }
  }
}

SettingsChanges::SettingsChanges(refhost::SettingsStore& store, Alarms& alarms, RetryTimes times)
    : impl_(std::make_unique<Impl>(store, alarms, times)) {
  store.on_change([impl = impl_.get()](const refhost::SettingsStore::Change& change) { impl->announce(change); });
  impl_->thread = std::thread([impl = impl_.get()] { impl->run(); });
}

SettingsChanges::~SettingsChanges() {
  impl_->store.on_change(nullptr);
  impl_->bell->ring(true);
  impl_->thread.join();
}

void SettingsChanges::on_stored(std::function<void(const refhost::SettingsStore::Change&)> callback) {
  const std::lock_guard lock(impl_->mutex);
  impl_->on_stored = std::move(callback);
}

void SettingsChanges::plugin_has_started() {
  const std::lock_guard lock(impl_->mutex);
  impl_->plugin_has_started = true;
  impl_->bell->ring();
}

std::vector<SettingsChanges::Awaited> SettingsChanges::change(const std::vector<refhost::SettingValue>& wanted) {
  impl_->await_plugin(Clock::now() + impl_->times.answer);
  {
    const std::lock_guard lock(impl_->mutex);  // before the change, so that nobody who fails at once is told twice
    std::ranges::for_each(impl_->those_of(wanted), [](Impl::Setting* one) { one->announcements.hurry(); });
  }
  impl_->store.set(wanted);
  impl_->await_handlers(wanted, Clock::now() + impl_->times.answer);
  impl_->tell_alarms();
  auto failed = awaited();
  std::erase_if(failed,
                [&wanted](const Awaited& one) {  // without a reason: somebody else's change, which has just begun
                  return one.reason.empty() || std::ranges::none_of(wanted, [&one](const auto& value) {
                           return value.section == one.section && value.key == one.key;
                         });
                });
  return failed;
}

std::vector<SettingsChanges::Awaited> SettingsChanges::awaited() const {
  const std::lock_guard lock(impl_->mutex);
  impl_->look();
  return impl_->all_awaited();
}

std::optional<SettingsChanges::Awaited> SettingsChanges::awaited(const std::string& section,
                                                                 const std::string& key) const {
  const auto all = awaited();
  const auto found =
      std::ranges::find_if(all, [&](const auto& one) { return one.section == section && one.key == key; });
  return found == all.end() ? std::nullopt : std::optional(*found);
}

}  // namespace achost
