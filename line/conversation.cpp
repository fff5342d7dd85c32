#include "line/conversation.h"

#include <algorithm>
#include <utility>

namespace line {
namespace {

// Longer than the pauses within an answer, and than most hosts wait for the next piece of one.
constexpr std::chrono::milliseconds kQuiet{200};

}  // namespace

std::optional<Exchange> Conversation::ask(Clock::time_point now, ByteView bytes) {
  const auto frames = pieces_of(bytes).frames;
  if (frames.empty() && open_.has_value()) {
    open_->question.insert(open_->question.end(), bytes.begin(), bytes.end());
    const auto whole = pieces_of(open_->question).frames;
    open_->code = whole.empty() ? open_->code : whole.back().code;
    return std::nullopt;
  }
  auto before = end();
  open_.emplace();
  open_->question.assign(bytes.begin(), bytes.end());
  open_->code = frames.empty() ? Code::failure : frames.back().code;
  open_->asked = now;
  open_->last_byte = now;
  return before;
}

std::optional<Exchange> Conversation::end() {
  auto last = settled_ ? std::nullopt : std::exchange(open_, std::nullopt);
  if (last.has_value()) {
    last->answer = answer_of(last->code, last->bytes, cut_off_);
  }
  open_.reset();
  cut_off_ = false;
  settled_ = false;
  return last;
}

std::size_t Conversation::take(Clock::time_point now, ByteView bytes) {
  if (!open_.has_value() || cut_off_) {
    return 0;
  }
  const bool late = now - open_->asked > kLatestAnswer;
  const std::size_t taken = late ? 0 : std::min(bytes.size(), kLongestAnswer - open_->bytes.size());
  // What begins long after is a stranger; what goes on and on is a flood.
  cut_off_ = taken < bytes.size() && !open_->bytes.empty() && now - open_->last_byte < kQuiet;
  if (taken > 0) {
    open_->may_have_seemed_whole =
        open_->may_have_seemed_whole || (!open_->bytes.empty() && open_->bytes.back() == kFrameEnd);
    open_->bytes.insert(open_->bytes.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(taken));
    open_->last_byte = now;
  }
  return taken;
}

std::optional<Exchange> Conversation::settle(Clock::time_point now) {
  if (!open_.has_value() || settled_) {
    return std::nullopt;
  }
  const bool quiet = !open_->bytes.empty() && now - open_->last_byte >= kQuiet;
  settled_ = cut_off_ || quiet || now - open_->asked > kLatestAnswer;
  return settled_ ? std::optional(judged()) : std::nullopt;
}

bool Conversation::is_quiet(Clock::time_point now) const {
  return !open_.has_value() || now - open_->last_byte >= kQuiet;
}

bool Conversation::is_waiting(Clock::time_point now) const {
  return open_.has_value() && now - open_->asked <= kLatestAnswer && !is_good(judged().answer.outcome);
}

Exchange Conversation::judged() const {
  Exchange exchange = *open_;
  exchange.answer = answer_of(exchange.code, exchange.bytes, cut_off_);
  return exchange;
}

}  // namespace line
