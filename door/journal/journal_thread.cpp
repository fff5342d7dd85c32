// The journal's thread, and what it is told to do.
#include <pthread.h>
#include <sqlite3.h>

#include <cstddef>
#include <exception>
#include <new>
#include <utility>

#include "ac/util.h"
#include "door/journal/entry_code.h"
#include "door/journal/journal_impl.h"
#include "refhost/log.h"

namespace achost {
namespace {

// So many go in one transaction at the most, so that one takes no longer than a disk takes anyway.
constexpr std::size_t kMostAtOnce = 500;

// How long an entry may wait before that is trouble.
constexpr std::chrono::milliseconds kPatience(1000);

// When it is worth a look whether something is to go.
constexpr std::int64_t kPruneEvery = 1000;  // entries

}  // namespace

void Journal::Impl::run() {
  ac::util::set_thread_name("journal", pthread_self());
  for (bool goes_on = true; goes_on;) {
    alarm_clock.wait();
    is_held_up = true;
    try {
      goes_on = store_and_prune();
    } catch (const std::bad_alloc&) {  // what waits, waits on
      alarm_clock.set(kAgain);
    }
  }
}

// False when it is the end.
bool Journal::Impl::store_and_prune() {
  std::unique_lock lock(mutex);
  bool is_stored = false;
  lock.unlock();
  begin_anew_if_damaged();
  lock.lock();
  do {
    is_stored = store_some(lock);
  } while (ending && is_stored && !spool->is_empty());
  if (ending) {
    return false;
  }
  if (is_stored && wants_pruning) {
    prune(lock);
  }
  if (!is_stored) {
    alarm_clock.set(kAgain);
  } else if (wants_pruning || waiting_since.has_value()) {
    alarm_clock.set(kGathering);
  }
  is_held_up = !is_stored;
  return true;
}

// What waits in the spool, but for what is put meanwhile. The lock is not held while the disk is used.
bool Journal::Impl::store_some(std::unique_lock<std::mutex>& lock) {
  const auto begin = Clock::now();
  lock.unlock();
  std::string reason;
  try {
    store_waiting();
  } catch (const std::exception& why) {
    reason = why.what();
  }
  lock.lock();
  wants_pruning = wants_pruning || stored / kPruneEvery != file->last() / kPruneEvery;
  stored = file->last();
  failure = reason;
  if (reason.empty()) {
    put_gap();
    waiting_since = spool->is_empty() ? std::nullopt : std::optional(begin);
  }
  lock.unlock();
  more_stored.notify_all();
  take_faults();
  tell_trouble();
  lock.lock();
  return reason.empty();
}

void Journal::Impl::store_waiting() {
  std::vector<JournalEntry> entries;
  const auto place = spool->look(kMostAtOnce, [&](std::string_view code) {
    if (auto entry = decoded(code)) {
      entries.push_back(std::move(*entry));
    }
  });
  if (!entries.empty()) {
    file->store(entries);
  }
  spool->drop_to(place);
}

// What is not begun at once is begun with the next entry.
void Journal::Impl::begin_anew_if_damaged() {
  std::optional<LateDamage> late;
  {
    const std::lock_guard lock(mutex);
    late = std::exchange(late_damage, std::nullopt);
    if (!late.has_value() || late->known_faults != faults.size() || file->faults().size() != known_faults) {
      return;  // none, or the thread has met it itself
    }
  }
  if (late->damage.empty()) {
    file->add_fault(late->failure);
    return;
  }
  try {
    file->begin_anew(late->damage);
  } catch (const std::exception& reason) {
    refhost::log::warning(reason.what());
  }
}

// What the file has found since is said by an entry, and to who listens.
void Journal::Impl::take_faults() {
  const std::vector<std::string> fresh(file->faults().begin() + static_cast<std::ptrdiff_t>(known_faults),
                                       file->faults().end());
  if (fresh.empty()) {
    return;
  }
  known_faults = file->faults().size();
  for (const auto& fault : fresh) {
    put({.kind = Kind::gap, .fields = {{"reason", fault}}});
  }
  const std::lock_guard order(telling);
  std::vector<std::string> all;
  {
    const std::lock_guard lock(mutex);
    faults.insert(faults.end(), fresh.begin(), fresh.end());
    all = faults;
  }
  if (on_damage) {
    on_damage(all);
  }
}

// Nobody waits for it. The thread of the journal does what it asks for.
bool Journal::Impl::examine() {
  const std::lock_guard lock_of_care(care_mutex);
  if (is_examined) {
    return false;
  }
  LateDamage late;
  {
    const std::lock_guard lock(mutex);
    late.known_faults = faults.size();
  }
  try {
    late.damage = care.examine().value_or("");
  } catch (const SQLite::Exception& thrown) {
    if (thrown.getErrorCode() == SQLITE_NOMEM) {
      throw_database_failure(directory / kJournalFileName, kJournalKind, thrown);  // there will be memory again
    }
    late.failure = std::string("its pages cannot be examined (") + thrown.what() + "); examine the disk";
  }
  is_examined = true;
  care.rest();
  if (!late.damage.empty() || !late.failure.empty()) {
    const std::lock_guard lock(mutex);
    late_damage = late;
    alarm_clock.set({});
  }
  return true;
}

// One step; what waits is stored before the next.
void Journal::Impl::prune(std::unique_lock<std::mutex>& lock) {
  const auto lets_go = rule;
  lock.unlock();
  bool has_more = false;
  try {
    has_more = lets_go && file->remove_some(lets_go());
    if (const auto gone = has_more ? std::nullopt : file->gone()) {
      put({.kind = Kind::retention, .fields = {{"first", gone->first}, {"last", gone->last}}});
    }
  } catch (const std::exception& reason) {  // an entry that cannot be stored is the trouble then, or it goes later
    refhost::log::warning(reason.what());
  }
  lock.lock();
  wants_pruning = has_more;
}

// With the lock held.
std::string Journal::Impl::trouble() const {
  const std::string name = (directory / kJournalFileName).string();
  const std::string what =
      lost > 0 ? "entries are lost, as there is no more room for them in memory" : "what happens waits in memory";
  if (!failure.empty()) {
    return "the journal cannot be written, " + what + ": " + failure + "; see who has it open (fuser " + name +
           ") and what room there is (df)";
  }
  if (waiting_since.has_value() && Clock::now() - *waiting_since > kPatience) {
    return "the disk below " + name + " does not answer, " + what + "; see what the kernel says of it (dmesg)";
  }
  return lost > 0 ? "the journal has lost entries, as there was no room for them in memory" : "";
}

void Journal::Impl::tell_trouble() {
  const std::lock_guard order(telling);
  std::string text;
  {
    const std::lock_guard lock(mutex);
    text = trouble();
  }
  if (text != std::exchange(told, text) && on_trouble) {
    on_trouble(text);
  }
}

}  // namespace achost
