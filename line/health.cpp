#include "line/health.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace line {
namespace {

constexpr double kNoisyAbove = 0.05;
// One bad poll of few is no noise yet: a reader that is asked every two seconds has five in the window.
constexpr int kFewestBad = 2;

std::string percent(double share) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.0f %%", share * 100);
  return text.data();
}

}  // namespace

const char* name_of(State state) {
  constexpr std::array kNames = {"answering", "noisy", "silent", "gone", "lent"};
  return kNames.at(static_cast<std::size_t>(state));
}

HealthWatch::HealthWatch(std::string port, Clock::time_point now) : port_(std::move(port)), begin_(now) {
  health_.since = now;
  explain(State::answering);
}

void HealthWatch::asked(Clock::time_point now) {
  if (!unanswered_since_.has_value()) {
    unanswered_since_ = now;
  }
}

void HealthWatch::answered(Clock::time_point now, const Answer& answer, bool poll) {
  if (is_good(answer.outcome)) {
    unanswered_since_.reset();
    has_answered_ = true;
    health_.last_good = now;
  }
  const bool bad = is_bad(answer);
  if (bad) {
    last_flaw_ = answer.flaw.has_value() ? name_of(*answer.flaw) : name_of(answer.outcome);
  }
  if (poll) {
    Second& second = second_of(now);
    ++second.polls;
    second.bad += bad ? 1 : 0;
    ++health_.polls;
    health_.bad_polls += bad ? 1U : 0U;
    health_.silent_polls += answer.outcome == Outcome::silence ? 1U : 0U;
  }
}

void HealthWatch::port_gone(const std::string& cause) {
  gone_cause_ = cause;
  unanswered_since_.reset();
  has_answered_ = false;
}

void HealthWatch::port_back() { gone_cause_.reset(); }

void HealthWatch::lent(const std::string& who) { borrower_ = who; }

void HealthWatch::returned() {
  borrower_.reset();
  unanswered_since_.reset();
  has_answered_ = false;
}

HealthWatch::Second& HealthWatch::second_of(Clock::time_point now) {
  const auto number = std::chrono::floor<std::chrono::seconds>(now - begin_).count();
  Second& second = seconds_.at(static_cast<std::size_t>(number % kWindow));
  if (second.number != number) {
    second = {.number = number};
  }
  return second;
}

void HealthWatch::take_stock(Clock::time_point now) {
  const auto newest = std::chrono::floor<std::chrono::seconds>(now - begin_).count();
  window_polls_ = 0;
  window_bad_ = 0;
  for (const Second& second : seconds_) {
    if (second.number >= 0 && second.number > newest - kWindow) {
      window_polls_ += second.polls;
      window_bad_ += second.bad;
    }
  }
  const double seconds = std::clamp(std::chrono::duration<double>(now - begin_).count(), 1.0, double{kWindow});
  health_.polls_a_second = window_polls_ / seconds;
  health_.bad_share = window_polls_ == 0 ? 0 : static_cast<double>(window_bad_) / window_polls_;
}

State HealthWatch::state_now(Clock::time_point now) const {
  if (gone_cause_.has_value()) {
    return State::gone;
  }
  if (borrower_.has_value()) {
    return State::lent;
  }
  if (unanswered_since_.has_value() && now - *unanswered_since_ >= kSilentAfter) {
    return State::silent;
  }
  if (!has_answered_) {
    return health_.state == State::noisy ? State::answering : health_.state;  // until something is known
  }
  return window_bad_ >= kFewestBad && health_.bad_share > kNoisyAbove ? State::noisy : State::answering;
}

void HealthWatch::explain(State state) {
  health_.cause.clear();
  health_.way_out.clear();
  switch (state) {
    case State::answering:
      break;
    case State::noisy:
      health_.cause = percent(health_.bad_share) + " of the polls of the last 10 s were bad, the last by " + last_flaw_;
      health_.way_out = "look at cable, ground and power supply; `uhfctl doctor` tells more";
      break;
    case State::silent:
      health_.cause = "the reader at " + port_ + " does not answer";
      health_.way_out = "is it powered? `uhfctl doctor` tells more";
      break;
    case State::gone:
      health_.cause = gone_cause_.value_or("the port is back, and the reader has not answered yet");
      health_.way_out = gone_cause_.has_value() ? "plug the adapter in; it is found again by itself" : "";
      break;
    case State::lent:
      health_.cause = borrower_.has_value() ? "lent to " + *borrower_ : "the reader gets its settings again";
      break;
  }
}

bool HealthWatch::look(Clock::time_point now) {
  take_stock(now);
  const State state = state_now(now);
  const bool changed = state != health_.state;
  if (changed) {
    health_.state = state;
    health_.since = now;
  }
  explain(state);
  return changed;
}

}  // namespace line
