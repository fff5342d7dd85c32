// Bringing the reader back: the port, the ladder, and the settings.
#include <termios.h>

#include <filesystem>
#include <utility>

#include "line/port_identity.h"
#include "line/relay.h"

namespace line {
namespace {

using std::chrono::milliseconds;

// How often the port is looked for, and a reader is asked that has not got its settings yet.
constexpr milliseconds kOpenAgain{200};
constexpr milliseconds kAskAgain{250};

}  // namespace

// The port by its name, if the same adapter is there, else wherever that is now.
std::string Line::Relay::find_port() const {
  if (identity_.has_value() && identity_of(options_.path) != identity_) {
    if (const auto found = port_with(*identity_)) {
      return found->string();
    }
  }
  return options_.path;
}

bool Line::Relay::open_port() {
  next_open_ = Clock::now() + kOpenAgain;
  const std::string path = find_port();
  try {
    port_.emplace(path, options_.alternative);
  } catch (const PortError& failure) {
    watch_.port_gone(failure.what());
    return false;
  }
  if (!identity_.has_value()) {
    identity_ = identity_of(path);
  }
  watch_.port_back();
  to_port_.clear();
  drop_unread();
  next_give_back_ = Clock::now();
  const std::lock_guard lock(mutex_);
  shown_port_ = path;
  return true;
}

void Line::Relay::lose_port(const std::string& cause) {
  port_.reset();
  done_with(conversation_.end());
  watch_.port_gone(cause);
  held_.clear();
  owes_settings_ = true;
  next_open_ = Clock::now() + kOpenAgain;
  give_up_own();
  if (asking_.has_value()) {
    finish_own(std::nullopt);
  }
  if (waiting_borrower_.has_value()) {
    waiting_borrower_->returned->set_value(false);
    waiting_borrower_.reset();
  }
  if (borrower_.has_value()) {
    end_lending("the port has gone");
  }
  next_tick_ = Clock::now();  // it is said at once
}

void Line::Relay::climb(Clock::time_point now) {
  if (const auto rung = ladder_.due(now, port_.has_value())) {
    take(*rung, now);
  }
}

void Line::Relay::take(Rung rung, Clock::time_point now) {
  std::string text = std::string("tried: ") + name_of(rung);
  switch (rung) {
    case Rung::drop_waiting:
      tcflush(port_->fd(), TCIOFLUSH);
      to_port_.clear();
      drop_unread();
      break;
    case Rung::reopen:
      port_.reset();
      open_port();
      break;
    case Rung::reset:
      text += options_.reset() ? "" : ", which failed";
      break;
    case Rung::give_up:
      tell(Event::Kind::given_up, "the reader at " + options_.path + " has not come back: " + watch_.health().cause);
      return;
  }
  recorder_.note(text, now);
  tell(Event::Kind::step, text);
}

// A reader that was away may have lost what it was told. It gets all of it before anything else, and is asked first
// whether it is there at all.
void Line::Relay::give_back(Clock::time_point now) {
  if (!owes_settings_ || giving_.has_value() || !port_.has_value() || borrower_.has_value() || now < next_give_back_) {
    return;
  }
  done_with(conversation_.end());
  giving_ = radio_.commands();
  giving_->insert(giving_->begin(), frame_of(FrameType::command, Code::get_power, {}));
  held_.clear();
  give_up_own();
  give_back_next();
}

void Line::Relay::give_back_next() {
  const Bytes command = giving_->front();
  giving_->erase(giving_->begin());
  const Code code = pieces_of(command).frames.front().code;
  const bool last = giving_->empty();
  own_.push_front({.frame = command, .code = code, .done = [this, last](const std::optional<Bytes>& answer) {
                     if (!answer.has_value()) {
                       giving_.reset();
                       next_give_back_ = Clock::now() + kAskAgain;
                     } else if (!last) {
                       give_back_next();
                     } else if (!radio_.commands().empty()) {
                       // Once more: what the reader says is what it has.
                       own_.push_front({.frame = frame_of(FrameType::command, Code::get_power, {}),
                                        .code = Code::get_power,
                                        .done = [this](const std::optional<Bytes>& read) { has_given_back(read); }});
                     } else {
                       has_given_back(answer);
                     }
                   }});
  start_own(Clock::now());
}

void Line::Relay::has_given_back(const std::optional<Bytes>& read) {
  giving_.reset();
  if (!read.has_value()) {
    next_give_back_ = Clock::now() + kAskAgain;
    return;
  }
  owes_settings_ = false;
  // Not before: a reader that reads with other settings than the door's is not back yet.
  watch_.answered(Clock::now(), {.outcome = Outcome::answered, .flaw = {}, .tags = {}}, false);
  next_tick_ = Clock::now();
  if (radio_.commands().empty()) {
    return;
  }
  int power = -1;
  for (const Frame& frame : pieces_of(*read).frames) {
    power = frame.code == Code::get_power && frame.type == FrameType::response ? power_of(frame.parameters) : power;
  }
  const bool differs = power >= 0 && radio_.power().has_value() && power != *radio_.power();
  const std::string text = differs ? "the reader has a power of " + power_text(power) + " after it was given " +
                                         power_text(*radio_.power()) + "; does it allow that power in this region?"
                                   : "the reader has its settings again";
  recorder_.note(text);
  tell(Event::Kind::given_back, text);
}

}  // namespace line
