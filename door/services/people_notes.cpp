#include "door/services/people_notes.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <string>

#include "door/base/local_time.h"
#include "door/journal/changes.h"

namespace achost {
namespace {

std::string text_or_none(const std::string& text) { return text.empty() ? "none" : text; }

std::string limit(std::int64_t time) {
  return time == 0 ? "none" : iso_time(Milliseconds(std::chrono::milliseconds(time)));
}

std::vector<EntryField> differences(const User& before, const User& after) {
  std::vector<EntryField> fields;
  const auto add = [&](auto member, const char* name, const auto& text) {
    if (before.*member != after.*member) {
      fields.emplace_back(name, text(after.*member));
    }
  };
  add(&User::name, "name", text_or_none);
  add(&User::from, "from", limit);
  add(&User::until, "until", limit);
  add(&User::blocked, "blocked", [](bool blocked) { return blocked ? "yes" : "no"; });
  add(&User::schedule, "schedule", text_or_none);
  add(&User::pause, "pause", [](std::int64_t pause) { return pause == 0 ? "none" : text_of_pause(pause); });
  return fields;
}

bool is_only(const std::vector<EntryField>& fields, const char* name) {
  return fields.size() == 1 && fields.front().first == name;
}

// In a table in the order of the numbers; nothing when it is not there.
template <typename Value, typename Number>
std::optional<Value> found(const std::vector<Value>& table, Number number, Number Value::*of) {
  const auto place = std::ranges::lower_bound(table, number, {}, of);
  return place == table.end() || std::invoke(of, *place) != number ? std::nullopt : std::optional(*place);
}

std::int64_t count(std::size_t number) { return static_cast<std::int64_t>(number); }

void add_to(std::vector<Entry>& notes, std::vector<Entry> more) { std::ranges::move(more, std::back_inserter(notes)); }

std::vector<Entry> notes_of(const std::optional<Card>& before, const Card& after) {
  std::vector<Entry> notes;
  if (before.has_value() && before->user != after.user) {
    notes.push_back(card_change("removed", before->value, before->user));
  }
  const bool is_his = before.has_value() && before->user == after.user;
  notes.push_back(card_change(is_his ? "changed" : "added", after.value, after.user));
  return notes;
}

Entry note_of_many(const PeopleChange& change) {
  return user_change("imported", {},
                     {{"users", count(change.users.size())},
                      {"users_removed", count(change.users_removed.size())},
                      {"cards", count(change.cards.size())},
                      {"cards_removed", count(change.cards_removed.size())}});
}

// By its name, what a schedule or a holiday says.
using Texts = std::map<std::string, std::string>;

Texts texts_of(const std::vector<Schedule>& schedules) {
  Texts texts;
  for (const auto& schedule : schedules) {
    auto& text = texts[schedule.name];
    for (const auto& window : schedule.windows) {
      text += (text.empty() ? "" : ", ") + text_of(window);
    }
  }
  return texts;
}

Texts texts_of(const std::vector<Holiday>& holidays) {
  Texts texts;
  for (const auto& holiday : holidays) {
    texts[text_of(holiday.day)] = holiday.name;
  }
  return texts;
}

// kind: what it is, and the name of its field.
std::vector<Entry> notes_of(const char* kind, const Texts& before, const Texts& after) {
  std::vector<Entry> notes;
  for (const auto& [name, text] : before) {
    if (!after.contains(name)) {
      notes.push_back(schedule_change("removed", {{kind, name}}));
    }
  }
  for (const auto& [name, text] : after) {
    const auto old = before.find(name);
    if (old == before.end() || old->second != text) {
      notes.push_back(schedule_change(old == before.end() ? "made" : "changed", {{kind, name}, {"text", text}}));
    }
  }
  return notes;
}

}  // namespace

std::vector<Entry> notes_of(const std::optional<User>& before, const User& after) {
  auto fields = differences(before.value_or(User{.id = after.id}), after);
  if (!before.has_value()) {
    return {user_change("made", after.id, std::move(fields))};
  }
  if (fields.empty()) {
    return {};
  }
  if (is_only(fields, "blocked")) {
    return {user_change(after.blocked ? "blocked" : "unblocked", after.id)};
  }
  return {user_change("changed", after.id, std::move(fields))};
}

std::vector<Entry> notes_of_removal(const User& user, const std::vector<std::uint64_t>& cards) {
  std::vector<Entry> notes;
  if (cards.size() <= kMostSingleNotes) {
    for (const auto card : cards) {
      notes.push_back(card_change("removed", card, user.id));
    }
  }
  notes.push_back(user_change("removed", user.id, {{"name", text_or_none(user.name)}, {"cards", count(cards.size())}}));
  return notes;
}

std::vector<Entry> notes_of(const People& before, const PeopleChange& change) {
  const auto size = [](const auto&... parts) { return (parts.size() + ...); };
  if (size(change.cards_removed, change.users_removed, change.users, change.cards) > kMostSingleNotes) {
    return {note_of_many(change)};
  }
  std::vector<Entry> notes;
  for (const auto value : change.cards_removed) {
    const auto card = found(before.cards, value, &Card::value);
    notes.push_back(card_change("removed", value, card.has_value() ? std::optional(card->user) : std::nullopt));
  }
  for (const auto id : change.users_removed) {
    const auto user = found(before.users, id, &User::id);
    notes.push_back(user_change("removed", id, {{"name", text_or_none(user.has_value() ? user->name : "")}}));
  }
  for (const auto& user : change.users) {
    add_to(notes, notes_of(found(before.users, user.id, &User::id), user));
  }
  for (const auto& card : change.cards) {
    add_to(notes, notes_of(found(before.cards, card.value, &Card::value), card));
  }
  return notes;
}

std::vector<Entry> notes_of(const Schedules& before, const Schedules& after) {
  auto notes = notes_of("schedule", texts_of(before.all), texts_of(after.all));
  add_to(notes, notes_of("holiday", texts_of(before.holidays), texts_of(after.holidays)));
  if (notes.size() > kMostSingleNotes) {
    return {schedule_change("imported",
                            {{"schedules", count(after.all.size())}, {"holidays", count(after.holidays.size())}})};
  }
  return notes;
}

}  // namespace achost
