// What became of one question to the reader.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "line/bytes.h"
#include "line/frames.h"

namespace line {

enum class Outcome {
  tags,         // an inventory read some
  empty,        // an inventory read none, and the reader said so
  answered,     // anything else that was asked, by a frame that fits
  silence,      // not a byte
  out_of_step,  // good frames, but of another question
  echo,         // the question itself came back: nothing but a loop of wires answers so
  bad,          // bytes, and no good frame among them
  endless,      // bytes that did not end in time
};

// "tags", "out of step": for a person.
const char* name_of(Outcome outcome);

// A tag's report in the bytes of an answer. The EPC stays where it is: nothing is copied while bytes wait to pass.
struct TagPlace {
  std::size_t epc = 0;  // where it begins
  std::size_t size = 0;
  int rssi = 0;  // as the reader says it, 0 to 255
};

struct Answer {
  Outcome outcome = Outcome::silence;
  std::optional<Flaw> flaw;    // of the first bytes that were no frame, beside whatever else there was
  std::vector<TagPlace> tags;  // in order of arrival
};

// Whether the reader is there and understood the question.
bool is_good(Outcome outcome);

// Whether the line, or what is at its end, did something that it should not. An answer that did not come is none of
// these: some readers say nothing when no tag is there.
bool is_bad(const Answer& answer);

// The answer to a question with that code, from all bytes that came before the next question. cut_off: more of them
// came than are taken.
Answer answer_of(Code question, ByteView bytes, bool cut_off = false);

}  // namespace line
