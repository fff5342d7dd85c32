// Questions of the line's own between those of the plug-in, and lending.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "line/relay.h"

namespace line {
namespace {

using std::chrono::milliseconds;

// A reader takes a few milliseconds for any answer but that to an inventory.
constexpr milliseconds kOwnPatience{300};

// The line asks for itself when polls have had no answer for so long: some readers say nothing when no tag is there.
constexpr milliseconds kDoubtAfter{750};
constexpr milliseconds kDoubtAgain{500};

constexpr std::size_t kLongestCommand = 1024;  // bytes; one of all channels has 264

constexpr std::chrono::minutes kLongestLoan{10};
constexpr std::chrono::seconds kGivingBack{3};

}  // namespace

void Line::Relay::start_own(Clock::time_point now) {
  if (own_.empty() || asking_.has_value() || borrower_.has_value()) {
    return;
  }
  asking_ = std::move(own_.front());
  own_.pop_front();
  asking_->deadline = now + kOwnPatience;
  watch_.asked(now);
  say_to_port(now, ByteView(Bytes(asking_->frame)));
  if (asking_.has_value() && !port_.has_value()) {
    finish_own(std::nullopt);
  }
}

void Line::Relay::came_for_own(Clock::time_point now, ByteView bytes) {
  auto [others, answer] = asking_->answer.add(bytes, conversation_.is_waiting(now));
  if (!others.empty()) {
    pass_answer(now, others);
  }
  if (answer.has_value()) {
    if (!giving_.has_value()) {
      watch_.answered(now, answer_of(asking_->code, *answer), false);
    }
    finish_own(std::move(answer));
  }
}

// A slow reader gives it when nobody but the plug-in waits for anything.
void Line::Relay::pass_without_overdue(Clock::time_point now, ByteView bytes) {
  const auto code = overdue_->code;
  if (now > overdue_->until) {
    overdue_.reset();
  }
  pass_answer(now,
              conversation_.question() == code ? Bytes(bytes.begin(), bytes.end()) : without_responses(code, bytes));
}

void Line::Relay::finish_own(std::optional<Bytes> answer) {
  Own own = std::move(*asking_);
  asking_.reset();
  if (!answer.has_value()) {
    overdue_ = {.code = own.code, .until = Clock::now() + kLatestAnswer};
    if (const Bytes rest = own.answer.rest(); !rest.empty() && conversation_.is_waiting(Clock::now())) {
      pass_answer(Clock::now(), rest);
    }
  }
  if (own.done) {
    own.done(std::move(answer));
  }
  if (asking_.has_value()) {
    return;
  }
  start_own(Clock::now());
  if (!asking_.has_value() && !held_.empty() && !owes_settings_ && port_.has_value()) {
    pass_question(Clock::now(), std::exchange(held_, {}));
  }
}

// Nobody will ask what still waits.
void Line::Relay::give_up_own() {
  for (const Own& own : std::exchange(own_, {})) {
    if (own.done) {
      own.done(std::nullopt);
    }
  }
}

void Line::Relay::look_for_life(Clock::time_point now) {
  const auto since = watch_.unanswered_since();
  const bool in_doubt = since.has_value() && now - *since >= kDoubtAfter && now >= next_life_;
  if (in_doubt && own_.empty() && !asking_.has_value() && !owes_settings_ && !borrower_.has_value() &&
      port_.has_value()) {
    next_life_ = now + kDoubtAgain;
    own_.push_back(
        {.frame = frame_of(FrameType::command, Code::get_power, {}), .code = Code::get_power, .done = nullptr});
  }
}

std::optional<Bytes> Line::Relay::ask(Code code) {
  auto promise = std::make_shared<std::promise<std::optional<Bytes>>>();
  auto answer = promise->get_future();
  request([this, code, promise] {
    if (!port_.has_value() || owes_settings_ || borrower_.has_value()) {
      promise->set_value(std::nullopt);
      return;
    }
    own_.push_back({.frame = frame_of(FrameType::command, code, {}),
                    .code = code,
                    .done = [promise](std::optional<Bytes> came) { promise->set_value(std::move(came)); }});
  });
  return answer.get();
}

bool Line::Relay::lend(int socket, const std::string& who) {
  auto returned = std::make_shared<std::promise<bool>>();
  auto over = returned->get_future();
  fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
  auto descriptor = std::make_shared<Descriptor>(socket);
  request([this, descriptor, who, returned] {
    if (borrower_.has_value() || waiting_borrower_.has_value() || !port_.has_value()) {
      returned->set_value(false);
      return;
    }
    waiting_borrower_.emplace(Borrower{
        .socket = std::move(*descriptor), .who = who, .until = Clock::now() + kLongestLoan, .returned = returned});
    if (trial_until_.has_value()) {
      take_back_trial(nullptr);  // he is to find the door's power
    }
  });
  return over.get();
}

void Line::Relay::take_back() {
  request([this] {
    if (borrower_.has_value()) {
      end_lending("it is taken back");
    }
  });
}

void Line::Relay::start_lending(Clock::time_point now) {
  // Who comes right after another finds the settings that the door has, unless the reader does not take them.
  const bool gives_back = owes_settings_ && watch_.health().state == State::lent;
  if (!waiting_borrower_.has_value() || asking_.has_value() || !own_.empty() || borrower_.has_value() || gives_back) {
    return;
  }
  borrower_.emplace(std::move(*waiting_borrower_));
  waiting_borrower_.reset();
  watch_.lent(borrower_->who);
  recorder_.note(std::string(kLent) + borrower_->who, now);
  done_with(conversation_.end());
  if (!held_.empty()) {
    answer_for_reader(std::exchange(held_, {}));
  }
  if (port_.has_value()) {
    tcflush(port_->fd(), TCIOFLUSH);
  }
  next_tick_ = now;
}

void Line::Relay::handle_borrower() {
  std::array<std::uint8_t, 4096> buffer;
  try {
    borrower_->outbox.go_on(borrower_->socket.get());
  } catch (const std::system_error&) {
    end_lending("it has gone");
    return;
  }
  const ssize_t count = read(borrower_->socket.get(), buffer.data(), buffer.size());
  if (count > 0) {
    pass_from_borrower(ByteView(buffer).first(static_cast<std::size_t>(count)));
  } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
    end_lending("it has gone");
  }
}

