// What the line's thread does. For line/ alone.
#pragma once

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <string>
#include <thread>

#include "line/conversation.h"
#include "line/ladder.h"
#include "line/line.h"
#include "line/onlookers.h"
#include "line/outbox.h"
#include "line/own_answer.h"
#include "line/port_guard.h"
#include "line/port_identity.h"
#include "line/radio_memory.h"
#include "line/terminal.h"

namespace line {

class Line::Relay {
 public:
  Relay(LineOptions options, std::function<void(const Event&)> on_event);
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  // As Line's. Any thread.
  const std::string& terminal() const { return terminal_.path(); }
  Recorder& recorder() { return recorder_; }
  Onlookers& onlookers() { return onlookers_; }
  std::string port() const;
  Health health() const;
  std::array<int, kRungs> steps_taken() const;
  bool wait_for_answer(std::chrono::milliseconds timeout) const;
  std::optional<Bytes> ask(Code code);
  std::optional<int> try_power(int power, std::chrono::milliseconds how_long);
  std::optional<int> end_trial();
  std::optional<Clock::time_point> trial_until() const;
  bool lend(int socket, const std::string& who);
  void take_back();

 private:
  using Done = std::function<void(std::optional<Bytes> answer)>;

  // A question of the line's own.
  struct Own {
    Bytes frame;
    Code code = Code::get_power;
    Done done;
    OwnAnswer answer{code};
    Clock::time_point deadline{};
  };

  // Somebody who has the line, or waits for it.
  struct Borrower {
    Descriptor socket;
    std::string who;
    Clock::time_point until;
    std::shared_ptr<std::promise<bool>> returned;
    Outbox outbox{kLongestAnswer};
    Bytes pending{};  // from him, the beginning of a command
  };

  // All below on the line's thread. relay.cpp: passing bytes.
  void run();
  void wait_for_something();
  std::chrono::milliseconds longest_wait(Clock::time_point now) const;
  void handle_plug_in(Clock::time_point now);
  void handle_port(Clock::time_point now);
  void carry_out_requests();
  void pass_question(Clock::time_point now, ByteView bytes);
  void pass_answer(Clock::time_point now, ByteView bytes);
  void say_to_plug_in(ByteView bytes);
  void say_to_port(Clock::time_point now, ByteView bytes);
  void done_with(std::optional<Exchange> exchange);
  void drop_stale(Clock::time_point now);
  void drop_unread();
  void tick(Clock::time_point now);
  void see_state(Clock::time_point now);
  void tell(Event::Kind kind, const std::string& text);

  // recovery.cpp: the port, the ladder, and giving settings back.
  bool open_port();
  std::string find_port() const;
  void lose_port(const std::string& cause);
  void climb(Clock::time_point now);
  void take(Rung rung, Clock::time_point now);
  void give_back(Clock::time_point now);
  void give_back_next();
  void has_given_back(const std::optional<Bytes>& read);

  // own_questions.cpp: those of the line's own, and lending.
  void start_own(Clock::time_point now);
  void pass_without_overdue(Clock::time_point now, ByteView bytes);
  void came_for_own(Clock::time_point now, ByteView bytes);
  void finish_own(std::optional<Bytes> answer);
  void give_up_own();
  void look_for_life(Clock::time_point now);
  void start_lending(Clock::time_point now);
  void handle_borrower();
  void pass_from_borrower(ByteView bytes);
  void say_to_borrower(ByteView bytes);
  void tell_returned(Clock::time_point now);
  void answer_for_reader(ByteView question);
  void end_lending(const std::string& why);

  // power_trial.cpp: another power for a while.
  bool can_be_asked() const;
  void set_power(int power, Done done);
  void take_back_trial(const Done& done);
  void watch_trial(Clock::time_point now);

  void request(std::function<void()> what);

  const LineOptions options_;
  const std::function<void(const Event&)> on_event_;
  const Terminal terminal_;
  const Descriptor wake_;  // eventfd: there is a request
  Recorder recorder_;
  Onlookers onlookers_;

  // The line's thread's own:
  std::optional<PortGuard> port_;
  std::optional<std::string> identity_;  // of the adapter at the port
  HealthWatch watch_;
  Ladder ladder_;
  Conversation conversation_;  // the plug-in's with the reader
  RadioMemory radio_;
  Outbox to_port_{4096};
  Outbox to_plug_in_{kLongestAnswer};
  std::optional<Clock::time_point> last_to_plug_in_;  // of what it may not have read yet
  Clock::time_point next_tick_{};
  Clock::time_point next_open_{};
  Clock::time_point next_give_back_{};
  Clock::time_point next_life_{};
  std::deque<Own> own_;        // waiting questions of the line's own
  std::optional<Own> asking_;  // the one that is out
  struct Overdue {
    Code code = Code::get_power;
    Clock::time_point until{};
  };
  std::optional<Overdue> overdue_;  // a question of the line's own whose answer may still come
  Bytes held_;                      // what the plug-in asked meanwhile
  bool owes_settings_ = false;      // the reader may have lost them, and gets nothing else before it has them again
  std::optional<std::vector<Bytes>> giving_;  // the commands that it still gets
  std::optional<Borrower> waiting_borrower_;
  std::optional<Borrower> borrower_;
  std::optional<Clock::time_point> trial_until_;  // the reader has a power that is not the plug-in's
  std::shared_ptr<std::promise<bool>> returned_;  // told when the settings are given back
  Clock::time_point returned_until_{};
  bool said_state_ = false;  // an event about the state was told

  mutable std::mutex mutex_;                 // guards all below
  mutable std::condition_variable changed_;  // of answered_
  Health shown_;
  std::string shown_port_;
  std::array<int, kRungs> shown_steps_{};
  std::optional<Clock::time_point> shown_trial_;
  bool answered_ = false;
  std::vector<std::function<void()>> requests_;
  bool ending_ = false;

  std::thread thread_;  // last: it uses all above
};

}  // namespace line
