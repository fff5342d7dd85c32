// The answer to a question of the line's own, among what may be for the plug-in.
#pragma once

#include <optional>

#include "line/answer.h"
#include "line/bytes.h"
#include "line/frames.h"

namespace line {

// A reader answers in order: while the plug-in waits for an answer, what comes is that, but for the response that fits
// the line's question alone. One thread uses it.
class OwnAnswer {
 public:
  explicit OwnAnswer(Code question) : question_(question) {}

  struct Sorted {
    Bytes others;                 // for the plug-in
    std::optional<Bytes> answer;  // a good one; all of it
  };

  // What came. plug_in_waits: its question was asked before and has no answer yet.
  Sorted add(ByteView bytes, bool plug_in_waits);

  // What came since and is no answer: its time is over.
  Bytes rest();

 private:
  Sorted sort();

  Code question_;
  Bytes came_;
};

// The bytes without responses with that code, the answers to a question that nobody waits for any more.
Bytes without_responses(Code code, ByteView bytes);

}  // namespace line
