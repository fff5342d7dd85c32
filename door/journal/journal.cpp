#include "door/journal/journal.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <new>
#include <system_error>
#include <utility>

#include "door/journal/entry_code.h"
#include "door/journal/journal_impl.h"
#include "refhost/log.h"

namespace achost {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Room for some thousand entries: hours of a door, should the disk be away for so long.
constexpr std::size_t kSpoolSize = 1024UL * 1024;

// Of it, for all but sightings.
constexpr std::size_t kRoomForOthers = kSpoolSize / 2;

}  // namespace

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

std::int64_t zone_offset() {
  const std::time_t seconds = std::time(nullptr);
  std::tm local{};
  localtime_r(&seconds, &local);
  return local.tm_gmtoff;
}

Journal::Impl::Impl(const std::filesystem::path& the_directory) : directory(the_directory) {
  refhost::make_state_directory(directory);
  file.emplace(directory);
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
  faults.insert(faults.begin(), file->faults().begin(), file->faults().end());
  known_faults = file->faults().size();
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
  return {.wall = in_ms(std::chrono::system_clock::now()),
          .offset = offset,
          .monotonic = in_ms(Clock::now()),
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
  if (entry.kind == Kind::sighting && !spool->has_room(kRoomForOthers)) {
    return lose(left_out);
  }
  if (code.empty() || !put_locked(code)) {
    return lose(lost);
  }
  if (!waiting_since.has_value()) {
    waiting_since = Clock::now();
    alarm_clock.set(kGathering);
  }
  return true;
}

bool Journal::Impl::lose(std::int64_t& number) {
  lost_since = lost + left_out == 0 ? in_ms(std::chrono::system_clock::now()) : lost_since;
  ++number;
  return false;
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
  if (lost + left_out == 0) {
    return true;
  }
  const Entry gap = {
      .kind = Kind::gap,
      .fields = {{"lost", lost + left_out}, {"since", lost_since}, {"reason", "there was no room for them in memory"}}};
  auto code = encoded(gap, now(), boot);
  const bool is_said = give_number(code);
  lost = is_said ? 0 : lost;
  left_out = is_said ? 0 : left_out;
  return is_said;
}

void Journal::Impl::end() {
  {
    const std::lock_guard lock(mutex);
    ending = true;
  }
  alarm_clock.set({});
  care.end();
  {
    const std::lock_guard lock(care_mutex);
    is_examined = true;
    care.rest();
  }
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

bool Journal::has_room_for_sightings() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->spool->has_room(kRoomForOthers);
}

bool Journal::is_writable() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->trouble().empty();
}

void Journal::on_trouble(std::function<void(const std::string&)> callback) {
  const std::lock_guard order(impl_->telling);
  impl_->on_trouble = std::move(callback);
}

void Journal::on_damage(std::function<void(const std::vector<std::string>&)> callback) {
  const std::lock_guard order(impl_->telling);
  impl_->on_damage = std::move(callback);
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

std::vector<std::string> Journal::faults() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->faults;
}

bool Journal::examine() { return impl_->examine(); }

void Journal::seal() { impl_->end(); }

}  // namespace achost
