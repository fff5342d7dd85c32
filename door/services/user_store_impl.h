// What the store of users is made of: its file, and its memory for those who ask whose a card is.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "door/services/user_memory.h"
#include "door/services/user_rows.h"
#include "door/services/user_store.h"
#include "refhost/database.h"
#include "refhost/store_watch.h"

namespace achost {

struct UserStore::Impl {
  Impl(const std::filesystem::path& the_file, Access access)
      : file(the_file), is_owner(access == Access::read_write), watch(the_file) {}

  const std::filesystem::path file;
  const bool is_owner;  // else others write it
  refhost::StoreWatch watch;
  std::vector<std::string> faults;  // of the opening
  std::function<void(const std::string&)> on_damage;
  std::function<void(const Entry&)> on_change = [](const Entry&) {};

  std::mutex mutex;                          // guards the next two; its holder may wait for the disk
  std::optional<SQLite::Database> database;  // empty without a file, or once sealed
  std::vector<Entry> notes;                  // of the change that is being made
  std::atomic<std::uint64_t> changes = 0;    // that were written; any thread reads it

  std::mutex memory_mutex;  // guards the rest; taken after the other one; its holder does not wait for the disk
  UserMemory memory;
  std::shared_ptr<const Schedules> schedules = std::make_shared<const Schedules>();
  bool is_loaded = false;  // the memory is of all that is stored; the owner's, as nobody else writes

  // What action() returns; SQLite's failures name the file.
  template <typename Action>
  auto named(Action action) {
    try {
      return action();
    } catch (const SQLite::Exception& failure) {
      refhost::throw_database_failure(file, rows::kKind, failure);
    }
  }

  // What action(database) returns, with the mutex held; without a file the result type's nothing.
  template <typename Action>
  auto with(Action action) {
    const std::lock_guard lock(mutex);
    return with_lock(action);
  }

  template <typename Action>
  auto with_lock(Action action) {
    const refhost::StoreWatch::Use use(watch, "users and cards");
    return named([&] { return database.has_value() ? action(*database) : decltype(action(*database))(); });
  }

  // The same in a transaction that writes: no other process comes between what it reads and what it writes. learn():
  // the same for the memory, once it is on the disk.
  template <typename Action, typename Learn>
  auto change(Action action, Learn learn) {
    return with([&](SQLite::Database& open) {
      rows::Transaction transaction(open, rows::Transaction::For::writing);
      notes.clear();
      auto result = action(open);
      transaction.commit();
      ++changes;
      tell_of_change();
      try {
        learn(open, result);
      } catch (const std::exception&) {  // what is written is written; who asks next loads it
      }
      return result;
    });
  }

  // The same for what changes a few rows of a memory that is of all before it.
  template <typename Action, typename Learn>
  auto change_few(Action action, Learn learn) {
    return change(action, [&](SQLite::Database&, const auto& result) {
      const std::lock_guard lock(memory_mutex);
      // Should it fail midway, what comes later must not be put upon what is missing.
      if (std::exchange(is_loaded, false)) {
        learn(result);
        is_loaded = true;
      }
    });
  }

  void load(SQLite::Database& open);
  void load_instead(SQLite::Database& open);
  void look(const std::function<void(SQLite::Database&)>& read);
  void learn(const PeopleChange& change);
  void note(std::vector<Entry> more) { std::ranges::move(more, std::back_inserter(notes)); }
  void tell_of_change();
  std::optional<User> held(std::uint64_t card);
  void tell_of_damaged_schedule(const std::string& name) const;
};

}  // namespace achost
