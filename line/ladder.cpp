#include "line/ladder.h"

#include <algorithm>

namespace line {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kAfterDrop{500};
constexpr milliseconds kAfterReopen{2000};
constexpr milliseconds kAfterReset{5000};
constexpr milliseconds kLongestPatience{60'000};

}  // namespace

const char* name_of(Rung rung) {
  constexpr std::array kNames = {"what waited on the line is dropped", "the port is opened again",
                                 "the reader is reset", "given up"};
  return kNames.at(static_cast<std::size_t>(rung));
}

void Ladder::begin(Clock::time_point now) {
  begun_ = now;
  next_at_ = now;
  next_ = Rung::drop_waiting;
  patience_ = kAfterReopen;
  gave_up_ = false;
}

std::optional<Rung> Ladder::take(Clock::time_point now, Rung rung, milliseconds time_to_work) {
  next_at_ = now + time_to_work;
  ++taken_.at(static_cast<std::size_t>(rung));
  return rung;
}

std::optional<Rung> Ladder::due(Clock::time_point now, bool has_port) {
  if (!begun_.has_value() || gave_up_) {
    return std::nullopt;
  }
  if (give_up_after_ > milliseconds::zero() && now - *begun_ >= give_up_after_) {
    gave_up_ = true;
    return take(now, Rung::give_up, {});
  }
  if (!has_port || now < next_at_) {
    return std::nullopt;
  }
  switch (next_) {
    case Rung::drop_waiting:
      next_ = Rung::reopen;
      return take(now, Rung::drop_waiting, kAfterDrop);
    case Rung::reopen: {
      const auto time = patience_;
      next_ = can_reset_ ? Rung::reset : Rung::reopen;
      patience_ = can_reset_ ? patience_ : std::min(patience_ * 2, kLongestPatience);
      return take(now, Rung::reopen, time);
    }
    default:
      next_ = Rung::reopen;
      patience_ = std::min(patience_ * 2, kLongestPatience);
      return take(now, Rung::reset, std::max(kAfterReset, patience_));
  }
}

}  // namespace line
