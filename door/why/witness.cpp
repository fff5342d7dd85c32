#include "door/why/witness.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace achost::why {
namespace {

// A fate holds at least until something happens, or the first of its reasons ends; and it is looked up now and then.
constexpr milliseconds kLookAgain{100};

// A card that has left is seen to have in two polls, unless nobody polls any more.
constexpr std::uint64_t kPollsWithout = 2;
constexpr std::chrono::seconds kNobodyPolls{30};

std::string_view key_of(const line::Bytes& epc) { return {reinterpret_cast<const char*>(epc.data()), epc.size()}; }

}  // namespace

struct Witness::Presence {
  Sighting sighting;
  WitnessSettings settings;       // that its card value was made with
  std::uint64_t last_poll = 0;    // that read it
  std::optional<Time> last_used;  // the last reading that the plug-in takes,
  bool is_sure = true;            // or may take

  std::size_t chapter = 0;  // the first fate since it was announced last

  // The fate of its readings until then, while the version is the same.
  std::size_t fate = 0;
  std::uint64_t version = 0;
  Time until;

  // Readings whose fate is not known yet.
  std::int64_t waiting = 0;
  Time waiting_since;

  // The fate with these reasons, in this chapter.
  Fate& fate_with(const std::vector<Because>& reasons, Time at) {
    auto& fates = sighting.fates;
    const auto begin = fates.begin() + static_cast<std::ptrdiff_t>(chapter);
    const auto found = std::find_if(begin, fates.end(), [&](const Fate& one) {
      return std::ranges::equal(one.reasons, reasons, {}, &Because::reason, &Because::reason);
    });
    return found != fates.end() ? *found : fates.emplace_back(Fate{.from = at, .to = at, .reasons = reasons});
  }
};

Witness::Witness(WitnessSettings settings, Time start, std::function<void(const Sighting&)> on_sighting,
                 std::function<void(const Disagreement&)> on_disagreement)
    : settings_(std::move(settings)),
      model_(settings_.rules, start),
      on_sighting_(std::move(on_sighting)),
      on_disagreement_(std::move(on_disagreement)),
      now_(start) {}

Witness::~Witness() = default;

Time Witness::forward(Time at) {
  now_ = std::max(now_, at);
  return now_;
}

void Witness::apply(const WitnessSettings& settings, Time at) {
  settings_ = settings;
  model_.apply(settings.rules, forward(at));
  ++version_;
}

void Witness::input(std::optional<int> level, Time at) {
  model_.input(level, forward(at));
  ++version_;
}

void Witness::saw(const line::Exchange& exchange) {
  if (exchange.code != line::Code::inventory) {
    return;
  }
  const Time at = forward(exchange.last_byte);
  settle(at);
  ++polls_;
  for (const Report& report : reports_of(exchange)) {
    if (Presence* const presence = presence_of(*report.tag, at)) {
      read(*presence, report, at, !exchange.may_have_seemed_whole);
    }
  }
  look(at);
}

// Nothing when there are too many.
Witness::Presence* Witness::presence_of(const line::Tag& tag, Time at) {
  const std::string key(key_of(tag.epc));
  auto found = presences_.find(key);
  if (found == presences_.end()) {
    if (presences_.size() >= kMostSightings || tag.epc.size() > kLongestEpc) {
      ++left_out_;
      return nullptr;
    }
    found = presences_.emplace(key, std::make_unique<Presence>()).first;
    found->second->sighting.epc = tag.epc;
    begin(*found->second, at);
  }
  Presence& presence = *found->second;
  const bool has_other_value = presence.settings.identification_bits != settings_.identification_bits ||
                               presence.settings.reader_type != settings_.reader_type;
  const bool is_long = presence.sighting.fates.size() >= kMostFates || at - presence.sighting.first >= kLongest;
  if (has_other_value || is_long) {
    close(presence, true);
    begin(presence, at);
  }
  return &presence;
}

void Witness::begin(Presence& presence, Time at) const {
  auto epc = std::move(presence.sighting.epc);
  const auto card = card_value(epc, settings_.identification_bits, settings_.reader_type);
  presence.sighting = {.epc = std::move(epc), .card = card, .first = at, .last = at, .fates = {}};
  presence.settings = settings_;
  presence.chapter = 0;
  presence.version = 0;
}

void Witness::close(Presence& presence, bool goes_on) const {
  if (presence.waiting > 0 && !goes_on) {
    Fate& fate = presence.fate_with({{.reason = Reason::kUnexplained}}, presence.waiting_since);
    fate.polls += std::exchange(presence.waiting, 0);
    fate.at_boundary = true;
  }
  presence.sighting.goes_on = goes_on;
  on_sighting_(presence.sighting);
}

void Witness::read(Presence& presence, const Report& report, Time at, bool is_sure) {
  Sighting& sighting = presence.sighting;
  const auto count = [at](Fate& fate) {
    fate.to = at;
    ++fate.polls;
  };
  sighting.last = at;
  sighting.rssi = std::max(sighting.rssi, report.tag->rssi);
  ++sighting.polls;
  presence.last_poll = polls_;
  if (report.unused.has_value()) {
    Fate& fate = presence.fate_with({{.reason = *report.unused}}, at);
    if (fate.polls == 0) {
      fate.number = report.number;
      fate.count = report.count;
      fate.flaw = report.flaw;
    }
    count(fate);
    return;
  }
  presence.last_used = at;
  presence.is_sure = is_sure;
  if (!is_sure) {
    auto verdict = model_.verdict({sighting.card, at}, at);
    if (verdict.expected()) {
      verdict.reasons = {{.reason = Reason::kAnswerInPieces}};
    }
    Fate& fate = presence.fate_with(verdict.reasons, at);
    fate.at_boundary = true;
    count(fate);
  } else if (presence.version == version_ && at < presence.until) {
    count(sighting.fates[presence.fate]);
  } else {
    presence.waiting_since = presence.waiting == 0 ? at : presence.waiting_since;
    ++presence.waiting;
    looked_at_.emplace(sighting.card, &presence);
  }
}

