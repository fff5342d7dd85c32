#include "door/why/suppression.h"

#include <algorithm>
#include <utility>

namespace achost::why {

namespace {

using std::chrono::nanoseconds;

// What the plug-in raises a setting to when it takes one that is changed.
constexpr milliseconds kLeastReadInterval{250};
constexpr milliseconds kLeastReadIntervalDiffTags{100};

constexpr nanoseconds kNextInstant{1};

bool is_near(Time one, Time other) { return std::chrono::abs(one - other) <= Suppression::kNear; }

}  // namespace

void Grounds::insert(std::size_t place, const Because& one) {
  if (size_ < kMost) {
    std::move_backward(all_.begin() + static_cast<std::ptrdiff_t>(place),
                       all_.begin() + static_cast<std::ptrdiff_t>(size_),
                       all_.begin() + static_cast<std::ptrdiff_t>(size_) + 1);
    all_[place] = one;
    ++size_;
  }
}

// The reasons of a verdict as they come together.
class Suppression::Findings {
 public:
  explicit Findings(Grounds& reasons) : reasons_(reasons) {}

  // Time alone decides whether it holds: before its until.
  void weigh_until(Time at, const Because& because) {
    weigh(at < *because.until, is_near(at, *because.until), because);
  }
  // is_near: whether another time within kNear of that one would have another answer.
  void weigh(bool holds, bool is_near, const Because& because) {
    if (holds) {
      reasons_.push_back(because);
    }
    is_sure_ = is_sure_ || (holds && !is_near);
    is_near_ = is_near_ || is_near;
  }
  // It is not sure which reasons hold.
  void doubt() { is_doubtful_ = true; }

  bool at_boundary() const { return is_doubtful_ || (is_near_ && !is_sure_); }

