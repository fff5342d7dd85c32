// Changes of settings, from the store to whoever has to act on them.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "door/services/alarms.h"
#include "door/services/announcements.h"
#include "refhost/settings_store.h"

namespace achost {

// A change is stored, and announced on the bus; it is in force once every handler of the announcement has run. Until
// then the setting is awaited. A handler that fails is told again, after a second and then ever more seldom, and an
// alarm with the setting's name stands meanwhile. Whoever has not taken a change hears of the next one after it, so
// each hears of all of them in their order, and nobody of one twice whose handlers have run.
//
// An audit record is written by a handler, perhaps before the part of it that fails: a handler during which
// refhost::Delivery::mark() was called is told again with the new value as the previous one too, of which no record is
// written. One that could not write its record is told of the change as it was, so that the record comes.
//
// Any thread may call.
class SettingsChanges {
 public:
  // A setting that is stored, but not in force as far as is known.
  struct Awaited {
    std::string section;
    std::string key;
    std::string stored;
    std::string in_force;  // what everybody had taken before
    std::string reason;    // who has failed, and why; empty while the handlers are under way
  };

  // Takes the store's on_change. Both must outlive it.
  SettingsChanges(refhost::SettingsStore& store, Alarms& alarms, RetryTimes times = {});
  ~SettingsChanges();
  SettingsChanges(const SettingsChanges&) = delete;
  SettingsChanges& operator=(const SettingsChanges&) = delete;

  // Called for each change that is stored, on the thread that made it; it must not call this. To be set before other
  // threads change settings.
  void on_stored(std::function<void(const refhost::SettingsStore::Change&)> callback);

  // The plug-in hears of changes from now on; before, none is made by change(), as it would never hear of that.
  void plugin_has_started();

  // Store the values, all or none, and wait until they are in force, a handler has failed, or the time for an answer is
  // over. Returns those that are not in force, each with its reason. Of a value that is stored already, but awaited, it
  // lets the handlers try again at once. Throws what SettingsStore::set() throws, and Failure when the plug-in has not
  // started in that time: nothing is stored then.
  std::vector<Awaited> change(const std::vector<refhost::SettingValue>& wanted);

  // All that are awaited; that setting, if it is.
  std::vector<Awaited> awaited() const;
  std::optional<Awaited> awaited(const std::string& section, const std::string& key) const;

 private:
  struct Impl;
  const std::unique_ptr<Impl> impl_;
};

// "setting uhf.operation_mode is stored as inhibit, but not in force (continuous is): uhf: ...", or "..., but not
// everybody has taken that: uhf: ..." where it is in force all the same.
std::string text_of(const SettingsChanges::Awaited& awaited);

}  // namespace achost
