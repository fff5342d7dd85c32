#include "door/why/recollection.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <deque>
#include <fstream>
#include <utility>

#include "door/base/failure.h"
#include "door/why/noted_message.h"
#include "door/why/standing.h"
#include "line/recorded_conversation.h"
#include "line/recording.h"

namespace achost::why {
namespace {

using line::Recorded;
using std::chrono::seconds;

// Where the times of a recording count from that does not say when it was made.
Milliseconds some_midnight() {
  std::tm parts{};
  parts.tm_year = 70;
  parts.tm_mday = 2;
  parts.tm_isdst = -1;
  return Milliseconds(seconds(std::mktime(&parts)));
}

// Nobody knows the rules.
WitnessSettings no_settings() { return {.rules = {.operation_mode = Mode::kUnknown}, .reader_type = {}}; }

// What the message says of a decision, as the journal has it.
std::vector<EntryField> facts_of(const NotedMessage& decision) {
  std::vector<EntryField> fields{{"outcome", std::string(decision.word("outcome"))}};
  static constexpr std::array kNames = {"also",      "schedule",    "reason", "from",       "until",  "here_since",
                                        "away_time", "clock_known", "next",   "pause_ends", "user_id"};
  constexpr std::size_t kTexts = 3;
  for (std::size_t i = 0; i + 1 < kNames.size(); ++i) {
    const char* const name = kNames.at(i);
    if (auto text = decision.text(name, kNames); i < kTexts && !text.empty()) {
      fields.emplace_back(name, std::move(text));
    } else if (const auto number = decision.number(name); i >= kTexts && number.has_value()) {
      fields.emplace_back(name, *number);
    }
  }
  return fields;
}

class Recall {
 public:
  explicit Recall(const Question& question) : question_(question) {}

  void take(const Recorded& one, const std::optional<line::Beginning>& beginning);
  Recollection end();

 private:
  void begin(const std::optional<line::Beginning>& beginning);
  Milliseconds wall(Time time) const;
  std::int64_t number_of(Time time) const { return wall(time).time_since_epoch().count(); }

  void take_note(const std::string& note, Time at);
  void take_change(const NotedMessage& message, Time at);
  void take_event(const NotedMessage& message, Time at);
  void add_entry(Entry entry, Time at);
  void see_standing(const Standing& standing, Time at);
  void begin_to_explain(const Standing& standing, Time at);
  void begin_witness(const Standing& standing, Time at);
  void keep_unexplained(Sighting sighting);
  void keep(const Sighting& sighting);
  bool is_asked_for(Card card, const std::string& epc) const {
    return question_.card.has_value() ? card == *question_.card : epc == question_.epc;
  }
  void say_what_is_unknown();
  std::string known_tags() const;

  const Question& question_;
  Recollection result_;
  Time begin_{};
  Time latest_{};
  Time latest_bytes_{};
  Milliseconds begin_wall_{};
  std::chrono::microseconds begin_rest_{0};  // of begin_wall_
  bool has_begun_ = false;
  bool has_wall_ = false;
  bool is_exact_ = false;

  line::RecordedConversation conversation_{[this](const line::Exchange& exchange) { witness_->saw(exchange); }};

