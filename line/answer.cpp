#include "line/answer.h"

#include <algorithm>
#include <array>

namespace line {
namespace {

// A frame of the reader that answers that question. A failure answers any.
bool answers(const Frame& frame, Code question) {
  return frame.type != FrameType::command && (frame.code == question || frame.code == Code::failure);
}

Outcome outcome_of(Code question, const Pieces& pieces, bool has_tags) {
  if (has_tags) {
    return Outcome::tags;
  }
  if (std::ranges::any_of(pieces.frames, [&](const Frame& frame) { return answers(frame, question); })) {
    return question == Code::inventory ? Outcome::empty : Outcome::answered;
  }
  if (pieces.frames.empty()) {
    return pieces.gaps.empty() ? Outcome::silence : Outcome::bad;
  }
  const auto is_echo = [&](const Frame& frame) { return frame.type == FrameType::command && frame.code == question; };
  return std::ranges::all_of(pieces.frames, is_echo) ? Outcome::echo : Outcome::out_of_step;
}

}  // namespace

const char* name_of(Outcome outcome) {
  constexpr std::array kNames = {"tags",        "empty", "answered",     "silence",
                                 "out of step", "echo",  "a bad answer", "an answer without an end"};
  return kNames.at(static_cast<std::size_t>(outcome));
}

bool is_good(Outcome outcome) {
  return outcome == Outcome::tags || outcome == Outcome::empty || outcome == Outcome::answered;
}

bool is_bad(const Answer& answer) {
  return answer.flaw.has_value() || (!is_good(answer.outcome) && answer.outcome != Outcome::silence);
}

Answer answer_of(Code question, ByteView bytes, bool cut_off) {
  const Pieces pieces = pieces_of(bytes);
  Answer answer;
  answer.tags.reserve(question == Code::inventory ? pieces.frames.size() : 0);
  for (const auto& frame : pieces.frames) {
    if (frame.type == FrameType::notice && question == Code::inventory) {
      const auto [epc, rssi] = tag_of(frame);
      answer.tags.push_back(
          {.epc = static_cast<std::size_t>(epc.data() - bytes.data()), .size = epc.size(), .rssi = rssi});
    }
  }
  answer.outcome = cut_off ? Outcome::endless : outcome_of(question, pieces, !answer.tags.empty());
  if (!pieces.gaps.empty()) {
    answer.flaw = pieces.gaps.front().flaw;
  }
  return answer;
}

}  // namespace line
