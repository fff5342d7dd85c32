#include "door/services/visits.h"

#include <algorithm>
#include <utility>

namespace achost {

// With mutex_ held.
void Visits::end(std::unordered_map<Card, Visit>::iterator visit) {
  if (over_.size() < kMost) {
    over_.push_back(visit->second);
  }
  visits_.erase(visit);
}

std::optional<Visits::Visit> Visits::announced(Card card, Time now, std::chrono::milliseconds away) {
  const std::lock_guard lock(mutex_);
  away_ = away;
  const auto found = visits_.find(card);
  if (found == visits_.end()) {
    return std::nullopt;
  }
  if (is_over(found->second, now)) {
    end(found);
    return std::nullopt;
  }
  const auto visit = found->second;
  found->second.last = std::max(found->second.last, now);
  return visit;
}

void Visits::told(Card card, Time now) {
  const std::lock_guard lock(mutex_);
  if (const auto found = visits_.find(card); found != visits_.end()) {
    found->second.told = now;
  }
}

void Visits::begin(Card card, Time now) {
  const std::lock_guard lock(mutex_);
  if (away_ <= std::chrono::milliseconds(0)) {
    return;
  }
  if (visits_.size() >= kMost) {
    end(std::ranges::min_element(visits_, {}, [](const auto& one) { return one.second.last; }));
  }
  visits_.insert_or_assign(card, Visit{.card = card, .begin = now, .last = now});
}

void Visits::read(std::span<const Card> cards, Time at) {
  const std::lock_guard lock(mutex_);
  for (const auto card : cards) {
    const auto found = visits_.find(card);
    if (found == visits_.end()) {
      continue;
    }
    if (is_over(found->second, at)) {
      end(found);
    } else {
      found->second.last = std::max(found->second.last, at);
    }
  }
}

bool Visits::is_empty() const {
  const std::lock_guard lock(mutex_);
  return visits_.empty();
}

std::vector<Visits::Visit> Visits::take_over(Time now) {
  const std::lock_guard lock(mutex_);
  for (auto visit = visits_.begin(); visit != visits_.end();) {
    const auto next = std::next(visit);
    if (is_over(visit->second, now - kToldLate)) {
      end(visit);
    }
    visit = next;
  }
  return std::exchange(over_, {});
}

}  // namespace achost
