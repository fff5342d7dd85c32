// Questions to the reader, one at a time, and what comes for each.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "line/answer.h"
#include "line/bytes.h"
#include "line/frames.h"

namespace line {

// Bounds of an answer: what comes beyond is not the answer to anything.
inline constexpr std::size_t kLongestAnswer = 65'536;
inline constexpr std::chrono::milliseconds kLatestAnswer{2000};

// A question that is done with.
struct Exchange {
  Bytes question;  // as it went out
  Code code = Code::failure;
  Bytes bytes;  // that came for it
  Answer answer;
  Clock::time_point asked;
  Clock::time_point last_byte;  // when the last of them came, or the question went
  // More came after something that may be the end of a frame: who asked may have taken the answer for whole before.
  bool may_have_seemed_whole = false;

  ByteView epc_of(const TagPlace& tag) const { return ByteView(bytes).subspan(tag.epc, tag.size); }
};

// One thread uses it.
class Conversation {
 public:
  // A question goes out, whose answer ends what came for the one before. Bytes that hold no frame are a part of a
  // question that began before.
  std::optional<Exchange> ask(Clock::time_point now, ByteView bytes);

  // How many of the bytes that came belong to the answer: all of them, or those within its bounds, or none when nothing
  // was asked.
  std::size_t take(Clock::time_point now, ByteView bytes);

  // What became of the question, should no other follow soon: it was answered and the line has been quiet since, or its
  // time is over. Said once; what still comes in time is taken all the same.
  std::optional<Exchange> settle(Clock::time_point now);

  // The question that is open is the last; what became of it, if that was not said.
  std::optional<Exchange> end();

  // The question that is open has no good answer yet, and one may still come.
  bool is_waiting(Clock::time_point now) const;

  // What the open question asks.
  std::optional<Code> question() const { return open_.has_value() ? std::optional(open_->code) : std::nullopt; }

  // Nothing asked is open, or nobody waits for its answer any more.
  bool is_quiet(Clock::time_point now) const;

 private:
  Exchange judged() const;

  std::optional<Exchange> open_;
  bool cut_off_ = false;  // more came for it than is taken
  bool settled_ = false;  // it was said what became of it
};

}  // namespace line
