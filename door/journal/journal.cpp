#include "door/journal/journal.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "ac/util.h"
#include "door/journal/alarm_clock.h"
#include "door/journal/clock_jumps.h"
#include "door/journal/entry_code.h"
#include "door/journal/journal_file.h"
#include "door/journal/spool.h"
#include "refhost/clock.h"
#include "refhost/log.h"
#include "refhost/work.h"

namespace achost {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Room for some thousand entries: hours of a door, should the disk be away for so long.
constexpr std::size_t kSpoolSize = 1024UL * 1024;

// How long an entry waits for others that go to the disk with it.
constexpr milliseconds kGathering(10);

// So many go in one transaction at the most, so that one takes no longer than a disk takes anyway.
constexpr std::size_t kMostAtOnce = 500;

// How soon it is tried again after a failure, and how long an entry may wait before that is trouble.
constexpr milliseconds kAgain(1000);
constexpr milliseconds kPatience(1000);

// When it is worth a look whether something is to go.
constexpr std::int64_t kPruneEvery = 1000;  // entries
constexpr std::chrono::minutes kPrunePeriod(10);

// The kernel's random id of this run of the machine, as 32 digits. A service that may not look there is told.
std::string boot_id() {
  const char* const told = std::getenv("ACHOST_BOOT_ID");
  std::string id = told == nullptr ? "" : told;
  if (id.empty()) {
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
  }
  std::erase(id, '-');
  return id;
}

std::int64_t count(auto time) { return std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count(); }

// Of the local time, in seconds east of UTC.
std::int64_t zone_offset() {
  const std::time_t seconds = std::time(nullptr);
  std::tm local{};
  localtime_r(&seconds, &local);
  return local.tm_gmtoff;
}

}  // namespace

struct Journal::Impl {
  explicit Impl(const std::filesystem::path& the_directory);

  std::unique_ptr<Spool> recovered_spool();
  std::unique_ptr<Spool> new_spool();
  EntryTime now() const;
  bool put(const Entry& entry);
  bool put_locked(std::string& code);
  bool give_number(std::string& code);
  bool put_gap();
  void run();
  bool store_and_prune();
  bool store_some(std::unique_lock<std::mutex>& lock);
  void prune(std::unique_lock<std::mutex>& lock);
  std::string trouble() const;
  void tell_trouble();
  void end();

  const std::filesystem::path directory;
  const std::string boot = boot_id();
  std::function<void(const std::string&)> on_trouble;          // with `telling` held
  std::vector<std::string> faults;                             // of the opening
  std::optional<JournalFile> file;                             // the thread's; before it and after it the owner's
  bool found_unended_run = false;                              // set when it is made
  std::unique_ptr<Spool> spool;                                // put with the lock held, taken by the thread
  std::atomic<bool> is_trusted = refhost::clock_is_trusted();  // the machine's clock, as of the last look
  std::atomic<std::int64_t> offset = zone_offset();            // of the local time, the same
  ClockJumps jumps;                                            // of who looks
  Clock::time_point next_prune = Clock::now() + kPrunePeriod;  // the same
  std::mutex telling;  // held while trouble is told, so that it is told in order
  std::string told;    // with `telling` held: the latest trouble that was told

  AlarmClock alarm_clock;    // the thread's; set with the lock held, or to end
  mutable std::mutex mutex;  // guards everything below
  mutable std::condition_variable more_stored;
  std::function<JournalRetention()> rule;
  std::int64_t next_number = 1;
  std::int64_t stored = 0;
  std::int64_t lost = 0;        // entries, since that was last said
  std::int64_t lost_since = 0;  // ms: the time of the first
  bool wants_pruning = false;
  bool ending = false;
  std::optional<Clock::time_point> waiting_since;  // the oldest entry that is not on the disk, or a little earlier
  std::string failure;                             // of the latest attempt to store

  std::atomic<bool> is_held_up = true;  // the thread waits for the disk, which has an alarm of its own
  refhost::Work work{"journal", 1, [this] { return !is_held_up && !spool->is_empty(); }};
  std::thread thread;  // last: it uses all of it
};

Journal::Impl::Impl(const std::filesystem::path& the_directory) : directory(the_directory) {
  refhost::make_state_directory(directory);
  file.emplace(directory);
  faults = file->faults();
  found_unended_run = file->is_running();
  spool = recovered_spool();
  if (spool == nullptr) {
    spool = new_spool();
  }
  stored = file->last();
  next_number = std::max(next_number, stored + 1);
  if (!spool->is_empty()) {
    waiting_since = Clock::now();
    alarm_clock.set(kAgain);
  }
  for (const auto& fault : faults) {
    put({.kind = Kind::gap, .fields = {{"reason", fault}}});
  }
  thread = std::thread([this] { run(); });
}

// What the last process has left in its spool goes to the database. That spool when it cannot, else nothing.
std::unique_ptr<Spool> Journal::Impl::recovered_spool() {
  std::error_code unknown;
  if (file->spool().empty() || !std::filesystem::exists(file->spool(), unknown)) {
    return nullptr;
  }
  try {
    auto old = std::make_unique<Spool>(file->spool(), kSpoolSize);
    std::vector<JournalEntry> entries;
    const auto place = old->look(SIZE_MAX, [&](std::string_view code) {
      if (auto entry = decoded(code)) {
        entries.push_back(std::move(*entry));
      }
    });
    if (old->is_damaged()) {
      faults.push_back("entries are lost: " + file->spool() + " is damaged");
      refhost::log::error(faults.back());
    }
    try {
      file->store(entries);
    } catch (const std::exception& reason) {
      failure = reason.what();
      next_number = entries.empty() ? 1 : entries.back().number + 1;
      return old;
    }
    found_unended_run = file->is_running();
    old->drop_to(place);
    old->remove();
  } catch (const std::system_error& reason) {
    faults.push_back(std::string("entries of the last run may be lost, their spool cannot be used: ") + reason.what());
    refhost::log::error(faults.back());
  }
  return nullptr;
}

