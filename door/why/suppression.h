// What must become of a reading, and why: a model of the rules by which the plug-in announces cards, made from their
// description (docs/suppression.md) and from none of its code, so that it is a second opinion.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "door/why/card_value.h"
#include "door/why/reasons.h"

namespace achost::why {

using Time = std::chrono::steady_clock::time_point;  // since the machine has started
using std::chrono::milliseconds;

enum class Mode : std::uint8_t { kInhibit, kTrigger, kContinuous, kUnknown };

// The settings of these names that the rules ask for.
struct Settings {
  Mode operation_mode = Mode::kContinuous;
  int trig_idle = 0;  // the input's level when idle: its active level is 1 when this is 0, else 0
  milliseconds trigger_timeout{0};
  milliseconds read_interval{0};
  milliseconds read_interval_diff_tags{0};

  bool operator==(const Settings&) const = default;
};

enum class Setting : std::uint8_t { kOperationMode, kTrigIdle, kTriggerTimeout, kReadInterval, kReadIntervalDiffTags };

struct Reading {
  Card card;
  Time at;
};

// A reason with its facts.
struct Because {
  Reason reason;
  Time since{};  // what holds began then
  std::optional<Time>
      until{};            // the first instant of a reading for which it holds no more; nothing: time does not end it
  milliseconds value{0};  // of the setting that the reason names
  Card card = 0;          // the other card, for a reason that has one
};

// As many as can hold of a reading, in place: there is a verdict on each, many times a second.
class Grounds {
 public:
  using value_type = Because;
  using iterator = Because*;
  using const_iterator = const Because*;

  static constexpr std::size_t kMost =
      5;  // the mode's two, those about another card and the same one, the announcement

  Grounds() = default;
  Grounds(std::initializer_list<Because> all) {
    for (const Because& one : all) {
      push_back(one);
    }
  }

  // What would be more than kMost is not taken.
  void push_back(const Because& one) { insert(size_, one); }
  void push_front(const Because& one) { insert(0, one); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const_iterator begin() const { return all_.data(); }
  const_iterator end() const { return all_.data() + size_; }
  const Because& front() const { return all_.front(); }
  const Because& back() const { return all_[size_ - 1]; }
  const Because& operator[](std::size_t place) const { return all_[place]; }

 private:
  void insert(std::size_t place, const Because& one);

  std::array<Because, kMost> all_;
  std::size_t size_ = 0;
};

struct Verdict {
  Reading reading;
  // All that hold, the decisive one first. None: it must be announced, unless another of its round is.
  Grounds reasons;
  bool at_boundary = false;  // whether times that are off by kNear could turn it round
  // When nothing else happens, a reading from then on, and none before, is announced; nothing: time alone does not do.
  std::optional<Time> would_have_been_from;

  bool expected() const { return reasons.empty(); }
};

enum class Opinion : std::uint8_t { kAgrees, kAtBoundary, kDisagrees };

// Times go forward, from call to call. Memory: kMostCards cards announced, and as many waiting. For one thread.
class Suppression {
 public:
  static constexpr milliseconds kNear{2};
  static constexpr std::size_t kMostCards = 16384;

  // start: when the plug-in begins to look at readings. The settings are in force as they are stored.
  Suppression(const Settings& settings, Time start);

  // Both stored and in force from now on, as they are.
  void apply(const Settings& settings, Time at);
  // In the store from now on; the plug-in has not taken them yet.
  void store(const Settings& settings, Time at);
  // The plug-in takes one of the store, which it raises there when it is below its least value.
  void take(Setting setting, Time at);

  // The input's level from now on, which is also notified. Nothing: nobody tells it any more.
  void input(std::optional<int> level, Time at);
  // The two halves of that: what the host answers when it is asked, and what it notifies the plug-in of.
  void answer(std::optional<int> level, Time at);
  void notified(int level, Time at);

  // A card that was read waits for the next round. A card more than kMostCards is left out.
  void read(Card card, Time at);
  // The plug-in looks at all that waits: what must become of each card, by card. Of those expected one is announced.
  std::vector<Verdict> round(Time at);
  // The two halves of that: the verdicts, and the end of a round, which forgets who was announced long ago.
  std::vector<Verdict> look(Time at);
  void forget(Time at);
  // An answer of the reader, and its round.
  std::vector<Verdict> poll(Time at, std::span<const Card> cards);
  // What came of a round: the card announced, if any. Completes the verdicts: it was announced, before
  // the reasons why it should not have been, and others lost their turn.
  Opinion settle(std::vector<Verdict>& verdicts, std::optional<Card> announced, Time at);

  // What must become of a reading that is looked at then, if it is the only one.
  Verdict verdict(const Reading& reading, Time at) const;

  bool is_waiting(Card card) const;

  // Cards announced that are remembered.
  std::size_t cards() const { return sent_.size(); }

 private:
  struct Sent {
    Time at;
    bool is_forgotten = false;
    bool is_doubtful = false;  // whether it is forgotten may be otherwise: near a boundary, or in a round nobody told
  };
  // The card announced last. None yet: card 0, which no rule on other cards holds against itself.
  struct Last {
    Card card = 0;
    Time at;
    Time others_from;  // from when on another card may have been read
    milliseconds interval{0};
    bool is_announcement = false;
    Time doubtful_until{};  // another interval may have been in force
  };
  enum class Use : std::uint8_t { kNone, kUnlikely, kLikely, kSure };  // of readings
  class Findings;

  int active_level() const { return in_force_.trig_idle == 0 ? 1 : 0; }
  Time trigger_end() const { return triggered_ + in_force_.trigger_timeout; }
  bool has_triggered() const { return triggered_ != Time{}; }
  milliseconds memory() const;
  Use mode_at(Time at) const;

  void judge(Verdict& verdict, Time at) const;
  Findings findings_at(Time at, Grounds& into) const;
  void look_at_mode(Findings& findings, Time at) const;
  void look_at_inhibit(Findings& findings, Time at) const;
  void look_at_trigger(Findings& findings, const Reading& reading) const;
  void look_at_others(Findings& findings, const Reading& reading) const;
  void look_at_itself(Findings& findings, const Reading& reading, Time at) const;
  std::optional<Time> announced_from(const Grounds& reasons) const;

  std::vector<Reading>::iterator place_of(Card card);
  void remember(Card card, Time at);
  void doubt(Time at);
  void doubt_interval();
  void change(Settings& settings, const Settings& to, Time at);

  Settings stored_;
  Settings in_force_;
  Time changed_;             // a setting
  Time interval_changed_{};  // read_interval_diff_tags in force
  milliseconds interval_before_{0};
  Time triggered_{};           // the input went active (trigger) or idle (inhibit); at first when the machine started
  bool is_inhibited_ = false;  // as far as notifications have told in inhibit mode
  std::optional<int> level_;   // of the input, as the host tells it
  Time level_changed_;
  std::vector<Reading> waiting_;  // by card
  std::unordered_map<Card, Sent> sent_;
  Time first_sent_;        // none of them was before
  Time left_out_until_{};  // until then a card that is not remembered may be one for which there was no place
  Last last_;
};

// A fact of a reason, by its name, for a reading made at that time; show: tells a time.
std::optional<std::string> fact_of(const Because& because, std::string_view name, Time reading,
                                   const std::function<std::string(Time)>& show);

// All reasons in words, and from when on the reading would have been announced.
std::string text_of(const Verdict& verdict, const std::function<std::string(Time)>& show);

// In seconds, with as many digits as it has, and one at least: "3.0 s".
std::string duration_text(std::chrono::nanoseconds duration);

}  // namespace achost::why