// Whole frames alone: half a command of somebody who has gone would swallow what the reader is told next.
void Line::Relay::pass_from_borrower(ByteView bytes) {
  auto& pending = borrower_->pending;
  pending.insert(pending.end(), bytes.begin(), bytes.end());
  const auto pieces = pieces_of(pending);
  for (const Frame& frame : pieces.frames) {
    say_to_port(Clock::now(), ByteView(pending).subspan(frame.offset, frame.size));
  }
  if (!borrower_.has_value()) {
    return;  // the port has gone
  }
  const bool goes_on = !pieces.gaps.empty() && pieces.gaps.back().flaw == Flaw::truncated &&
                       pieces.gaps.back().offset + pieces.gaps.back().size == pending.size();
  const std::size_t rest = goes_on ? pieces.gaps.back().size : 0;
  pending.erase(pending.begin(), pending.end() - static_cast<std::ptrdiff_t>(std::min(rest, kLongestCommand)));
}

void Line::Relay::say_to_borrower(ByteView bytes) {
  try {
    borrower_->outbox.send(borrower_->socket.get(), bytes);
  } catch (const std::system_error&) {
    end_lending("it has gone");
  }
}

// To the plug-in the field is empty while somebody else has the reader; what it sets meanwhile the reader gets later.
void Line::Relay::answer_for_reader(ByteView question) {
  const auto frames = pieces_of(question).frames;
  if (frames.empty()) {
    return;
  }
  if (const auto answer = radio_.answer_to(frames.back())) {
    const Code code = frames.back().code;
    if (code != Code::inventory && code != Code::get_power && code != Code::get_sensitivity) {
      radio_.will_set(frames.back());
    }
    say_to_plug_in(*answer);
  }
}

void Line::Relay::end_lending(const std::string& why) {
  recorder_.note(std::string(kReturned) + borrower_->who + ": " + why);
  returned_ = borrower_->returned;
  returned_until_ = Clock::now() + kGivingBack;
  borrower_.reset();
  watch_.returned();
  owes_settings_ = true;
  next_give_back_ = Clock::now();
  next_tick_ = Clock::now();
  if (port_.has_value()) {
    tcflush(port_->fd(), TCIFLUSH);
  }
}

// The borrower's connection ends when the plug-in's settings are in force again, or the reader does not take them.
void Line::Relay::tell_returned(Clock::time_point now) {
  if (returned_ != nullptr && (!owes_settings_ || !port_.has_value() || now >= returned_until_)) {
    returned_->set_value(true);
    returned_.reset();
  }
}

}  // namespace line
