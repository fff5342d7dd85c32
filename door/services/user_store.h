// Users and their cards, and the schedules in which these open.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "door/journal/entry.h"
#include "door/services/schedule.h"
#include "door/services/user.h"
#include "refhost/store_report.h"

namespace SQLite {
class Database;
}

namespace achost {

// Who may open: kept in the SQLite file users.db, and in memory for those who ask whose a card is. Every change is
// durable before the call returns. Any thread may call. Other processes may read the file, and write it only while
// nobody owns it. Each operation throws ac::ac_exception, which names the file, when the file cannot be read or
// written; nothing is changed then.
class UserStore {
 public:
  enum class Access {
    read_only,   // nothing is written; without a file there is nobody
    read_write,  // for the owner of the directory's lock: the directory (mode 0700) and the file are made when missing,
                 // and a damaged file is kept under another name
  };

  // Open DIRECTORY/users.db.
  UserStore(const std::filesystem::path& directory, Access access);
  ~UserStore();
  UserStore(const UserStore&) = delete;
  UserStore& operator=(const UserStore&) = delete;

  // Whose card it is; nothing when it is nobody's, or when what is stored of it or of its user is not what was written.
  // Its owner answers from memory, and waits for nobody's writing.
  std::optional<User> holder_of(std::uint64_t card) const;
  std::optional<std::int64_t> owner_of(std::uint64_t card) const;

  // The name of that user; empty when he has none, or is not there. Its owner answers from memory, too.
  std::string name_of(std::int64_t user) const;

  // The names of those of them that are there.
  std::map<std::int64_t, std::string> names_of(const std::set<std::int64_t>& users) const;

  // Give a card that is nobody's to a user, who is made when missing. False, with nothing changed, when it is
  // somebody's already.
  bool bind(std::uint64_t card, std::int64_t user, const std::string& registration);

  // Make a user, or make one like this.
  void put(const User& user);

  struct Changed {
    std::optional<User> before;  // nothing: he is new
    User after;
  };

  enum class Which {
    any,
    there,    // nothing is done when he is missing
    missing,  // nothing is done when he is there
  };

  // Change a user as changed() has it, or make one. Nothing when nothing is done. Throws Failure for a schedule that is
  // not there.
  std::optional<Changed> change_user(const UserChange& change, Which which);

  struct Removed {
    User user;
    std::vector<std::uint64_t> cards = {};  // that went with him
  };

  // Remove a user with all of his cards, or one card; nothing when there is none.
  std::optional<Removed> remove_user(std::int64_t id);
  std::optional<Card> remove_card(std::uint64_t card);

  // In one transaction: hand over all that is stored, and do what the function makes of it. Nothing is done when it
  // throws; so does this then.
  void change_all(const std::function<PeopleChange(const People&)>& plan);

  // What came of a change of the rows themselves.
  struct Rewritten {
    std::vector<Entry> notes = {};
    PeopleChange people = {};                         // made and given first, then removed
    bool is_much = false;                             // more than the people above tell of
    std::shared_ptr<const Schedules> schedules = {};  // null: they are as before
  };

  // In one transaction, for what is more than the other operations tell of: hand over the database, and learn what the
  // function has made of it. Whoever asks whose a card is waits for nothing meanwhile. Nothing is done when the
  // function throws; so does this then.
  void rewrite(const std::function<Rewritten(SQLite::Database&)>& write);

  // Hand over the database as of one moment. The second: false, with nothing done, while somebody else uses it.
  void look(const std::function<void(SQLite::Database&)>& read) const;
  bool look_unless_busy(const std::function<void(SQLite::Database&)>& read) const;

  // How many changes there were since the opening; of its owner.
  std::uint64_t changes() const;

  // The schedules; its owner answers from memory, and waits for nobody's writing.
  std::shared_ptr<const Schedules> schedules() const;

  // Whether that schedule holds then; nothing when there is none of that name.
  std::optional<bool> holds(const std::string& schedule, Schedules::Time time) const;

  // Have these in place of all that there are. Throws Failure, with nothing changed, when a user has one that would go.
  void replace_schedules(const Schedules& schedules);

  // What the journal would be told of that. Throws as it does.
  std::vector<Entry> plan_schedules(const Schedules& schedules) const;

  // False when there is none. Throws as the one before.
  bool remove_schedule(const std::string& name);

  // In the order of their numbers.
  People people() const;
  std::vector<User> users() const;
  std::vector<std::pair<User, std::int64_t>> users_with_cards() const;  // with how many
  std::vector<Card> cards() const;
  std::optional<User> user(std::int64_t id) const;

  // A part of them, for a screen.
  FoundPeople find(const PeopleSearch& search) const;

  // Called with what the journal is to know of a change, once that is on the disk, in the order of the changes, on the
  // thread that made it. It must not call this store. To be set before other threads use the store.
  void on_change(std::function<void(const Entry&)> callback);

  // Called, with the store locked, when a card is asked for that, or whose user, is not as it was written; to be set
  // before other threads use the store.
  void on_damage(std::function<void(const std::string&)> callback);

  // What was wrong with the file when it was opened, a line each.
  const std::vector<std::string>& faults() const;

  // Examine all of DIRECTORY/users.db, also while a host writes there.
  static refhost::StoreReport inspect(const std::filesystem::path& directory);

  // Close the file for good, at the end of the process. A thread that calls from now on waits for that end.
  void seal();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace achost
