// How the reader does, as the line sees it.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "line/answer.h"
#include "line/bytes.h"

namespace line {

enum class State {
  answering,
  noisy,   // more than 5 % of the polls of the last 10 s were bad
  silent,  // no good answer for 1.5 s
  gone,    // there is no port
  lent,    // somebody else has the line
};

// "answering": for a person and for a program.
const char* name_of(State state);

// How long a question may wait for a good answer before the reader is silent.
inline constexpr std::chrono::milliseconds kSilentAfter{1500};

struct Health {
  State state = State::answering;              // until more is known
  std::string cause;                           // what is wrong; empty when all is well
  std::string way_out;                         // what to do about it; empty when nothing
  Clock::time_point since;                     // of the state
  std::optional<Clock::time_point> last_good;  // the last good answer

  // Of the last 10 s.
  double polls_a_second = 0;
  double bad_share = 0;  // 0 to 1

  // Since the beginning.
  std::uint64_t polls = 0;
  std::uint64_t bad_polls = 0;
  std::uint64_t silent_polls = 0;
  std::uint64_t dropped_bytes = 0;  // that no question asked for, or that came beyond an answer's bound
};

// Draws the state from what is asked and answered. One thread uses it.
class HealthWatch {
 public:
  // port: for the texts.
  HealthWatch(std::string port, Clock::time_point now);

  void asked(Clock::time_point now);

  // A question's answer, once all of it is there. poll: of an inventory; others count for the silence alone.
  void answered(Clock::time_point now, const Answer& answer, bool poll);

  void dropped(std::size_t bytes) { health_.dropped_bytes += bytes; }

  // cause: one line, why there is no port.
  void port_gone(const std::string& cause);
  void port_back();

  // who: for the text.
  void lent(const std::string& who);
  void returned();

  // The state as it is now, to be looked at several times a second: true when it is another one than at the last look.
  bool look(Clock::time_point now);

  // A good answer has been seen since the port was there, or back.
  bool has_answered() const { return has_answered_; }

  // Since when a question has been waiting for a good answer.
  std::optional<Clock::time_point> unanswered_since() const { return unanswered_since_; }

  const Health& health() const { return health_; }

 private:
  // The polls of one second.
  struct Second {
    std::int64_t number = -1;
    int polls = 0;
    int bad = 0;
  };
  static constexpr int kWindow = 10;  // seconds

  Second& second_of(Clock::time_point now);
  void take_stock(Clock::time_point now);
  State state_now(Clock::time_point now) const;
  void explain(State state);

  const std::string port_;
  const Clock::time_point begin_;
  Health health_;
  std::array<Second, kWindow> seconds_{};
  int window_polls_ = 0;
  int window_bad_ = 0;
  std::optional<Clock::time_point> unanswered_since_;
  bool has_answered_ = false;
  std::string last_flaw_;  // of the last bad poll
  std::optional<std::string> gone_cause_;
  std::optional<std::string> borrower_;
};

}  // namespace line
