// What the door is to be like, from whoever keeps many of them: taken as a whole or not at all, and held against what
// somebody has changed at the door since.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "door/services/desired_change.h"
#include "door/services/desired_document.h"
#include "door/services/user_store.h"
#include "refhost/settings_store.h"

namespace achost {

// The settings, which are in a file of their own.
struct SettingsAccess {
  std::function<std::string(const std::string& section, const std::string& key)> value;
  std::function<void(const std::vector<refhost::SettingValue>&)> store;  // all or none; throws
};

SettingsAccess access_to(refhost::SettingsStore& store);

// Any thread may call. Throws as the stores do.
class DesiredState {
 public:
  DesiredState(UserStore& users, SettingsAccess settings) : users_(users), settings_(std::move(settings)) {}

  // What is taken.
  struct Taken {
    std::int64_t revision = 0;
    std::int64_t at = 0;  // ms since 1970 UTC
    std::string by;
  };

  struct Outcome : DesiredCounts {
    std::int64_t settings = 0;  // that have another value now
  };

  // Take a document in the name of the calling thread's maker. from: it is the difference from that revision, else it
  // is everything: users, cards and schedules that it does not name go, settings stay as they are. Throws Failure, with
  // nothing changed, when the door has another revision, and where a user's schedule is not there.
  //
  // Users and settings are in two files. Before the settings are written, users.db has how they were; the settings are
  // written just before users.db is committed, which forgets that. A crash between the two is found by put_back().
  Outcome take(const DesiredDocument& document, std::int64_t revision, std::optional<std::int64_t> from);

  // The settings of the document that are another value now: what take() is going to store.
  std::vector<refhost::SettingValue> new_settings(const DesiredDocument& document) const;

  // At the start, before anybody looks at the settings: where a document was not taken as a whole, put back the
  // settings that it has changed. Those that somebody has changed since stay, and so do all where they would not go
  // together.
  void put_back();

  // Nothing where no document was taken.
  std::optional<Taken> taken() const;

  // How a user is to be and is; nothing where he is not to be there, or is not.
  struct UserDifference {
    std::int64_t user = 0;
    std::optional<Person> desired;
    std::optional<Person> stored;
  };
  // The same of a "schedule", a "holiday" or a "setting", in words.
  struct TextDifference {
    std::string kind;
    std::string name;
    std::optional<std::string> desired;
    std::optional<std::string> stored;
  };
  using Difference = std::variant<UserDifference, TextDifference>;

  // Each difference that somebody has made since, until the function returns false. It may take its time.
  void each_difference(const std::function<bool(const Difference&)>& tell) const;

  // What a status says. Where users are being changed just now, as it was before: only who asks first waits.
  struct Summary {
    std::optional<std::int64_t> revision;
    std::int64_t differences = 0;
  };
  Summary summary() const;

 private:
  void write_down(const std::vector<refhost::SettingValue>& wanted);
  void put_settings_back();
  UserStore::Rewritten rewrite(SQLite::Database& open, const DesiredDocument& document, std::int64_t revision,
                               std::optional<std::int64_t> from, DesiredCounts& counts) const;
  std::vector<TextDifference> text_differences(SQLite::Database& open) const;
  void count(SQLite::Database& open) const;
  std::int64_t differing(const std::vector<refhost::SettingValue>& settings) const;

  UserStore& users_;
  const SettingsAccess settings_;
  std::mutex taking_;  // held while a document is taken: one at a time

  // What was counted when there had been so many changes of users.
  struct Counted {
    std::optional<std::uint64_t> changes;
    std::optional<std::int64_t> revision;
    std::int64_t differences = 0;  // without those of settings
    std::vector<refhost::SettingValue> settings;
  };
  mutable std::mutex mutex_;  // guards counted_; held while they are counted
  mutable Counted counted_;
};

}  // namespace achost