  std::optional<Witness> witness_;
  std::optional<Time> explained_from_;
  SettingTexts settings_;
  SettingTexts noted_settings_;  // all changes that the recording has
  std::optional<int> level_;
  int trigger_line_ = -1;
  std::deque<std::pair<Time, std::string>> early_;  // changes before it is known how things stood
  std::vector<Sighting> unexplained_;
  std::optional<Time> notes_missing_;  // the first time,
  bool may_have_missed_ = false;       // and since what stood was told last
};

void Recall::begin(const std::optional<line::Beginning>& beginning) {
  constexpr std::chrono::hours kSomeTime(24 * 400);  // since the machine's start; longer than any interval
  has_begun_ = true;
  has_wall_ = beginning.has_value();
  is_exact_ = has_wall_ && beginning->is_exact;
  begin_ = Time(has_wall_ && beginning->clock.has_value() ? Time::duration(*beginning->clock) : kSomeTime);
  begin_wall_ = has_wall_ ? std::chrono::floor<milliseconds>(beginning->wall) : some_midnight();
  begin_rest_ = has_wall_ ? beginning->wall - begin_wall_ : std::chrono::microseconds(0);
  latest_ = begin_;
  witness_.emplace(
      no_settings(), begin_, [this](const Sighting& sighting) { keep_unexplained(sighting); },
      [](const Disagreement&) {});
}

Milliseconds Recall::wall(Time time) const {
  return begin_wall_ + std::chrono::floor<milliseconds>(time - begin_ + begin_rest_);
}

void Recall::take(const Recorded& one, const std::optional<line::Beginning>& beginning) {
  if (!has_begun_) {
    begin(beginning);
  }
  const Time at = begin_ + one.at;
  latest_ = std::max(latest_, at);
  conversation_.pass(latest_);
  witness_->pass(latest_ - SecondOpinion::kPatience);
  if (one.direction.has_value()) {
    latest_bytes_ = std::max(latest_bytes_, at);
    conversation_.take(*one.direction, one.bytes, latest_bytes_);
  } else {
    take_note(one.note, at);
  }
}

// --- Beside it

void Recall::take_note(const std::string& note, Time at) {
  conversation_.note(note);
  if (note == line::kNotesMissing) {
    notes_missing_ = notes_missing_.value_or(at);
    may_have_missed_ = true;
  } else if (const auto standing = standing_of(note)) {
    see_standing(*standing, at);
  } else {
    take_event(NotedMessage(note), at);
    if (!explained_from_.has_value()) {
      constexpr std::size_t kMostEarly = 256;
      early_.emplace_back(at, note);
      if (early_.size() > kMostEarly) {
        early_.pop_front();
      }
    }
    take_change(NotedMessage(note), at);
  }
}

// What the rules on readings ask for.
void Recall::take_change(const NotedMessage& message, Time at) {
  if (message.is("config_param_set") && message.word("module") == "uhf") {
    const auto name = message.word("param");
    if (std::ranges::find(kSettingNames, name) != std::end(kSettingNames)) {
      const auto value = message.text("value", "previous_value");
      noted_settings_.insert_or_assign(std::string(name), value);
      settings_.insert_or_assign(std::string(name), value);
    }
  }
  if (!explained_from_.has_value()) {
    return;
  }
  const auto value = message.number("value");
  if (message.is("config_param_set") && message.word("module") == "uhf") {
    witness_->apply(settings_of(settings_), at);
  } else if (message.is("identifier_new_card") && value.has_value()) {
    witness_->announced(static_cast<Card>(*value), at);
  } else if (message.is("gpio_notified") && message.number("gpio") == trigger_line_ && value.has_value()) {
    level_ = static_cast<int>(*value);
    witness_->input(level_, at);
  }
}

// What the journal has of it.
void Recall::take_event(const NotedMessage& message, Time at) {
  if (message.is("identifier_decision")) {
    const auto user = message.number("user_id");
    if (const auto name = message.text("user_name"); user.has_value() && !name.empty()) {
      result_.names[*user] = name;
    }
    const auto card = message.number("value");
    if (card.has_value() && (!question_.card.has_value() || static_cast<Card>(*card) == *question_.card)) {
      add_entry(
          {.kind = Kind::identification, .user = user, .card = static_cast<Card>(*card), .fields = facts_of(message)},
          at);
    }
  } else if (message.is("door_state")) {
    add_entry({.kind = message.number("open") == 1 ? Kind::opening : Kind::closing}, at);
  } else if (message.is(kDoorRefused)) {
    add_entry({.kind = Kind::refusal}, at);
  } else if (message.is("reader_state")) {
    Entry entry{.kind = Kind::reader_state, .fields = {{"state", std::string(message.word("state"))}}};
    if (auto cause = message.text("cause", "way_out"); !cause.empty()) {
      entry.fields.emplace_back("cause", std::move(cause));
    }
    add_entry(std::move(entry), at);
  }
}

void Recall::add_entry(Entry entry, Time at) {
  JournalEntry& added = result_.evidence.entries.emplace_back();
  added.time.wall = number_of(at);
  added.entry = std::move(entry);
}

// --- How things stood

void Recall::see_standing(const Standing& standing, Time at) {
  if (!explained_from_.has_value()) {
    begin_to_explain(standing, at);
  } else if (std::exchange(may_have_missed_, false)) {
    settings_ = standing.settings;
    level_ = standing.level;
    witness_->apply(settings_of(settings_), at);
    witness_->input(level_, at);
  }
}

void Recall::begin_to_explain(const Standing& standing, Time at) {
  witness_->pass(at + 2 * SecondOpinion::kPatience);
  witness_->end();
  settings_ = standing.settings;
  for (const auto& [name, value] : noted_settings_) {
    settings_.insert_or_assign(name, value);
  }
  level_ = standing.level;
  trigger_line_ = standing.trigger_line;
  may_have_missed_ = false;
  const bool is_reader_told = std::ranges::any_of(
      result_.evidence.entries, [](const JournalEntry& one) { return one.entry.kind == Kind::reader_state; });
  if (standing.reader.has_value() && !is_reader_told) {
    add_entry(
        {.kind = Kind::reader_state, .fields = {{"state", standing.reader->state}, {"cause", standing.reader->cause}}},
        standing.reader->since);
  }
  begin_witness(standing, at);
  explained_from_ = at;
  for (const auto& [time, note] : std::exchange(early_, {})) {
    if (time > at) {
      take_change(NotedMessage(note), time);
    }
  }
  const auto settings = settings_of(settings_);
  for (Sighting& sighting : unexplained_) {
    sighting.card = card_value(sighting.epc, settings.identification_bits, settings.reader_type);
    keep(sighting);
  }
}

// What happened before counts as if the witness had been there.
void Recall::begin_witness(const Standing& standing, Time at) {
  Time start = at;
  if (!standing.is_start) {
    for (const auto& [time, level] : standing.edges) {
      start = std::min(start, time);
    }
    for (const auto& [time, card] : standing.announced) {
      start = std::min(start, time);
    }
    start -= std::min<Time::duration>(seconds(1), start.time_since_epoch());
  }
  witness_.emplace(
      settings_of(settings_), start, [this](const Sighting& sighting) { keep(sighting); }, [](const Disagreement&) {});
  witness_->answer(standing.edges.empty() ? standing.level : std::optional(1 - standing.edges.front().second), start);
  for (const auto& [time, level] : standing.edges) {
    if (time <= at) {
      witness_->input(level, time);
    }
  }
  for (const auto& [time, card] : standing.announced) {
    if (time <= at) {
      witness_->announced(card, time);
    }
  }
}

// --- What is known of the card

void Recall::keep_unexplained(Sighting sighting) {
  for (Fate& fate : sighting.fates) {
    if (!fate.reasons.empty() && fate.reasons.front().reason == Reason::kModeUnknown) {
      fate.reasons = {{.reason = Reason::kSettingsUnknown}};
      fate.at_boundary = false;
    }
  }
  unexplained_.push_back(std::move(sighting));
}

void Recall::keep(const Sighting& sighting) {
  if (is_asked_for(sighting.card, hexadecimal(sighting.epc))) {
    result_.evidence.sightings.push_back(told(sighting, [this](Time time) { return wall(time); }));
  }
}

Recollection Recall::end() {
  if (!has_begun_) {
    begin(std::nullopt);
  }
  conversation_.pass(latest_);  // an answer at the end may go on
  witness_->pass(latest_);
  if (explained_from_.has_value()) {
    std::ranges::for_each(witness_->sightings(), [this](const Sighting& one) { keep(one); });
  } else {
    witness_->end();
    if (question_.card.has_value()) {
      throw Failure(
          kUsage,
          "what the settings were is not in it, and so not which tag is which card: ask for an EPC; " + known_tags());
    }
    std::ranges::for_each(unexplained_, [this](const Sighting& one) { keep(one); });
  }
  std::ranges::stable_sort(result_.evidence.entries, {}, [](const JournalEntry& one) { return one.time.wall; });
  result_.begins = number_of(begin_);
  result_.ends = number_of(latest_);
  if (explained_from_.has_value()) {
    result_.settings_known_from = number_of(*explained_from_);
  }
  say_what_is_unknown();
  return std::move(result_);
}

// Those that were read most.
std::string Recall::known_tags() const {
  constexpr std::size_t kMost = 8;
  std::map<std::string, std::int64_t> polls;
  for (const Sighting& one : unexplained_) {
    polls[hexadecimal(one.epc)] += one.polls;
  }
  std::vector<std::pair<std::string, std::int64_t>> tags(polls.begin(), polls.end());
  std::ranges::sort(tags, std::greater(), &std::pair<std::string, std::int64_t>::second);
  std::string text;
  for (std::size_t i = 0; i < std::min(tags.size(), kMost); ++i) {
    text += (i == 0 ? "it has " : ", ") + tags[i].first;
  }
  return text.empty() ? "it has none" : text + (tags.size() > kMost ? " and others" : "");
}

void Recall::say_what_is_unknown() {
  const auto show = [this](Time time) { return local_time(wall(time), "%H:%M:%S.%L"); };
  auto& unknown = result_.unknown;
  if (!has_wall_) {
    unknown.emplace_back("when it was made: the times count from its beginning");
  } else if (!is_exact_) {
    unknown.emplace_back("its beginning more exactly than to the second");
  }
  if (!explained_from_.has_value()) {
    unknown.emplace_back(
        "the settings, the input and what was announced: a reading has no reason but those of the line");
  } else if (*explained_from_ > begin_ && witness_.has_value() && !unexplained_.empty()) {
    unknown.push_back("how things stood before " + show(*explained_from_) +
                      ": readings before that have no reason but those of the line");
  }
  if (notes_missing_.has_value()) {
    unknown.push_back("some of what happened before " + show(*notes_missing_) +
                      ", for which there was no time: reasons of about then may be wrong");
  }
}

}  // namespace

Recollection recall(std::istream& in, const std::string& name, const Question& question) {
  try {
    line::RecordingReader reader(in, name);
    Recall recall(question);
    while (const auto one = reader.next()) {
      recall.take(*one, reader.beginning());
    }
    return recall.end();
  } catch (const line::RecordingError& failure) {
    throw Failure(kUsage, failure.what());
  } catch (const Failure& failure) {
    throw Failure(kUsage, name + ": " + failure.what());
  }
}

Recollection recall(const std::filesystem::path& file, const Question& question) {
  constexpr std::uintmax_t kLargest = 256U << 20U;
  std::error_code error;
  const auto size = std::filesystem::file_size(file, error);
  if (error) {
    throw Failure(kUsage, file.string() + " cannot be read: " + error.message());
  }
  if (size > kLargest) {
    throw Failure(kUsage, file.string() + " has more than 256 MiB: give a part of it, with its first two lines");
  }
  std::ifstream in(file);
  if (!in) {
    throw Failure(kUsage, file.string() + " cannot be read: " + std::strerror(errno));
  }
  return recall(in, file.string(), question);
}

}  // namespace achost::why
