#include "door/services/desired_state.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <utility>

#include "door/base/failure.h"
#include "door/base/maker.h"
#include "door/journal/changes.h"
#include "door/services/desired_rows.h"
#include "door/services/schedule_text.h"
#include "door/services/user_rows.h"
#include "refhost/log.h"

namespace achost {
namespace {

std::int64_t now() {
  const auto time = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

// For whom it is, or else who brings it.
std::string maker() {
  const auto* const maker = MakerScope::current();
  return maker == nullptr ? "" : maker->behalf.empty() ? maker->name : maker->behalf;
}

// What each schedule and holiday says, by its kind and name.
std::map<std::pair<std::string, std::string>, std::string> texts_by_subject(const Schedules& schedules) {
  std::map<std::pair<std::string, std::string>, std::string> texts;
  for (const auto& schedule : schedules.all) {
    auto& text = texts[{"schedule", schedule.name}];
    for (const auto& window : schedule.windows) {
      text += (text.empty() ? "" : ", ") + text_of(window);
    }
  }
  for (const auto& holiday : schedules.holidays) {
    texts[{"holiday", text_of(holiday.day)}] = holiday.name;
  }
  return texts;
}

}  // namespace

SettingsAccess access_to(refhost::SettingsStore& store) {
  return {.value = [&store](const std::string& section,
                            const std::string& key) { return store.get(section, key).value_or(""); },
          .store = [&store](const std::vector<refhost::SettingValue>& values) { store.set(values); }};
}

std::vector<refhost::SettingValue> DesiredState::new_settings(const DesiredDocument& document) const {
  std::vector<refhost::SettingValue> wanted;
  std::ranges::copy_if(document.settings, std::back_inserter(wanted), [this](const refhost::SettingValue& one) {
    return settings_.value(one.section, one.key) != one.value;
  });
  return wanted;
}

DesiredState::Outcome DesiredState::take(const DesiredDocument& document, std::int64_t revision,
                                         std::optional<std::int64_t> from) {
  const std::lock_guard lock(taking_);
  put_settings_back();
  const auto wanted = new_settings(document);
  Outcome outcome{{}, static_cast<std::int64_t>(wanted.size())};
  write_down(wanted);
  try {
    users_.rewrite([&](SQLite::Database& open) {
      auto done = rewrite(open, document, revision, from, outcome);
      settings_.store(wanted);
      return done;
    });
  } catch (...) {
    try {
      put_settings_back();
    } catch (const std::exception& failure) {
      refhost::log::error(std::string("what was taken of a desired state cannot be put back yet: ") + failure.what());
    }
    throw;
  }
  return outcome;
}

UserStore::Rewritten DesiredState::rewrite(SQLite::Database& open, const DesiredDocument& document,
                                           std::int64_t revision, std::optional<std::int64_t> from,
                                           DesiredCounts& counts) const {
  const auto before = rows::desired(open);
  if (from.has_value() && (!before.has_value() || before->revision != *from)) {
    throw Failure(kFailed, "this is the difference from revision " + std::to_string(*from) + ", and the door has " +
                               (before.has_value() ? std::to_string(before->revision) : "none") +
                               ": send the whole document");
  }
  rows::forget_desired(open);  // what it changes itself is no difference
  auto done = make_as_desired(open, document, from.has_value(), counts);
  rows::remove_desired_settings(open, document.settings_removed);
  rows::put_desired_settings(open, document.settings);
  rows::put_desired(open, {.revision = revision,
                           .at = now(),
                           .maker = maker(),
                           .schedules = document.schedules.has_value() ? schedules_as_text(*document.schedules)
                                        : from.has_value()             ? before->schedules
                                                                       : ""});
  rows::forget_settings_before(open);
  done.notes.push_back(command_given("desired", {{"revision", revision}}));
  return done;
}

void DesiredState::write_down(const std::vector<refhost::SettingValue>& wanted) {
  if (wanted.empty()) {
    return;
  }
  users_.rewrite([&](SQLite::Database& open) {
    for (const auto& [section, key, value] : wanted) {
      rows::put_setting_before(open, {.setting = {section, key, settings_.value(section, key)}, .wanted = value});
    }
    return UserStore::Rewritten{};
  });
}

void DesiredState::put_back() try {
  const std::lock_guard lock(taking_);
  put_settings_back();
} catch (const refhost::SettingError& failure) {
  refhost::log::error(std::string("settings of a desired state that was not taken are left as they are: ") +
                      failure.what());
}

void DesiredState::put_settings_back() {
  std::vector<rows::SettingBefore> before;
  users_.look([&](SQLite::Database& open) { before = rows::settings_before(open); });
  if (before.empty()) {
    return;
  }
  std::vector<refhost::SettingValue> old;
  for (const auto& [setting, wanted] : before) {
    if (settings_.value(setting.section, setting.key) == wanted) {
      old.push_back(setting);
    }
  }
  settings_.store(old);
  users_.rewrite([](SQLite::Database& open) {
    rows::forget_settings_before(open);
    return UserStore::Rewritten{};
  });
}

std::optional<DesiredState::Taken> DesiredState::taken() const {
  std::optional<rows::Desired> desired;
  users_.look([&](SQLite::Database& open) { desired = rows::desired(open); });
  return desired.has_value() ? std::optional(Taken{desired->revision, desired->at, desired->maker}) : std::nullopt;
}

std::vector<DesiredState::TextDifference> DesiredState::text_differences(SQLite::Database& open) const {
  std::vector<TextDifference> all;
  const auto desired = rows::desired(open);
  if (!desired.has_value() || desired->schedules.empty()) {
    return all;
  }
  auto stored = texts_by_subject(rows::schedules(open));
  for (const auto& [subject, text] : texts_by_subject(parse_schedules(desired->schedules, "users.db"))) {
    const auto found = stored.extract(subject);
    const auto now = found.empty() ? std::nullopt : std::optional(found.mapped());
    if (now != text) {
      all.push_back({subject.first, subject.second, text, now});
    }
  }
  for (const auto& [subject, text] : stored) {
    all.push_back({subject.first, subject.second, std::nullopt, text});
  }
  return all;
}

void DesiredState::each_difference(const std::function<bool(const Difference&)>& tell) const {
  std::vector<std::int64_t> users;
  std::vector<TextDifference> texts;
  users_.look([&](SQLite::Database& open) {
    if (rows::desired(open).has_value()) {
      users = rows::changed_users(open);
      texts = text_differences(open);
      for (const auto& [section, key, value] : rows::desired_settings(open)) {
        if (const auto stored = settings_.value(section, key); stored != value) {
          texts.push_back({"setting", section + "." + key, value, stored});
        }
      }
    }
  });
  for (const auto user : users) {
    UserDifference difference{.user = user, .desired = {}, .stored = {}};
    users_.look([&](SQLite::Database& open) {
      difference.desired = rows::desired_person(open, user);
      difference.stored = rows::stored_person(open, user);
    });
    if (difference.desired != difference.stored && !tell(difference)) {  // it may be taken back by now
      return;
    }
  }
  std::ranges::all_of(texts, tell);
}

std::int64_t DesiredState::differing(const std::vector<refhost::SettingValue>& settings) const {
  return std::ranges::count_if(settings,
                               [this](const auto& one) { return settings_.value(one.section, one.key) != one.value; });
}

// With mutex_ held.
void DesiredState::count(SQLite::Database& open) const {
  Counted counted;
  counted.changes = users_.changes();
  if (const auto desired = rows::desired(open)) {
    counted.revision = desired->revision;
    counted.differences = rows::count_changed_users(open) + static_cast<std::int64_t>(text_differences(open).size());
    counted.settings = rows::desired_settings(open);
  }
  counted_ = std::move(counted);
}

DesiredState::Summary DesiredState::summary() const {
  const std::lock_guard lock(mutex_);
  const auto read = [this](SQLite::Database& open) { count(open); };
  if (!counted_.changes.has_value()) {
    users_.look(read);
  } else if (*counted_.changes != users_.changes()) {
    users_.look_unless_busy(read);
  }
  return {.revision = counted_.revision, .differences = counted_.differences + differing(counted_.settings)};
}

}  // namespace achost
