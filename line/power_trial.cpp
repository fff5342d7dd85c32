// Another power in the reader for a while, between the polls of the plug-in. The plug-in never sees it.
#include <future>
#include <utility>

#include "line/relay.h"

namespace line {
namespace {

std::optional<int> power_in(const std::optional<Bytes>& answer) {
  std::optional<int> power;
  if (answer.has_value()) {
    for (const Frame& frame : pieces_of(*answer).frames) {
      power = frame.code == Code::get_power && frame.type == FrameType::response ? power_of(frame.parameters) : power;
    }
  }
  return power;
}

Bytes set_power_frame(int power) {
  const Bytes parameters{static_cast<std::uint8_t>(power / 256), static_cast<std::uint8_t>(power % 256)};
  return frame_of(FrameType::command, Code::set_power, parameters);
}

}  // namespace

bool Line::Relay::can_be_asked() const {
  return port_.has_value() && !owes_settings_ && !borrower_.has_value() && !waiting_borrower_.has_value();
}

// What the reader then says is what it has.
void Line::Relay::set_power(int power, Done done) {
  own_.push_back({.frame = set_power_frame(power), .code = Code::set_power, .done = nullptr});
  own_.push_back(
      {.frame = frame_of(FrameType::command, Code::get_power, {}), .code = Code::get_power, .done = std::move(done)});
}

// A reader that does not say that it has the plug-in's power again gets all settings anew.
void Line::Relay::take_back_trial(const Done& done) {
  trial_until_.reset();
  const int wanted = radio_.power().value();
  recorder_.note("the power that was tried is taken back");
  set_power(wanted, [this, wanted, done](std::optional<Bytes> answer) {
    if (power_in(answer) != wanted) {
      owes_settings_ = true;
      next_give_back_ = Clock::now();
    }
    if (done) {
      done(std::move(answer));
    }
  });
}

void Line::Relay::watch_trial(Clock::time_point now) {
  if (!trial_until_.has_value()) {
    return;
  }
  if (owes_settings_ || borrower_.has_value()) {
    trial_until_.reset();  // it gets the plug-in's settings then
  } else if (now >= *trial_until_) {
    take_back_trial(nullptr);
  }
}

std::optional<int> Line::Relay::try_power(int power, std::chrono::milliseconds how_long) {
  auto promise = std::make_shared<std::promise<std::optional<int>>>();
  auto has = promise->get_future();
  request([this, power, how_long, promise] {
    if (!can_be_asked() || !radio_.power().has_value()) {
      promise->set_value(std::nullopt);
      return;
    }
    if (!trial_until_.has_value()) {
      recorder_.note("somebody tries powers");
    }
    trial_until_ = Clock::now() + how_long;
    set_power(power, [promise](const std::optional<Bytes>& answer) { promise->set_value(power_in(answer)); });
  });
  return has.get();
}

std::optional<int> Line::Relay::end_trial() {
  auto promise = std::make_shared<std::promise<std::optional<int>>>();
  auto has = promise->get_future();
  request([this, promise] {
    const Done done = [promise](const std::optional<Bytes>& answer) { promise->set_value(power_in(answer)); };
    if (!can_be_asked()) {
      promise->set_value(std::nullopt);
    } else if (trial_until_.has_value()) {
      take_back_trial(done);
    } else {
      own_.push_back(
          {.frame = frame_of(FrameType::command, Code::get_power, {}), .code = Code::get_power, .done = done});
    }
  });
  return has.get();
}

std::optional<Clock::time_point> Line::Relay::trial_until() const {
  const std::lock_guard lock(mutex_);
  return shown_trial_;
}

}  // namespace line