// What becomes of the readings of this poll whose fate is not known from before.
void Witness::look(Time at) {
  if (looked_at_.empty()) {
    return;
  }
  std::vector<Card> cards;
  for (const auto& [card, presence] : looked_at_) {
    cards.push_back(card);
  }
  for (const Verdict& verdict : model_.poll(at, cards)) {
    if (verdict.expected()) {
      open_.push_back(verdict);
    } else {
      conclude(verdict);
      due_.erase(verdict.reading.card);
    }
  }
}

void Witness::conclude(const Verdict& verdict) {
  const auto [first, last] = looked_at_.equal_range(verdict.reading.card);
  std::for_each(first, last, [&](const auto& entry) { conclude(*entry.second, verdict); });
}

void Witness::conclude(Presence& presence, const Verdict& verdict) const {
  const Time at = verdict.reading.at;
  Fate& fate = presence.fate_with(verdict.reasons, presence.waiting > 0 ? presence.waiting_since : at);
  fate.at_boundary = verdict.at_boundary && (fate.polls == 0 || fate.at_boundary);
  fate.to = at;
  fate.polls += std::exchange(presence.waiting, 0);
  fate.announced_from = verdict.would_have_been_from;
  presence.version = 0;
  if (fate.is_announcement()) {
    presence.chapter = presence.sighting.fates.size();
  } else if (!verdict.at_boundary && fate.reasons.front().reason != Reason::kLostTurn) {
    presence.fate = static_cast<std::size_t>(&fate - presence.sighting.fates.data());
    presence.version = version_;
    presence.until = at + kLookAgain;
    for (const Because& because : verdict.reasons) {
      presence.until = std::min(presence.until, because.until.value_or(Time::max()) - 2 * Suppression::kNear);
    }
  }
}

void Witness::announced(Card card, Time at) {
  forward(at);
  const auto is_its = [card](const Verdict& verdict) { return verdict.reading.card == card; };
  if (std::ranges::none_of(open_, is_its)) {
    open_late(card);
  }
  const auto its = std::ranges::find_if(open_, is_its);
  Disagreement disagreement{.card = card, .at = now_, .was_announced = true, .reasons = {}};
  if (its != open_.end()) {
    disagreement.reasons = its->reasons;
  }
  const auto opinion = model_.settle(open_, card, now_);
  ++version_;
  for (const Verdict& verdict : open_) {
    conclude(verdict);
  }
  open_.clear();
  due_.clear();
  if (opinion == Opinion::kDisagrees) {
    on_disagreement_(disagreement);
  }
}

// A card that was read before the last poll, or was not to be announced.
void Witness::open_late(Card card) {
  std::optional<Verdict> verdict;
  for (auto& [epc, presence] : presences_) {
    if (presence->sighting.card != card || !presence->last_used.has_value()) {
      continue;
    }
    const auto [first, last] = looked_at_.equal_range(card);
    if (std::none_of(first, last, [&](const auto& entry) { return entry.second == presence.get(); })) {
      looked_at_.emplace(card, presence.get());
    }
    verdict = model_.verdict({card, *presence->last_used}, now_);
    verdict->at_boundary = verdict->at_boundary || !presence->is_sure;
  }
  if (verdict.has_value()) {
    open_.push_back(*std::move(verdict));
  }
}

// Nobody was announced since the last poll: its round may be late, or is doubtful, or the plug-in does otherwise.
void Witness::settle(Time at) {
  for (const Verdict& verdict : open_) {
    if (!verdict.at_boundary) {
      due_.try_emplace(verdict.reading.card, verdict.reading.at);
    }
  }
  for (auto entry = due_.begin(); entry != due_.end();) {
    const auto [card, since] = *entry;
    if (at - since <= kPatience) {
      ++entry;
      continue;
    }
    for (auto& [epc, presence] : presences_) {
      if (presence->sighting.card == card) {
        conclude(*presence,
                 {.reading = {card, since}, .reasons = {{.reason = Reason::kUnexplained}}, .would_have_been_from = {}});
      }
    }
    on_disagreement_({.card = card, .at = since, .reasons = {}});
    entry = due_.erase(entry);
  }
  open_.clear();
  looked_at_.clear();
}

void Witness::pass(Time now) {
  settle(forward(now));
  end_over();
}

void Witness::end_over() {
  std::erase_if(presences_, [this](const auto& entry) {
    Presence& presence = *entry.second;
    const auto away = now_ - presence.sighting.last;
    const bool has_left = away > kLeft && (polls_ - presence.last_poll >= kPollsWithout || away > kNobodyPolls);
    if (has_left) {
      close(presence, false);
    }
    return has_left;
  });
}

std::vector<Sighting> Witness::sightings() const {
  std::vector<Sighting> all;
  for (const auto& [epc, presence] : presences_) {
    all.push_back(presence->sighting);
  }
  std::ranges::sort(all, {}, &Sighting::first);
  return all;
}

void Witness::end() {
  settle(now_);
  for (const auto& [epc, presence] : presences_) {
    close(*presence, false);
  }
  presences_.clear();
}

}  // namespace achost::why
