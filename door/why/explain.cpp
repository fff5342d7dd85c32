#include "door/why/explain.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string_view>

#include "door/base/door_words.h"

namespace achost::why {
namespace {

using Reasons = std::vector<std::pair<Reason, std::string>>;

// How long after an announcement its identification is written at most, and the opening after that.
constexpr std::int64_t kAtOnce = 2000;  // ms

// How long it holds that a card was said to be there still, which is said again each minute.
constexpr std::int64_t kSaidOfVisits = 60'000 + kAtOnce;

std::string time_text(std::int64_t time) { return local_time(Milliseconds(milliseconds(time)), "%H:%M:%S.%L"); }
std::string day_text(std::int64_t time) { return local_time(Milliseconds(milliseconds(time)), "%Y-%m-%d"); }

std::string field(const JournalEntry& entry, std::string_view name) {
  const auto found = std::ranges::find(entry.entry.fields, name, &EntryField::first);
  const auto* const text = found == entry.entry.fields.end() ? nullptr : std::get_if<std::string>(&found->second);
  return text == nullptr ? "" : *text;
}

std::optional<std::int64_t> number_in(const JournalEntry& entry, std::string_view name) {
  const auto found = std::ranges::find(entry.entry.fields, name, &EntryField::first);
  const auto* const number = found == entry.entry.fields.end() ? nullptr : std::get_if<std::int64_t>(&found->second);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

// A time that the entry has, as a person writes it; "?" where it has none.
std::string time_in(const JournalEntry& entry, std::string_view name) {
  const auto time = number_in(entry, name);
  return time.has_value() ? local_time(Milliseconds(milliseconds(*time)), "%Y-%m-%d %H:%M") : "?";
}

bool is_at_once_after(std::int64_t time, std::int64_t before) { return time >= before - 50 && time < before + kAtOnce; }

std::string times(std::int64_t polls) { return polls == 1 ? "read once" : "read " + std::to_string(polls) + " times"; }

std::string user_text(const std::optional<std::int64_t>& user, const NameOf& name_of) {
  if (!user.has_value()) {
    return "?";
  }
  const auto name = name_of(*user);
  return name.empty() ? std::to_string(*user) : name + " (" + std::to_string(*user) + ")";
}

// What an identification that does not open says.
std::optional<Reason> refusal_of(std::string_view outcome) {
  constexpr std::pair<std::string_view, Reason> kOutcomes[] = {
      {"unknown", Reason::kNobodysCard},
      {"blocked", Reason::kUserBlocked},
      {"not_yet_valid", Reason::kNotYetValid},
      {"no_longer_valid", Reason::kNoLongerValid},
      {"held_back", Reason::kHeldByEnrollment},
      {"failed", Reason::kUsersUnreadable},
      {"mode_awaited", Reason::kModeAwaited},
      {"journal_unwritable", Reason::kJournalUnwritable},
      {"still_here", Reason::kStillHere},
      {"outside_schedule", Reason::kOutsideSchedule},
      {"clock_untrusted", Reason::kClockUntrusted},
      {"too_soon_after_entry", Reason::kTooSoonAfterEntry},
      {"door_locked", Reason::kDoorLocked},
  };
  const auto* const found = std::ranges::find(kOutcomes, outcome, &std::pair<std::string_view, Reason>::first);
  return found == std::end(kOutcomes) ? std::nullopt : std::optional(found->second);
}

// Whether it is known what became of a reading.
bool is_judged(const Reasons& reasons) { return reasons.front().first != Reason::kSettingsUnknown; }

// One question's look at the evidence.
class Explainer {
 public:
  Explainer(const Question& question, const Evidence& evidence, const NameOf& name_of)
      : question_(question), evidence_(evidence), name_of_(name_of) {}

  Explanation explain() {
    add_sightings();
    add_other_entries();
    Explanation result;
    std::ranges::stable_sort(lines_, {}, &TimelineLine::time);
    if (chosen_.has_value()) {
      answer_by(*chosen_, result);
    } else {
      answer_without_reading(result);
    }
    result.timeline = std::move(lines_);
    return result;
  }

 private:
  // A fate of the card, with what the door made of it.
  struct Reading {
    std::int64_t time = 0;
    Card card = 0;
    bool opened = false;
    bool was_announced = false;
    std::optional<std::int64_t> user;
    Reasons reasons;
    std::int64_t to = 0;
  };

  bool is_asked_for(const ToldSighting& sighting) const {
    const bool is_its = question_.card.has_value() ? sighting.card == *question_.card : sighting.epc == question_.epc;
    return is_its && sighting.first < question_.to && sighting.last >= question_.from;
  }

  void add_sightings() {
    for (const ToldSighting& sighting : evidence_.sightings) {
      if (is_asked_for(sighting)) {
        for (const ToldFate& fate : sighting.fates) {
          add_fate(sighting, fate);
        }
      }
    }
  }

  void add_fate(const ToldSighting& sighting, const ToldFate& fate) {
    if (fate.reasons.empty() || fate.from >= question_.to || fate.to < question_.from) {
      return;
    }
    Reading reading{.time = fate.from,
                    .card = sighting.card,
                    .was_announced = fate.is_announcement(),
                    .user = {},
                    .reasons = fate.reasons,
                    .to = fate.to};
    if (reading.was_announced) {
      follow(reading);
    }
    std::string text = times(std::max<std::int64_t>(fate.polls, 1)) +
                       (fate.polls > 1 ? " until " + time_text(fate.to) : "") + ", RSSI " +
                       std::to_string(sighting.rssi) + "; ";
    text += reading.was_announced ? "announced" : is_judged(fate.reasons) ? "not announced" : "announced or not";
    text += fate.at_boundary ? " (at the boundary)" : "";
    if (fate.announced_from.has_value() && !reading.reasons.empty()) {
      reading.reasons.front().second += "; it would have been from " + time_text(*fate.announced_from) + " on";
    }
    auto reasons = reading.reasons;
    if (reading.was_announced && reasons.size() > 1) {
      reasons.erase(reasons.begin());  // that it was is said
    }
    lines_.push_back({.time = fate.from, .text = text, .reasons = std::move(reasons)});
    choose(std::move(reading));
  }

  // What the identification and the door did about an announcement.
  void follow(Reading& reading) {
    const auto is_its = [&](const JournalEntry& entry) {
      return entry.entry.kind == Kind::identification && entry.entry.card == reading.card &&
             is_at_once_after(entry.time.wall, reading.to);
    };
    auto found = std::ranges::find_if(evidence_.entries, is_its);
    if (found == evidence_.entries.end() && (found = still_here_at(reading)) == evidence_.entries.end()) {
      return;
    }
    reading.user = found->entry.user;
    if (!add_refusals(*found, reading.reasons)) {
      follow_to_door(reading, found);
    }
  }

  // Of a card that stays it is said now and then that it does: the identification that said so last.
  std::vector<JournalEntry>::const_iterator still_here_at(const Reading& reading) const {
    const auto end = evidence_.entries.end();
    auto last = end;
    for (auto entry = evidence_.entries.begin(); entry != end && entry->time.wall <= reading.to; ++entry) {
      if (entry->entry.kind == Kind::identification && entry->entry.card == reading.card) {
        last = entry;
      }
    }
    const bool is_said =
        last != end && reading.to - last->time.wall < kSaidOfVisits && field(*last, "outcome") == "still_here";
    return is_said ? last : end;
  }

  // All that held the card back, the decisive one first. Whether there was any.
  bool add_refusals(const JournalEntry& identification, Reasons& reasons) const {
    const auto before = reasons.size();
    std::istringstream outcomes(field(identification, "outcome") + " " + field(identification, "also"));
    for (std::string outcome; outcomes >> outcome;) {
      if (const auto refusal = refusal_of(outcome)) {
        reasons.emplace_back(*refusal, refusal_text(*refusal, identification));
      }
    }
    return reasons.size() > before;
  }

  std::string refusal_text(Reason refusal, const JournalEntry& entry) const {
    constexpr std::pair<Reason, const char*> kTimes[] = {{Reason::kOutsideSchedule, "next"},
                                                         {Reason::kTooSoonAfterEntry, "pause_ends"},
                                                         {Reason::kClockUntrusted, "clock_known"}};
    const auto* const time = std::ranges::find(kTimes, refusal, &std::pair<Reason, const char*>::first);
    auto since = time_in(entry, time == std::end(kTimes) ? "from" : time->second);
    if (refusal == Reason::kOutsideSchedule && since == "?") {
      since = "no time within a year";
    }
    if (const auto here = number_in(entry, "here_since"); refusal == Reason::kStillHere && here.has_value()) {
      since = time_text(*here);
    }
    const auto away = number_in(entry, "away_time");
    return sentence(refusal, {{"user", user_text(entry.entry.user, name_of_)},
                              {"since", since},
                              {"until", time_in(entry, "until")},
                              {"value", away.has_value() ? std::to_string(*away) + " ms" : "?"},
                              {"text", field(entry, refusal == Reason::kOutsideSchedule ? "schedule" : "reason")}});
  }

  void follow_to_door(Reading& reading, std::vector<JournalEntry>::const_iterator identification) {
    const auto kind_is = [](Kind kind) {
      return [kind](const JournalEntry& entry) { return entry.entry.kind == kind; };
    };
    const auto end = evidence_.entries.end();
    const auto soon = std::find_if(identification, end, [&](const JournalEntry& entry) {
      return !is_at_once_after(entry.time.wall, identification->time.wall);
    });
    const auto refusal = std::find_if(identification, soon, kind_is(Kind::refusal));
    auto opening = std::find_if(identification, soon, kind_is(Kind::opening));
    if (opening == soon) {
      opening = refusal == soon ? open_since(identification) : soon;
    }
    if (refusal != soon && opening == soon) {
      reading.reasons.emplace_back(Reason::kRelayOfDetector, sentence(Reason::kRelayOfDetector, {}));
      return;
    }
    if (opening == end || opening == soon) {
      return;
    }
    reading.opened = true;
    const auto closing = std::find_if(opening, end, kind_is(Kind::closing));
    const Facts facts{{"since", time_text(opening->time.wall)},
                      {"until", closing == end ? "now" : time_text(closing->time.wall)}};
    reading.reasons.emplace_back(Reason::kRelayOn, sentence(Reason::kRelayOn, facts));
    add_use(opening, reading.reasons);
  }

  // What the door's contact has said of an opening; nothing where there is none.
  void add_use(std::vector<JournalEntry>::const_iterator opening, Reasons& reasons) const {
    const auto next = std::find_if(std::next(opening), evidence_.entries.end(),
                                   [](const JournalEntry& entry) { return entry.entry.kind == Kind::opening; });
    const auto use = std::find_if(opening, next, [](const JournalEntry& entry) {
      const auto state = entry.entry.kind == Kind::contact ? field(entry, "state") : "";
      return state == "opened" || state == "not_used";
    });
    if (use != next) {
      const auto reason = field(*use, "state") == "opened" ? Reason::kDoorOpened : Reason::kDoorNotUsed;
      reasons.emplace_back(reason, sentence(reason, {{"since", time_text(use->time.wall)}}));
    }
  }

  // The opening that stands at an entry; the end when the door is shut then.
  std::vector<JournalEntry>::const_iterator open_since(std::vector<JournalEntry>::const_iterator entry) const {
    while (entry != evidence_.entries.begin()) {
      --entry;
      if (entry->entry.kind == Kind::closing) {
        break;
      }
      if (entry->entry.kind == Kind::opening) {
        return entry;
      }
    }
    return evidence_.entries.end();
  }

  // The nearest to the time asked for; else the last announcement, or the last reading where there is none.
  void choose(Reading reading) {
    const auto distance = [&](const Reading& one) {
      return *question_.at < one.time ? one.time - *question_.at : std::max<std::int64_t>(*question_.at - one.to, 0);
    };
    const bool is_better =
        !chosen_.has_value() || (question_.at.has_value() ? distance(reading) < distance(*chosen_)
                                                          : std::pair(reading.was_announced, reading.time) >=
                                                                std::pair(chosen_->was_announced, chosen_->time));
    if (is_better) {
      chosen_ = std::move(reading);
    }
  }

  // What else happened then.
  void add_other_entries() {
    for (const JournalEntry& entry : evidence_.entries) {
      const auto time = entry.time.wall;
      if (time < question_.from || time >= question_.to) {
        continue;
      }
      switch (entry.entry.kind) {
        case Kind::reader_state: {
          const auto cause = field(entry, "cause");
          lines_.push_back({.time = time,
                            .text = "the reader is " + field(entry, "state") + (cause.empty() ? "" : ": " + cause),
                            .reasons = {}});
          break;
        }
        case Kind::contact:
          lines_.push_back({.time = time, .text = "the door " + contact_words(field(entry, "state")), .reasons = {}});
          break;
        case Kind::mode:
          lines_.push_back({.time = time,
                            .text = "the door " + mode_words(field(entry, "mode"), field(entry, "asked")),
                            .reasons = {}});
          break;
        case Kind::start:
          lines_.push_back({.time = time, .text = "the door daemon begins", .reasons = {}});
          break;
        case Kind::end:
          lines_.push_back({.time = time, .text = "the door daemon ends", .reasons = {}});
          break;
        default:
          break;
      }
    }
  }

  std::string card_text() const {
    return question_.card.has_value() ? "Card " + std::to_string(*question_.card) : "The tag " + question_.epc;
  }

  void answer_by(const Reading& reading, Explanation& result) const {
    const std::string at = " at " + time_text(reading.time);
    const std::string of = reading.user.has_value() ? " of " + user_text(reading.user, name_of_) : "";
    result.opened = reading.opened;
    result.reasons = reading.reasons;
    if (reading.was_announced && result.reasons.size() > 1) {
      std::rotate(result.reasons.begin(), result.reasons.begin() + 1,
                  result.reasons.end());  // what became of it decides
    }
    const auto& decisive = result.reasons.front().second;
    if (reading.opened) {
      result.answer = card_text() + of + " opened the door" + at + ": " + decisive + ".";
    } else if (reading.was_announced) {
      result.answer = card_text() + of + " did not open the door" + at + ": " +
                      (result.reasons.size() > 1 ? decisive : decisive + ", and what became of it is not known") + ".";
    } else {
      const char* const fate = is_judged(reading.reasons) ? " and not announced: " : ": ";
      result.answer = card_text() + " was read" + at + fate + decisive + ".";
    }
  }

  void answer_without_reading(Explanation& result) const {
    const auto asked = question_.at.value_or(question_.to - 1);
    auto hindrances = hindrances_to_reading();
    const auto held_then = std::stable_partition(hindrances.begin(), hindrances.end(), [asked](const Hindrance& one) {
      return one.from <= asked && asked < one.to;
    });
    const auto add = [&](const Hindrance& one) { result.reasons.emplace_back(one.reason, one.text); };
    std::for_each(hindrances.begin(), held_then, add);
    result.reasons.emplace_back(Reason::kNeverInField, sentence(Reason::kNeverInField, {}));
    std::for_each(held_then, hindrances.end(), add);
    result.answer = card_text() + " was not read between " + day_text(question_.from) + " " +
                    time_text(question_.from) + " and " + time_text(question_.to) + ": " +
                    result.reasons.front().second + ".";
  }

  // Why no reading can have been made for a time.
  struct Hindrance {
    Reason reason;
    std::string text;
    std::int64_t from = 0;
    std::int64_t to = 0;
  };

  // Those that reach into the time asked for.
  std::vector<Hindrance> hindrances_to_reading() const {
    std::vector<Hindrance> all;
    const auto& entries = evidence_.entries;
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
      const auto next = [&](std::initializer_list<Kind> kinds) {
        const auto found = std::find_if(std::next(entry), entries.end(), [&](const JournalEntry& other) {
          return std::ranges::find(kinds, other.entry.kind) != kinds.end();
        });
        return found == entries.end() ? question_.to : found->time.wall;
      };
      if (entry->entry.kind == Kind::end) {
        all.push_back(not_running(entry->time.wall, next({Kind::start})));
      } else if (entry->entry.kind == Kind::start && field(*entry, "run_before") != "ended") {
        // It is known to have lived until the entry before.
        const auto since = entry == entries.begin() ? question_.from : std::prev(entry)->time.wall;
        all.push_back(not_running(since, entry->time.wall));
      } else if (const auto reason = bad_state(*entry)) {
        all.push_back(
            {.reason = *reason,
             .text = sentence(*reason, {{"since", time_text(entry->time.wall)}, {"text", cause_of(*reason, *entry)}}),
             .from = entry->time.wall,
             .to = next({Kind::reader_state, Kind::end, Kind::start})});
      }
    }
    std::erase_if(all, [this](const Hindrance& one) { return one.to <= question_.from || one.from >= question_.to; });
    return all;
  }

  // In words that the reason's sentence takes: of a reader that is lent, to whom.
  static std::string cause_of(Reason reason, const JournalEntry& entry) {
    constexpr std::string_view kLentTo = "lent to ";
    const auto cause = field(entry, "cause");
    if (reason != Reason::kReaderLent) {
      return cause;
    }
    return cause.starts_with(kLentTo) ? cause.substr(kLentTo.size()) : "somebody, who gives it back,";
  }

  static Hindrance not_running(std::int64_t from, std::int64_t to) {
    return {.reason = Reason::kNotRunning,
            .text = sentence(Reason::kNotRunning, {{"since", time_text(from)}, {"until", time_text(to)}}),
            .from = from,
            .to = to};
  }

  // Nothing for an entry that is none, or of a good state.
  static std::optional<Reason> bad_state(const JournalEntry& entry) {
    constexpr std::pair<std::string_view, Reason> kStates[] = {{"silent", Reason::kReaderSilent},
                                                               {"noisy", Reason::kReaderNoisy},
                                                               {"gone", Reason::kReaderGone},
                                                               {"lent", Reason::kReaderLent}};
    const auto state = entry.entry.kind == Kind::reader_state ? field(entry, "state") : "";
    const auto* const found = std::ranges::find(kStates, state, &std::pair<std::string_view, Reason>::first);
    return found == std::end(kStates) ? std::nullopt : std::optional(found->second);
  }

  const Question& question_;
  const Evidence& evidence_;
  const NameOf& name_of_;
  std::vector<TimelineLine> lines_;
  std::optional<Reading> chosen_;
};

}  // namespace

Explanation explain(const Question& question, const Evidence& evidence, const NameOf& name_of) {
  return Explainer(question, evidence, name_of).explain();
}

std::string text_of(const Explanation& explanation, const std::string& today) {
  std::string text = explanation.answer + "\n";
  const std::string indent(14, ' ');
  std::string day = today;
  text += explanation.timeline.empty() ? "" : "\n";
  for (const TimelineLine& line : explanation.timeline) {
    if (const auto its = day_text(line.time); its != day) {
      day = its;
      text += day + "\n";
    }
    text += time_text(line.time) + "  " + line.text + (line.reasons.empty() ? "" : ":") + "\n";
    for (const auto& [reason, words] : line.reasons) {
      text += indent + words + "\n";
    }
  }
  return text;
}

nlohmann::ordered_json json_of(const Explanation& explanation) {
  using Json = nlohmann::ordered_json;
  const auto list = [](const Reasons& reasons) {
    Json all = Json::array();
    for (const auto& [reason, text] : reasons) {
      all.push_back({{"code", row_of(reason).name}, {"text", text}});
    }
    return all;
  };
  Json timeline = Json::array();
  for (const TimelineLine& line : explanation.timeline) {
    timeline.push_back({{"time", iso_time(Milliseconds(milliseconds(line.time)))},
                        {"text", line.text},
                        {"reasons", list(line.reasons)}});
  }
  return {{"answer", explanation.answer},
          {"opened", explanation.opened},
          {"reasons", list(explanation.reasons)},
          {"timeline", timeline}};
}

}  // namespace achost::why