std::unique_ptr<Spool> Journal::Impl::new_spool() {
  std::unique_ptr<Spool> result;
  for (const auto& place : spool_files(directory, "achost-journal-" + file->id())) {
    try {
      result = std::make_unique<Spool>(place, kSpoolSize);
      break;
    } catch (const std::system_error&) {  // the next one is there for that
    }
  }
  if (result == nullptr) {
    result = std::make_unique<Spool>(kSpoolSize);
    refhost::log::warning(
        "the journal has no place that outlives the process: what is less than 50 ms old goes with it");
  }
  try {
    file->set_spool(result->file());
  } catch (const std::exception& reason) {
    failure = reason.what();
  }
  return result;
}

// What takes its time to find out is known from the last look.
EntryTime Journal::Impl::now() const {
  return {.wall = count(std::chrono::system_clock::now()),
          .offset = offset,
          .monotonic = count(Clock::now()),
          .is_trusted = is_trusted};
}

// False when it is lost.
bool Journal::Impl::put(const Entry& entry) {
  std::string code;
  try {
    code = encoded(entry, now(), boot);
  } catch (const std::bad_alloc&) {  // it counts as one that finds no room
  }
  const std::lock_guard lock(mutex);
  if (ending) {
    return false;
  }
  if (code.empty() || !put_locked(code)) {
    lost_since = lost++ == 0 ? count(std::chrono::system_clock::now()) : lost_since;
    return false;
  }
  if (!waiting_since.has_value()) {
    waiting_since = Clock::now();
    alarm_clock.set(kGathering);
  }
  return true;
}

// Behind an entry about those that were lost, if any were.
bool Journal::Impl::put_locked(std::string& code) {
  constexpr std::size_t kRoomToSay = 1024;  // else each entry that finds no room would say so of the one before
  if (lost > 0 && (!spool->has_room(code.size() + kRoomToSay) || !put_gap())) {
    return false;
  }
  return give_number(code);
}

bool Journal::Impl::give_number(std::string& code) {
  set_number(code, next_number);
  const bool is_put = spool->put(code);
  next_number += is_put ? 1 : 0;
  return is_put;
}

// With the lock held. False when entries are lost, and there is no room to say so.
bool Journal::Impl::put_gap() {
  if (lost == 0) {
    return true;
  }
  const Entry gap = {
      .kind = Kind::gap,
      .fields = {{"lost", lost}, {"since", lost_since}, {"reason", "there was no room for them in memory"}}};
  auto code = encoded(gap, now(), boot);
  const bool is_said = give_number(code);
  lost = is_said ? 0 : lost;
  return is_said;
}

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
  tell_trouble();
  lock.lock();
  return reason.empty();
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

void Journal::Impl::end() {
  {
    const std::lock_guard lock(mutex);
    ending = true;
  }
  alarm_clock.set({});
  if (!thread.joinable()) {
    return;
  }
  thread.join();
  if (spool->is_empty()) {
    spool->remove();
  }
  file.reset();
}

Journal::Journal(const std::filesystem::path& directory) : impl_(std::make_unique<Impl>(directory)) {}

Journal::~Journal() { impl_->end(); }

bool Journal::note(const Entry& entry) { return impl_->put(entry); }

bool Journal::is_writable() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->trouble().empty();
}

void Journal::on_trouble(std::function<void(const std::string&)> callback) {
  const std::lock_guard order(impl_->telling);
  impl_->on_trouble = std::move(callback);
}

void Journal::retain(std::function<JournalRetention()> rule) {
  const std::lock_guard lock(impl_->mutex);
  impl_->rule = std::move(rule);
}

void Journal::look() {
  impl_->is_trusted = refhost::clock_is_trusted();
  impl_->offset = zone_offset();
  const auto time = impl_->now();
  if (const auto jump = impl_->jumps.look(time.wall, time.monotonic)) {
    note({.kind = Kind::clock_jump, .fields = {{"by_ms", *jump}}});
  }
  if (Clock::now() >= impl_->next_prune) {
    impl_->next_prune = Clock::now() + kPrunePeriod;
    const std::lock_guard lock(impl_->mutex);
    impl_->wants_pruning = true;
    impl_->alarm_clock.set({});
  }
  impl_->tell_trouble();
}

std::int64_t Journal::stored() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->stored;
}

std::int64_t Journal::wait_beyond(std::int64_t number, milliseconds longest) const {
  std::unique_lock lock(impl_->mutex);
  impl_->more_stored.wait_for(lock, longest, [&] { return impl_->stored > number; });
  return impl_->stored;
}

bool Journal::found_unended_run() const { return impl_->found_unended_run; }

const std::vector<std::string>& Journal::faults() const { return impl_->faults; }

void Journal::seal() { impl_->end(); }

}  // namespace achost
