// A recording as a reader.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "recording.h"
#include "uhfsim/field.h"
#include "uhfsim/reader.h"

namespace uhfctl {

// Answers each command with what came back to the same command the next time it was given; after the last it begins
// anew. What the recording does not hold is answered as a plain reader without tags would, which keeps what it is told.
class Player {
 public:
  struct Answer {
    std::vector<Piece> pieces;  // at: since the command; none when nothing comes back
    bool recorded = false;
  };

  explicit Player(const std::vector<Piece>& recording);

  Answer answer_to(const std::vector<unsigned char>& command);

 private:
  // A command of the recording, and what came back until the next.
  struct Exchange {
    Piece command;
    std::vector<Piece> replies;
  };

  // Null when the recording does not hold that command, or what it holds does not hold any more.
  const Exchange* recorded(const std::vector<unsigned char>& command);

  std::vector<Exchange> exchanges_;
  std::map<std::vector<unsigned char>, std::vector<std::size_t>> places_;  // of each command among the exchanges
  std::size_t next_ = 0;                                                   // exchange after the one played last
  std::set<std::uint8_t> outdated_;  // questions whose recorded answer is older than what was told since
  const uhfsim::Field field_;        // empty
  uhfsim::Reader plain_{field_, {}};
};

}  // namespace uhfctl
