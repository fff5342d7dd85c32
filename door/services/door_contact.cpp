#include "door/services/door_contact.h"

#include <algorithm>
#include <array>
#include <utility>

namespace achost {
namespace {

constexpr std::array<std::string_view, 6> kStateNames = {"closed",       "opened",     "forced",
                                                         "held_warning", "held_alarm", "not_used"};

}  // namespace

std::string_view name_of(ContactState state) { return kStateNames.at(static_cast<std::size_t>(state)); }

DoorContact::DoorContact(bool is_open, Time now)
    : state_(is_open ? ContactState::opened : ContactState::closed), opened_(now) {}

void DoorContact::released() {
  if (!is_released_) {
    is_released_ = true;
    was_used_ = state_ != ContactState::closed;
    not_used_.reset();
  }
}

void DoorContact::locked(bool is_for_somebody, Time now) {
  if (is_released_) {
    is_released_ = false;
    locked_ = now;
    not_used_ = is_for_somebody && !was_used_ ? locked_ : std::nullopt;
  }
}

bool DoorContact::is_let_through(Time at, const Limits& limits) const {
  return is_released_ || limits.opens_by_handle || (locked_.has_value() && at < *locked_ + limits.grace);
}

std::optional<ContactState> DoorContact::moved(bool is_open, Time at, const Limits& limits) {
  if (is_open == (state_ != ContactState::closed)) {
    return std::nullopt;
  }
  if (is_open) {
    opened_ = at;
    was_used_ = true;
    not_used_.reset();
  }
  state_ = !is_open ? ContactState::closed : is_let_through(at, limits) ? ContactState::opened : ContactState::forced;
  return state_;
}

std::vector<ContactState> DoorContact::look(Time now, const Limits& limits) {
  std::vector<ContactState> news;
  if (not_used_.has_value() && now >= *not_used_ + limits.grace) {
    not_used_.reset();
    news.push_back(ContactState::not_used);
  }
  const auto open_for = now - std::max(opened_, locked_.value_or(opened_));
  for (const auto& [state, limit] :
       {std::pair(ContactState::held_warning, limits.warning), std::pair(ContactState::held_alarm, limits.alarm)}) {
    const bool could_come = state_ == ContactState::opened || state_ == ContactState::held_warning;
    if (could_come && state_ < state && !is_released_ && limit.count() != 0 && open_for >= limit) {
      news.push_back(state_ = state);
    }
  }
  return news;
}

}  // namespace achost
