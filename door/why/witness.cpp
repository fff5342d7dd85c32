#include "door/why/witness.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace achost::why {
namespace {

// A card that has left is seen to have in two polls, unless nobody polls any more.
constexpr std::uint64_t kPollsWithout = 2;
constexpr std::chrono::seconds kNobodyPolls{30};

// What the plug-in has left of an answer it may take for the next one, for as long as the line lets it lie.
constexpr std::chrono::seconds kOutOfStep{1};

// The reasons in their order, as a number.
std::uint32_t signature_of(std::span<const Because> reasons) {
  constexpr std::uint32_t kEnough = 64;
  static_assert(kReasons.size() < kEnough);
  static_assert(Grounds::kMost <= 5, "so many fit into 32 bits");
  std::uint32_t signature = 0;
  for (const Because& one : reasons) {
    signature = signature * kEnough + static_cast<std::uint32_t>(one.reason) + 1;
  }
  return signature;
}

constexpr Because kUnexplained{.reason = Reason::kUnexplained};

}  // namespace

struct Witness::Presence {
  Sighting sighting;
  std::uint64_t values_epoch = 0;         // of the settings that its card value was made with
  std::uint64_t last_poll = 0;            // that read it,
  Time last_read;                         // and when
  std::size_t chapter = 0;                // the first fate since it was announced last
  std::vector<std::uint32_t> signatures;  // of the fates since then
  std::int64_t waiting = 0;               // readings that the plug-in has missed so far, and may still look at,
  Time waiting_since;                     // from then on

  bool is_to_go_on_in_another() const {
    return sighting.last - sighting.first >= kLongest || sighting.fates.size() > kMostFates;
  }

  // The fate with these reasons, in this chapter.
  Fate& fate_with(std::span<const Because> reasons, Time at) {
    auto& fates = sighting.fates;
    const auto wanted = signature_of(reasons);
    const auto found = std::ranges::find(signatures, wanted);
    if (found != signatures.end()) {
      return fates[chapter + static_cast<std::size_t>(found - signatures.begin())];
    }
    signatures.push_back(wanted);
    return fates.emplace_back(Fate{.from = at, .to = at, .reasons = {reasons.begin(), reasons.end()}});
  }

  void begin_chapter() {
    chapter = sighting.fates.size();
    signatures.clear();
  }
};

Witness::Witness(WitnessSettings settings, Time start, std::function<void(const Sighting&)> on_sighting,
                 std::function<void(const Disagreement&)> on_disagreement)
    : settings_(std::move(settings)),
      second_opinion_(settings_.rules, std::max(settings_.probe_interval, kLate), start),
      on_sighting_(std::move(on_sighting)),
      on_disagreement_(std::move(on_disagreement)),
      latest_(start) {}

Witness::~Witness() = default;

void Witness::apply(const WitnessSettings& settings, Time at) {
  if (settings.identification_bits != settings_.identification_bits || settings.reader_type != settings_.reader_type) {
    doubt_values(at);
    ++values_epoch_;
  }
  settings_ = settings;
  second_opinion_.apply(settings.rules, at);
  second_opinion_.probe_interval(std::max(settings.probe_interval, kLate));
}

// An answer from before a change may be told after it, and what was read before it be announced after it.
void Witness::doubt_values(Time at) {
  const auto around = std::max(settings_.probe_interval, kLate) + kLate;
  if (at - around > values_unsure_until_ + 2 * SecondOpinion::kPatience) {
    values_unsure_from_ = at - around;
  }
  values_unsure_until_ = at + around;
}

void Witness::input(std::optional<int> level, Time at) { second_opinion_.input(level, at); }

void Witness::answer(std::optional<int> level, Time at) { second_opinion_.answer(level, at); }

void Witness::announced(Card card, Time at) { second_opinion_.announced(card, at); }

void Witness::saw(const line::Exchange& exchange) {
  if (exchange.code != line::Code::inventory) {
    return;
  }
  ++number_of_polls_;
  look_back(exchange.asked);
  settle(exchange.last_byte);  // what is known by now is so at any pace of looking
  // No two at the same time: it tells one from the other.
  const Time at = latest_ = std::max(exchange.last_byte, latest_ + std::chrono::nanoseconds(1));
  if (exchange.may_have_seemed_whole) {
    unsure_until_ = at + kOutOfStep;
  }
  Poll poll{.at = at, .is_whole = at >= unsure_until_, .readings = {}};
  std::vector<Card> cards;
  const auto reports = reports_of(exchange);
  poll.readings.reserve(reports.size());
  cards.reserve(reports.size());
  for (const Report& report : reports) {
    Presence* const presence = presence_of(report, at);
    if (presence != nullptr && report.unused.has_value()) {
      put_unused(*presence, report, at);
    } else if (presence != nullptr) {
      poll.readings.emplace_back(presence->sighting.card, presence);
      cards.push_back(presence->sighting.card);
    }
  }
  if (!cards.empty()) {
    second_opinion_.poll(std::move(cards), at);
    polls_.push_back(std::move(poll));
  }
}