 private:
  Grounds& reasons_;
  bool is_sure_ = false;      // one holds and is far from its boundary
  bool is_near_ = false;      // one is near its boundary
  bool is_doubtful_ = false;  // all of them are in doubt
};

Suppression::Suppression(const Settings& settings, Time start)
    : stored_(settings), in_force_(settings), changed_(start), level_changed_(start), last_{0, start, start} {}

// --- What happens

void Suppression::apply(const Settings& settings, Time at) {
  change(stored_, settings, at);
  change(in_force_, settings, at);
}

void Suppression::store(const Settings& settings, Time at) { change(stored_, settings, at); }

void Suppression::take(Setting setting, Time at) {
  auto stored = stored_;
  auto taken = in_force_;
  switch (setting) {
    case Setting::kOperationMode:
      taken.operation_mode = stored.operation_mode;
      break;
    case Setting::kTrigIdle:
      taken.trig_idle = stored.trig_idle;
      break;
    case Setting::kTriggerTimeout:
      taken.trigger_timeout = stored.trigger_timeout;
      break;
    case Setting::kReadInterval:
      taken.read_interval = stored.read_interval = std::max(stored.read_interval, kLeastReadInterval);
      break;
    case Setting::kReadIntervalDiffTags:
      taken.read_interval_diff_tags = stored.read_interval_diff_tags =
          std::max(stored.read_interval_diff_tags, kLeastReadIntervalDiffTags);
      break;
  }
  change(stored_, stored, at);
  change(in_force_, taken, at);
}

void Suppression::change(Settings& settings, const Settings& to, Time at) {
  if (settings == to) {
    return;
  }
  doubt(at);
  const auto interval = std::exchange(settings, to).read_interval_diff_tags;
  changed_ = at;
  if (&settings == &in_force_ && interval != to.read_interval_diff_tags) {
    interval_changed_ = at;
    interval_before_ = interval;
    doubt_interval();
  }
}

// Near a change it is not sure which of the two intervals an announcement had.
void Suppression::doubt_interval() {
  if (is_near(interval_changed_, last_.at)) {
    last_.doubtful_until = last_.at + std::max(interval_before_, in_force_.read_interval_diff_tags) + kNear;
  }
}

void Suppression::input(std::optional<int> level, Time at) {
  answer(level, at);
  if (level) {
    notified(*level, at);
  }
}

void Suppression::answer(std::optional<int> level, Time at) {
  if (level != level_) {
    doubt(at);
    level_ = level;
    level_changed_ = at;
  }
}

// By the mode that is stored: the plug-in reads it afresh for each notification.
void Suppression::notified(int level, Time at) {
  const bool active = level == active_level();
  if (stored_.operation_mode == Mode::kTrigger && active) {
    doubt(at);
    triggered_ = at;
  } else if (stored_.operation_mode == Mode::kInhibit) {
    if (is_inhibited_ && !active) {
      doubt(at);
      triggered_ = at;
    }
    is_inhibited_ = active;
  }
}

void Suppression::read(Card card, Time at) {
  const auto place = place_of(card);
  if (place != waiting_.end() && place->card == card) {
    place->at = at;
  } else if (waiting_.size() < kMostCards) {
    waiting_.insert(place, {card, at});
  }
}

// Where it stands, or would.
std::vector<Reading>::iterator Suppression::place_of(Card card) {
  return std::ranges::lower_bound(waiting_, card, {}, &Reading::card);
}

bool Suppression::is_waiting(Card card) const { return std::ranges::binary_search(waiting_, card, {}, &Reading::card); }

std::vector<Verdict> Suppression::round(Time at) {
  auto verdicts = look(at);
  forget(at);
  return verdicts;
}

std::vector<Verdict> Suppression::look(Time at) {
  std::vector<Verdict> verdicts;
  verdicts.reserve(waiting_.size());
  for (const Reading& reading : waiting_) {
    verdicts.emplace_back().reading = reading;
    judge(verdicts.back(), at);
  }
  waiting_.clear();
  return verdicts;
}

std::vector<Verdict> Suppression::poll(Time at, std::span<const Card> cards) {
  for (const Card card : cards) {
    read(card, at);
  }
  return round(at);
}

Opinion Suppression::settle(std::vector<Verdict>& verdicts, std::optional<Card> announced, Time at) {
  if (!announced) {
    const auto missed =
        std::ranges::any_of(verdicts, [](const Verdict& one) { return one.expected() && !one.at_boundary; });
    const auto unsure = std::ranges::any_of(verdicts, &Verdict::expected);
    return missed ? Opinion::kDisagrees : unsure ? Opinion::kAtBoundary : Opinion::kAgrees;
  }
  remember(*announced, at);
  auto opinion = Opinion::kDisagrees;
  for (auto& one : verdicts) {
    if (one.reading.card == *announced) {
      opinion = one.expected() ? Opinion::kAgrees : one.at_boundary ? Opinion::kAtBoundary : Opinion::kDisagrees;
      one.reasons.push_front({.reason = Reason::kAnnounced, .since = at});
      one.would_have_been_from.reset();
    } else if (one.expected()) {
      one.reasons = {{Reason::kLostTurn, at, last_.others_from, last_.interval, *announced}};
      one.would_have_been_from = announced_from(one.reasons);
    }
  }
  return opinion;
}

// --- What follows from it

Verdict Suppression::verdict(const Reading& reading, Time at) const {
  Verdict verdict{.reading = reading, .reasons = {}, .would_have_been_from = {}};
  judge(verdict, at);
  return verdict;
}

void Suppression::judge(Verdict& verdict, Time at) const {
  auto findings = findings_at(at, verdict.reasons);
  look_at_trigger(findings, verdict.reading);
  look_at_others(findings, verdict.reading);
  look_at_itself(findings, verdict.reading, at);
  verdict.at_boundary = findings.at_boundary();
  verdict.would_have_been_from = announced_from(verdict.reasons);
}

// Whether readings count at all.
Suppression::Findings Suppression::findings_at(Time at, Grounds& into) const {
  Findings findings(into);
  const bool has_input = in_force_.operation_mode == Mode::kTrigger || in_force_.operation_mode == Mode::kInhibit;
  if (at - changed_ <= kNear || (has_input && has_triggered() && at - triggered_ <= kNear)) {
    findings.doubt();
  }
  look_at_mode(findings, at);
  return findings;
}

void Suppression::look_at_mode(Findings& findings, Time at) const {
  switch (in_force_.operation_mode) {
    case Mode::kContinuous:
      break;
    case Mode::kInhibit:
      look_at_inhibit(findings, at);
      break;
    case Mode::kTrigger:
      findings.weigh(at > trigger_end(), is_near(at, trigger_end()),
                     {.reason = has_triggered() ? Reason::kWindowClosed : Reason::kNeverTriggered,
                      .since = triggered_,
                      .value = in_force_.trigger_timeout});
      break;
    case Mode::kUnknown:
      findings.weigh(true, false, {.reason = Reason::kModeUnknown, .since = changed_});
      break;
  }
}

void Suppression::look_at_inhibit(Findings& findings, Time at) const {
  const bool is_fresh = at - level_changed_ <= kNear;
  findings.weigh(!level_, is_fresh, {.reason = Reason::kInhibitUnanswered, .since = level_changed_});
  findings.weigh(level_ == active_level(), is_fresh, {.reason = Reason::kInhibitActive, .since = level_changed_});
  // The last instant belongs to the dead time.
  findings.weigh_until(at, {Reason::kDeadTime, triggered_, trigger_end() + kNextInstant, in_force_.trigger_timeout});
}

void Suppression::look_at_trigger(Findings& findings, const Reading& reading) const {
  if (in_force_.operation_mode == Mode::kTrigger) {
    findings.weigh_until(reading.at, {.reason = Reason::kReadBeforeTrigger, .since = triggered_, .until = triggered_});
  }
}

void Suppression::look_at_others(Findings& findings, const Reading& reading) const {
  if (reading.card == last_.card) {
    return;
  }
  const auto reason = last_.is_announcement ? Reason::kOtherCardTooSoon : Reason::kReadBeforeStart;
  const auto from = last_.others_from;
  findings.weigh(reading.at < from, is_near(reading.at, from) || reading.at < last_.doubtful_until,
                 {reason, last_.at, from, last_.interval, last_.card});
}

// Held against the time of the round, not that of the reading.
void Suppression::look_at_itself(Findings& findings, const Reading& reading, Time at) const {
  const auto found = sent_.find(reading.card);
  if (found == sent_.end()) {
    findings.weigh(false, at < left_out_until_, {.reason = Reason::kSameCardTooSoon});
    return;
  }
  const auto& sent = found->second;
  const auto until = sent.at + in_force_.read_interval;
  const bool may_be_forgotten = sent.is_doubtful || at - (sent.at + memory()) >= -kNear;
  findings.weigh(
      at < until && !sent.is_forgotten, is_near(at, until) || (at < until && may_be_forgotten),
      {.reason = Reason::kSameCardTooSoon, .since = sent.at, .until = until, .value = in_force_.read_interval});
}

std::optional<Time> Suppression::announced_from(const Grounds& reasons) const {
  std::optional<Time> from;
  for (const auto& because : reasons) {
    if (!because.until) {
      return std::nullopt;
    }
    from = std::max(from, because.until);
  }
  const bool is_too_late = in_force_.operation_mode == Mode::kTrigger && from > trigger_end();
  return is_too_late ? std::nullopt : from;
}

// --- What is remembered

// How long a card announced is remembered.
milliseconds Suppression::memory() const { return std::max(stored_.read_interval, stored_.read_interval_diff_tags); }

void Suppression::remember(Card card, Time at) {
  last_ = {card, at, at + in_force_.read_interval_diff_tags, in_force_.read_interval_diff_tags, true, {}};
  doubt_interval();
  first_sent_ = sent_.empty() ? at : std::min(first_sent_, at);
  sent_[card] = {.at = at, .is_doubtful = at - changed_ <= kNear};
  if (sent_.size() > kMostCards) {
    const auto oldest = std::ranges::min_element(sent_, {}, [](const auto& entry) { return entry.second.at; });
    left_out_until_ = std::max(left_out_until_, oldest->second.at + in_force_.read_interval);
    sent_.erase(oldest);
  }
  forget(at);
}

// The end of a round: who is forgotten counts as never announced. A round that uses no reading forgets nobody.
void Suppression::forget(Time at) {
  if (sent_.empty() || at - (first_sent_ + memory()) < -kNear) {
    return;
  }
  const auto mode = mode_at(at);
  first_sent_ = at;
  for (auto entry = sent_.begin(); entry != sent_.end();) {
    auto& sent = entry->second;
    const auto over = at - (sent.at + memory());
    if (mode == Use::kSure && over >= kNear) {
      entry = sent_.erase(entry);
      continue;
    }
    sent.is_forgotten = sent.is_forgotten || (over >= nanoseconds(0) && (mode == Use::kSure || mode == Use::kLikely));
    sent.is_doubtful = sent.is_doubtful || (over >= -kNear && mode != Use::kNone);
    first_sent_ = std::min(first_sent_, sent.at);
    ++entry;
  }
}

// Before something changes: the plug-in makes rounds without readings too, which nobody tells.
void Suppression::doubt(Time at) {
  if (mode_at(at) == Use::kNone) {
    return;
  }
  for (auto& [card, sent] : sent_) {
    sent.is_doubtful = sent.is_doubtful || at - (sent.at + memory()) >= -kNear;
  }
}

Suppression::Use Suppression::mode_at(Time at) const {
  Grounds reasons;
  if (findings_at(at, reasons).at_boundary()) {
    return reasons.empty() ? Use::kLikely : Use::kUnlikely;
  }
  return reasons.empty() ? Use::kSure : Use::kNone;
}

// --- In words

std::string duration_text(nanoseconds duration) {
  const auto ms = std::chrono::duration_cast<milliseconds>(duration).count();
  std::string digits = std::to_string(std::abs(ms) % 1000 + 1000).substr(1);
  digits.erase(std::max(digits.find_last_not_of('0') + 1, std::size_t{1}));
  return (ms < 0 ? "-" : "") + std::to_string(std::abs(ms) / 1000) + "." + digits + " s";
}

std::optional<std::string> fact_of(const Because& because, std::string_view name, Time reading,
                                   const std::function<std::string(Time)>& show) {
  if (name == "since") {
    return show(because.since);
  }
  if (name == "until" && because.until) {
    return show(*because.until);
  }
  if (name == "ago") {
    return duration_text(reading - because.since);
  }
  if (name == "value") {
    return duration_text(because.value);
  }
  return name == "card" ? std::optional(std::to_string(because.card)) : std::nullopt;
}

std::string text_of(const Verdict& verdict, const std::function<std::string(Time)>& show) {
  std::string text;
  for (const auto& because : verdict.reasons) {
    text += text.empty() ? "" : "; ";
    text += sentence_of(because.reason,
                        [&](std::string_view name) { return fact_of(because, name, verdict.reading.at, show); });
  }
  if (verdict.would_have_been_from) {
    text += "; it would have been from " + show(*verdict.would_have_been_from) + " on";
  }
  return text;
}

}  // namespace achost::why
