#include "line/recorded_conversation.h"

#include "line/own_answer.h"

namespace line {

void RecordedConversation::take(Direction direction, ByteView bytes, Clock::time_point at) {
  if (is_lent_) {
    return;
  }
  if (direction == Direction::from_reader) {
    const bool is_among_own = at < own_until_ && conversation_.question() != own_;
    conversation_.take(at, is_among_own ? without_responses(own_, bytes) : Bytes(bytes.begin(), bytes.end()));
    return;
  }
  const auto frames = pieces_of(bytes).frames;
  const bool may_be_own =
      frames.size() == 1 && (frames.front().code == Code::get_power || frames.front().code == Code::get_sensitivity);
  if (may_be_own && conversation_.is_waiting(at)) {
    own_ = frames.front().code;
    own_until_ = at + kLatestAnswer;
  } else {
    done_with(conversation_.ask(at, bytes));
  }
}

void RecordedConversation::note(std::string_view text) {
  if (text.starts_with(kLent)) {
    done_with(conversation_.end());
    is_lent_ = true;
  } else if (text.starts_with(kReturned) || text == kNotesMissing) {
    is_lent_ = false;
  }
}

void RecordedConversation::done_with(const std::optional<Exchange>& exchange) {
  if (exchange.has_value()) {
    on_exchange_(*exchange);
  }
}

}  // namespace line