// The plug-in notes its readings, pauses for the probe interval and asks again: so it tells when it noted them, at the
// latest. On a busy machine that may be long after the answer was there.
void Witness::look_back(Time asked) {
  if (!polls_.empty() && polls_.back().at == latest_ &&
      asked - settings_.probe_interval - polls_.back().at > Suppression::kNear / 2) {
    polls_.back().is_timely = false;
    untimely_until_ = asked + kLate;
  }
}

// Nothing when there are too many.
Witness::Presence* Witness::presence_of(const Report& report, Time at) {
  const std::string_view key(reinterpret_cast<const char*>(report.epc.data()), report.epc.size());
  auto found = presences_.find(key);
  if (found == presences_.end()) {
    if (presences_.size() >= kMostSightings || report.epc.size() > kLongestEpc) {
      ++left_out_;
      return nullptr;
    }
    found = presences_.emplace(std::string(key), std::make_unique<Presence>()).first;
    found->second->sighting.epc.assign(report.epc.begin(), report.epc.end());
    begin(*found->second);
  }
  Presence& presence = *found->second;
  if (presence.sighting.polls > 0 && has_left(presence, at)) {
    close(presence, false);
    begin(presence);
  }
  if (presence.values_epoch != values_epoch_) {
    close(presence, true);
    begin(presence);
  }
  presence.last_poll = number_of_polls_;
  presence.last_read = at;
  presence.sighting.rssi = std::max(presence.sighting.rssi, report.rssi);
  return &presence;
}

void Witness::begin(Presence& presence) const {
  auto epc = std::move(presence.sighting.epc);
  const auto card = card_value(epc, settings_.identification_bits, settings_.reader_type);
  presence.sighting = {.epc = std::move(epc), .card = card, .first = {}, .last = {}, .fates = {}};
  presence.values_epoch = values_epoch_;
  presence.begin_chapter();
}

void Witness::close(Presence& presence, bool goes_on) {
  if (presence.waiting > 0 && !goes_on) {
    Fate& fate = presence.fate_with(std::array{kUnexplained}, presence.waiting_since);
    fate.at_boundary = true;
    count(presence, fate, std::exchange(presence.waiting, 0), presence.waiting_since);
  }
  if (presence.sighting.polls > 0) {
    presence.sighting.goes_on = goes_on;
    auto& closed = over_.emplace_back(std::move(presence.sighting));
    presence.sighting.epc = closed.epc;  // for the next one
  }
  if (over_.size() > kMostSightings) {
    tell_over(1);
  }
}

void Witness::go_on_in_another_if_due(Presence& presence) {
  if (presence.is_to_go_on_in_another()) {
    close(presence, true);
    begin(presence);
  }
}

void Witness::count(Presence& presence, Fate& fate, std::int64_t polls, Time at) {
  by_reason_.at(static_cast<std::size_t>(fate.reasons.front().reason)) += static_cast<std::uint64_t>(polls);
  Sighting& sighting = presence.sighting;
  fate.from = std::min(fate.from, at);
  fate.to = std::max(fate.to, at);
  fate.polls += polls;
  sighting.first = sighting.polls == 0 ? fate.from : std::min(sighting.first, fate.from);
  sighting.last = std::max(sighting.last, fate.to);
  sighting.polls += polls;
}

void Witness::put_unused(Presence& presence, const Report& report, Time at) {
  Fate& fate = presence.fate_with(std::array{Because{.reason = *report.unused}}, at);
  if (fate.polls == 0) {
    fate.number = report.number;
    fate.count = report.count;
    fate.flaw = report.flaw;
  }
  count(presence, fate, 1, at);
  go_on_in_another_if_due(presence);
}

