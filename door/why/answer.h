// Which reports of an inventory's answer count.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace achost::why {

enum class AnswerFrame : std::uint8_t { kReport, kOther };  // of a tag; anything else that is a good frame

// The frames of an answer up to the first that is not good, in the order of their arrival. Those from the returned one
// on count: the last half, rounded up. When something else than a report stands among these, none does, and the size is
// returned.
inline std::size_t first_used(std::span<const AnswerFrame> frames) {
  const auto first = frames.size() / 2;
  for (const auto frame : frames.subspan(first)) {
    if (frame != AnswerFrame::kReport) {
      return frames.size();
    }
  }
  return first;
}

}  // namespace achost::why
