#include "door/why/second_opinion.h"

#include <algorithm>

namespace achost::why {

namespace {

constexpr milliseconds kLeastPeriod{10};

}  // namespace

SecondOpinion::SecondOpinion(const Settings& settings, milliseconds probe_interval, Time start)
    : model_(settings, start), period_(std::max(probe_interval, kLeastPeriod)), latest_(start), changed_(start) {}

void SecondOpinion::probe_interval(milliseconds interval) { period_ = std::max(interval, kLeastPeriod); }

// --- What happened

void SecondOpinion::apply(const Settings& settings, Time at) {
  add(at, Change{[settings](Suppression& model, Time then) { model.apply(settings, then); }});
}

void SecondOpinion::store(const Settings& settings, Time at) {
  add(at, Change{[settings](Suppression& model, Time then) { model.store(settings, then); }});
}

void SecondOpinion::take(Setting setting, Time at) {
  add(at, Change{[setting](Suppression& model, Time then) { model.take(setting, then); }});
}

void SecondOpinion::input(std::optional<int> level, Time at) {
  add(at, Change{[level](Suppression& model, Time then) { model.input(level, then); }});
}

void SecondOpinion::answer(std::optional<int> level, Time at) {
  add(at, Change{[level](Suppression& model, Time then) { model.answer(level, then); }});
}

void SecondOpinion::notified(int level, Time at) {
  add(at, Change{[level](Suppression& model, Time then) { model.notified(level, then); }});
}

void SecondOpinion::poll(std::vector<Card> cards, Time at) { add(at, Poll{std::move(cards), std::nullopt}); }

void SecondOpinion::announced(Card card, Time at) { add(at, Announcement{card}); }

void SecondOpinion::add(Time at, Event event) { events_.emplace(std::max(at, latest_), std::move(event)); }

// --- What follows from it

std::vector<Outcome> SecondOpinion::settle(Time now) {
  while (!events_.empty() && (events_.begin()->first + kPatience <= now || events_.size() > kMostEvents)) {
    auto first = events_.extract(events_.begin());
    std::visit([this, &first](auto& event) { handle(first.key(), event); }, first.mapped());
    latest_ = std::max(latest_, first.key());
  }
  return std::exchange(outcomes_, {});
}

void SecondOpinion::handle(Time at, Change& change) {
  forget_before(at);
  make(change, at);
}

void SecondOpinion::make(Change& change, Time at) {
  change.make(model_, at);
  changed_ = at;
}

void SecondOpinion::handle(Time at, Announcement& announcement) {
  if (auto* const poll = answer_beside(at, announcement.card)) {
    poll->announced = {announcement.card, at};
    return;
  }
  Outcome outcome{at, {}, announcement.card, Opinion::kDisagrees};
  model_.settle(outcome.verdicts, announcement.card, at);
  if (at <= excused_until_) {
    outcome.opinion = Opinion::kAtBoundary;
  }
  outcomes_.push_back(std::move(outcome));
}

void SecondOpinion::handle(Time at, Poll& poll) {
  forget_before(at);
  for (const auto& one : postponed_) {
    model_.read(one.reading.card, one.reading.at);
  }
  for (const Card card : poll.cards) {
    model_.read(card, at);
  }
  const auto ahead = look_ahead(at + period_ + Suppression::kNear);
  const auto announced = poll.announced ? poll.announced : ahead.announced;
  const auto decided = announced ? std::max(at, announced->second) : at;
  make_changes(decided);
  Outcome outcome{at, model_.look(decided), std::nullopt, Opinion::kAgrees};
  doubt(outcome.verdicts, at, decided);
  if (announced) {
    outcome.announced = announced->first;
  }
  // By its own time: the poll beside it may be another one than that which brought it.
  outcome.opinion = model_.settle(outcome.verdicts, outcome.announced, announced ? announced->second : decided);
  postpone(outcome, ahead);
  if (outcome.opinion == Opinion::kDisagrees && !announced && is_excused(outcome, ahead)) {
    outcome.opinion = Opinion::kAtBoundary;
  }
  const auto is_unsure = [](const Verdict& one) { return one.expected() || one.at_boundary; };
  if (!announced && std::ranges::any_of(outcome.verdicts, is_unsure)) {
    excused_until_ = at + period_ + Suppression::kNear;
  }
  outcomes_.push_back(std::move(outcome));
}

// A change beside the round may have been before it, and what was read before this answer may be gone.
void SecondOpinion::doubt(std::vector<Verdict>& verdicts, Time at, Time decided) const {
  const bool is_near = has_change(decided + Suppression::kNear);
  for (auto& verdict : verdicts) {
    verdict.at_boundary = verdict.at_boundary || is_near || verdict.reading.at < at;
  }
}

// When nothing is announced the plug-in may have missed the answer: it looks a period later then, at all that was read
// meanwhile.
void SecondOpinion::postpone(const Outcome& outcome, const Ahead& ahead) {
  const auto before = std::exchange(postponed_, {});
  if (outcome.announced || !ahead.next_poll) {
    return;
  }
  for (const auto& verdict : outcome.verdicts) {
    const auto& reading = verdict.reading;
    const auto first = std::ranges::find(before, reading.card, [](const Postponed& one) { return one.reading.card; });
    // Who is expected all the time cannot be missed for longer than a period.
    const bool is_expected = verdict.expected() && !verdict.at_boundary;
    const bool goes_on = first != before.end() && first->is_expected && is_expected;
    const auto since = goes_on ? first->since : reading.at;
    if (*ahead.next_poll <= since + period_ + Suppression::kNear) {
      postponed_.push_back({reading, since, is_expected});
    }
  }
}

// Nothing was announced that was expected: may the plug-in have missed the answer, and not have found the same later?
bool SecondOpinion::is_excused(const Outcome& outcome, const Ahead& ahead) const {
  const auto until = outcome.at + period_ + Suppression::kNear;
  return ahead.has_change || !postponed_.empty() ||
         std::ranges::any_of(outcome.verdicts, [this, until](const Verdict& verdict) {
           return verdict.expected() && !model_.verdict(verdict.reading, until).expected();
         });
}

// The answer that comes after its announcement, by the little that times may be off.
SecondOpinion::Poll* SecondOpinion::answer_beside(Time at, Card card) {
  const auto end = events_.upper_bound(at + Suppression::kNear);
  for (auto event = events_.lower_bound(at); event != end; ++event) {
    auto* const poll = std::get_if<Poll>(&event->second);
    if (poll != nullptr && !poll->announced && std::ranges::count(poll->cards, card) != 0) {
      return poll;
    }
  }
  return nullptr;
}

// The plug-in makes rounds without readings too: the last one was a period ago, or less.
void SecondOpinion::forget_before(Time at) {
  const auto before = at - period_ - Suppression::kNear;
  if (before > changed_) {
    model_.forget(before);
  }
}

// The first announcement of a card that waits before the next answer, which is taken out, and what else there is.
SecondOpinion::Ahead SecondOpinion::look_ahead(Time until) {
  Ahead ahead;
  const auto end = events_.upper_bound(until);
  for (auto event = events_.begin(); event != end; ++event) {
    if (std::holds_alternative<Poll>(event->second)) {
      ahead.next_poll = event->first;
      break;
    }
    if (const auto* const announcement = std::get_if<Announcement>(&event->second)) {
      if (!model_.is_waiting(announcement->card) || answer_beside(event->first, announcement->card) != nullptr) {
        continue;
      }
      ahead.announced = {announcement->card, event->first};
      events_.erase(event);
      break;
    }
    ahead.has_change = true;
  }
  return ahead;
}

// Those before the round.
void SecondOpinion::make_changes(Time until) {
  while (!events_.empty() && events_.begin()->first <= until &&
         std::holds_alternative<Change>(events_.begin()->second)) {
    auto first = events_.extract(events_.begin());
    make(std::get<Change>(first.mapped()), first.key());
  }
  latest_ = std::max(latest_, until);
}

bool SecondOpinion::has_change(Time until) const {
  return std::any_of(events_.begin(), events_.upper_bound(until),
                     [](const auto& event) { return std::holds_alternative<Change>(event.second); });
}

}  // namespace achost::why