void Witness::conclude(Outcome& outcome) {
  const auto poll = std::ranges::find(polls_, outcome.at, &Poll::at);
  const bool is_sure =
      poll == polls_.end() ? outcome.at >= std::max(unsure_until_, untimely_until_) : poll->is_whole && poll->is_timely;
  if (poll != polls_.end()) {
    conclude(*poll, outcome);
    polls_.erase(polls_.begin(), std::next(poll));
  }
  const bool are_values_sure = outcome.at < values_unsure_from_ || outcome.at > values_unsure_until_;
  if (outcome.opinion == Opinion::kDisagrees && is_sure && are_values_sure) {
    tell(outcome);
  }
}

// The verdicts are by card, and so are the readings then.
void Witness::conclude(Poll& poll, Outcome& outcome) {
  std::ranges::sort(poll.readings);
  auto reading = poll.readings.begin();
  for (Verdict& verdict : outcome.verdicts) {
    verdict.at_boundary = verdict.at_boundary || !poll.is_whole || !poll.is_timely;
    if (!poll.is_whole && verdict.expected()) {
      verdict.reasons = {{.reason = Reason::kAnswerInPieces}};
    }
    const Card card = verdict.reading.card;
    reading = std::find_if(reading, poll.readings.end(), [card](const auto& one) { return one.first >= card; });
    for (; reading != poll.readings.end() && reading->first == card; ++reading) {
      conclude(*reading->second, verdict, outcome.opinion);
    }
  }
}

void Witness::conclude(Presence& presence, const Verdict& verdict, Opinion opinion) {
  const Time at = verdict.reading.at;
  if (verdict.expected() && opinion != Opinion::kDisagrees) {
    presence.waiting_since = presence.waiting == 0 ? at : presence.waiting_since;
    ++presence.waiting;
    return;
  }
  const Time since = presence.waiting > 0 ? presence.waiting_since : at;
  Fate& fate = verdict.expected() ? presence.fate_with(std::array{kUnexplained}, since)
                                  : presence.fate_with(verdict.reasons, since);
  fate.at_boundary = verdict.at_boundary && (fate.polls == 0 || fate.at_boundary);
  fate.announced_from = verdict.would_have_been_from;
  const bool is_announcement = fate.is_announcement();
  count(presence, fate, 1 + std::exchange(presence.waiting, 0), at);
  if (is_announcement) {
    presence.begin_chapter();
  }
  go_on_in_another_if_due(presence);
}

void Witness::tell(const Outcome& outcome) const {
  if (outcome.announced.has_value()) {
    Disagreement disagreement{.card = *outcome.announced, .at = outcome.at, .was_announced = true, .reasons = {}};
    for (const Verdict& verdict : outcome.verdicts) {
      if (verdict.reading.card == *outcome.announced) {
        disagreement.reasons.assign(verdict.reasons.begin() + 1, verdict.reasons.end());  // behind that it was
      }
    }
    on_disagreement_(disagreement);
    return;
  }
  const auto missed = std::ranges::find_if(outcome.verdicts, &Verdict::expected);
  if (missed != outcome.verdicts.end()) {
    on_disagreement_({.card = missed->reading.card, .at = outcome.at, .reasons = {}});
  }
}

void Witness::pass(Time now) {
  settle(now);
  end_over(now);
  tell_over(most_at_once(over_.size()));
}

void Witness::settle(Time now) {
  for (Outcome& outcome : second_opinion_.settle(now)) {
    conclude(outcome);
  }
}

bool Witness::has_left(const Presence& presence, Time now) const {
  const auto away = now - presence.last_read;
  return away > kLeft && (number_of_polls_ - presence.last_poll >= kPollsWithout || away > kNobodyPolls);
}

void Witness::end_over(Time now) {
  std::erase_if(presences_, [this, now](const auto& entry) {
    const bool is_gone = has_left(*entry.second, now);
    if (is_gone) {
      close(*entry.second, false);
    }
    return is_gone;
  });
}

void Witness::tell_over(std::size_t most) {
  for (; most > 0 && !over_.empty(); --most) {
    on_sighting_(over_.front());
    over_.pop_front();
  }
}

std::vector<Sighting> Witness::sightings() const {
  std::vector<Sighting> all(over_.begin(), over_.end());
  for (const auto& [epc, presence] : presences_) {
    if (presence->sighting.polls > 0) {
      all.push_back(presence->sighting);
    }
  }
  std::ranges::sort(all, {}, &Sighting::first);
  return all;
}

void Witness::end() {
  settle(latest_ + 2 * SecondOpinion::kPatience);
  polls_.clear();
  for (const auto& [epc, presence] : presences_) {
    close(*presence, false);
  }
  presences_.clear();
  tell_over(over_.size());
}

}  // namespace achost::why
