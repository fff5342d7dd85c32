#include "line/own_answer.h"

#include <algorithm>
#include <utility>

#include "line/conversation.h"

namespace line {
namespace {

constexpr std::size_t kLongestPart = 1024;  // bytes of a frame that has not come to its end

bool is_response(const Frame& frame, Code code) { return frame.type == FrameType::response && frame.code == code; }

}  // namespace

OwnAnswer::Sorted OwnAnswer::add(ByteView bytes, bool plug_in_waits) {
  const auto room = std::min(bytes.size(), kLongestAnswer - std::min(came_.size(), kLongestAnswer));
  came_.insert(came_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(room));
  if (plug_in_waits) {
    return sort();
  }
  const bool good = is_good(answer_of(question_, came_).outcome);
  return {.others = {}, .answer = good ? std::optional(std::exchange(came_, {})) : std::nullopt};
}

OwnAnswer::Sorted OwnAnswer::sort() {
  const auto pieces = pieces_of(came_);
  const auto own = std::ranges::find_if(pieces.frames, [this](const Frame& f) { return is_response(f, question_); });
  if (own != pieces.frames.end()) {
    const auto begin = came_.begin() + static_cast<std::ptrdiff_t>(own->offset);
    const auto end = begin + static_cast<std::ptrdiff_t>(own->size);
    Bytes answer(begin, end);
    came_.erase(begin, end);
    return {.others = std::exchange(came_, {}), .answer = std::move(answer)};
  }
  const bool goes_on = !pieces.gaps.empty() && pieces.gaps.back().flaw == Flaw::truncated &&
                       pieces.gaps.back().offset + pieces.gaps.back().size == came_.size() &&
                       pieces.gaps.back().size <= kLongestPart;
  const auto end = came_.end() - static_cast<std::ptrdiff_t>(goes_on ? pieces.gaps.back().size : 0);
  Sorted sorted{.others = Bytes(came_.begin(), end), .answer = std::nullopt};
  came_.erase(came_.begin(), end);
  return sorted;
}

Bytes OwnAnswer::rest() { return std::exchange(came_, {}); }

Bytes without_responses(Code code, ByteView bytes) {
  Bytes left;
  std::size_t done = 0;
  for (const Frame& frame : pieces_of(bytes).frames) {
    if (is_response(frame, code)) {
      left.insert(left.end(), bytes.begin() + static_cast<std::ptrdiff_t>(done),
                  bytes.begin() + static_cast<std::ptrdiff_t>(frame.offset));
      done = frame.offset + frame.size;
    }
  }
  left.insert(left.end(), bytes.begin() + static_cast<std::ptrdiff_t>(done), bytes.end());
  return left;
}

}  // namespace line
