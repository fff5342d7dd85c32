// The reader's line between its port and the plug-in.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "line/bytes.h"
#include "line/conversation.h"
#include "line/frames.h"
#include "line/health.h"
#include "line/ladder.h"
#include "line/recorder.h"

namespace line {

struct LineOptions {
  std::string path{};         // of the reader's port
  std::string alternative{};  // what else a user may try when there is no such port
  // Begin without a port, or a reader that answers, and look for it.
  bool may_be_missing = false;
  // After so long without the reader Event::Kind::given_up is said; 0 is never.
  std::chrono::milliseconds give_up_after = std::chrono::minutes(5);
  // Resets the reader by hardware, on the line's thread; false when that failed. Empty: nothing does.
  std::function<bool()> reset = nullptr;
  // Called by the line's thread several times a second while it does its work.
  std::function<void()> alive = nullptr;
  // Called by the line's thread, which passes no bytes meanwhile, for each question of the plug-in's that is done with,
  // in their order: when the next one goes out, or when nobody waits any more.
  std::function<void(Exchange)> on_exchange = nullptr;
};

// Something that whoever runs the door is told.
struct Event {
  enum class Kind {
    state,       // another state, in health
    step,        // something was done to bring the reader back
    given_back,  // the reader has the plug-in's settings again, or has others than it should
    given_up,    // the ladder is at its end
  };

  Kind kind = Kind::state;
  Health health;
  std::string text;  // one line for a person, with the way out
};

// A tag report, or another frame, as it went over the line.
struct Piece {
  Clock::time_point at;
  Direction direction = Direction::to_reader;
  Bytes bytes;
};

// Looks on at the line: pieces wait for next() up to a bound, beyond which the newest are dropped and counted. One
// thread uses it; it must not outlive its line.
class Onlooker {
 public:
  virtual ~Onlooker() = default;

  // The next piece; nothing when none came in time.
  virtual std::optional<Piece> next(std::chrono::milliseconds timeout) = 0;

  virtual std::uint64_t dropped() const = 0;  // bytes
};

// Opens the port and gives the plug-in a pseudo-terminal in its place. One thread passes the bytes, both ways,
// unchanged and in order, forwarded first and looked at afterwards. What the reader says when nobody asked, and what
// goes on beyond the bounds of an answer, does not pass. It draws the reader's health from the bytes, records them,
// brings a silent reader back, and lends the line to somebody else. Whatever happens at the port, the plug-in sees a
// reader that does not answer, and nothing else.
//
// Any thread may call any operation.
class Line {
 public:
  // on_event is called on the line's thread, which passes no bytes meanwhile. Throws PortError, unless the port may be
  // missing, and std::system_error.
  Line(LineOptions options, std::function<void(const Event&)> on_event);

  // Ends the thread; the terminal goes. Nobody may be asking or borrowing.
  ~Line();

  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  // What the plug-in opens.
  const std::string& terminal() const;

  // Where the port is now; it may have got another name.
  std::string port() const;

  Health health() const;

  // How often each step of the ladder was taken, by Rung.
  std::array<int, kRungs> steps_taken() const;

  // Wait until the reader has answered; false when it has not in that time.
  bool wait_for_answer(std::chrono::milliseconds timeout) const;

  Recorder& recorder() const;

  // Put a question to the reader between those of the plug-in. All bytes that came for it, or nothing when no good
  // answer came, or the reader is not there, or somebody has the line.
  std::optional<Bytes> ask(Code code);

  // Give the reader a power, in hundredths of a dBm, for so long. Then, or before the plug-in asks for its power or
  // sets it, or somebody borrows the line, the reader gets the plug-in's own again. The power that it says it has;
  // nothing as of ask(), or while the plug-in has set none.
  std::optional<int> try_power(int power, std::chrono::milliseconds how_long);

  // Give it the plug-in's own again at once. As try_power().
  std::optional<int> end_trial();

  // Until when somebody tries a power.
  std::optional<Clock::time_point> trial_until() const;

  // Give the line to whoever is at the other end of that socket until he closes it, for ten minutes at most. The
  // plug-in sees an empty field meanwhile; its settings are given back to the reader afterwards, before this returns.
  // who: for the state. Takes the descriptor over and closes it. False when somebody has the line already or there is
  // no reader.
  bool lend(int socket, const std::string& who);

  // Whoever has the line loses it. For the end of a process.
  void take_back();

  std::unique_ptr<Onlooker> look_on();

 private:
  class Relay;
  std::unique_ptr<Relay> relay_;
};

}  // namespace line
