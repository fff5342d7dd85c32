// The model of the rules beside a door that runs: what happened is told in any order, a moment later it is put in
// order, and what the plug-in announced is held against what the model expected.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "door/why/suppression.h"

namespace achost::why {

// A round of the plug-in: what became of the cards of one answer of the reader.
struct Outcome {
  Time at;
  std::vector<Verdict> verdicts;
  std::optional<Card> announced;
  Opinion opinion;
};

// Times may be off by half of Suppression::kNear, and in any order within kPatience. What is later still counts from
// the last instant that was put in order. For one thread.
class SecondOpinion {
 public:
  static constexpr milliseconds kPatience{250};
  static constexpr std::size_t kMostEvents = 4096;  // beyond, the oldest are settled before their time

  // probe_interval: the setting of that name.
  SecondOpinion(const Settings& settings, milliseconds probe_interval, Time start);

  void probe_interval(milliseconds interval);

  // As those of Suppression.
  void apply(const Settings& settings, Time at);
  void store(const Settings& settings, Time at);
  void take(Setting setting, Time at);
  void input(std::optional<int> level, Time at);
  void answer(std::optional<int> level, Time at);
  void notified(int level, Time at);

  // The cards of an answer of the reader that count.
  void poll(std::vector<Card> cards, Time at);
  // What the plug-in announced.
  void announced(Card card, Time at);

  // What came of the rounds that nothing can change any more.
  std::vector<Outcome> settle(Time now);

  // As of the last round that is settled.
  const Suppression& model() const { return model_; }

 private:
  struct Change {
    std::function<void(Suppression&, Time)> make;
  };
  struct Poll {
    std::vector<Card> cards;
    std::optional<std::pair<Card, Time>> announced;  // that came before it, by its time
  };
  struct Announcement {
    Card card;
  };
  using Event = std::variant<Change, Poll, Announcement>;

  // What stands before the next answer, as far as a round can still come.
  struct Ahead {
    std::optional<std::pair<Card, Time>> announced;
    bool has_change = false;
    std::optional<Time> next_poll;
  };

  // What was read, while the next answer came before the plug-in had to make a round.
  struct Postponed {
    Reading reading;
    Time since;
    bool is_expected;
  };

  void add(Time at, Event event);
  void handle(Time at, Change& change);
  void handle(Time at, Poll& poll);
  void handle(Time at, Announcement& announcement);
  Poll* answer_beside(Time at, Card card);
  void forget_before(Time at);
  void make(Change& change, Time at);
  Ahead look_ahead(Time until);
  void make_changes(Time until);
  bool has_change(Time until) const;
  void doubt(std::vector<Verdict>& verdicts, Time at, Time decided) const;
  void postpone(const Outcome& outcome, const Ahead& ahead);
  bool is_excused(const Outcome& outcome, const Ahead& ahead) const;

  Suppression model_;
  milliseconds period_;                // between the rounds of the plug-in, at most
  Time latest_;                        // put in order up to then
  Time changed_;                       // the latest change
  std::multimap<Time, Event> events_;  // to be put in order
  std::vector<Postponed> postponed_;
  Time excused_until_{};  // until then an announcement that nobody expected any more may come
  std::vector<Outcome> outcomes_;
};

}  // namespace achost::why
