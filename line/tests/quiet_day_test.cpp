// Days without a fault, in no time: whatever comes and goes in the field, however slow the reader is, and when it says
// nothing of an empty field, nothing is said of the reader. The line's rules are those of the relay: it looks at itself
// every 50 ms, and asks for itself when polls have had no answer for 0.75 s.
#include <gmock/gmock.h>

#include <deque>
#include <map>

#include "line/conversation.h"
#include "line/health.h"
#include "line/own_answer.h"
#include "uhfsim/faults.h"
#include "uhfsim/reader.h"
#include "uhfsim/scenario.h"

namespace line {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using Micro = std::chrono::microseconds;

struct Kind {
  std::string scenario{};  // a file
  int tags = 0;
  bool quiet_when_empty = false;
  milliseconds fastest{2};  // until an inventory's answer begins
  milliseconds slowest{5};
  std::string fault{};  // all the time
  double probability = 0;
};

class Day {
 public:
  explicit Day(const Kind& kind)
      : kind_(kind), engine_(field_, {.seed = 1, .quiet_when_empty = kind.quiet_when_empty}) {
    if (!kind.scenario.empty()) {
      scenario_ = uhfsim::Scenario::load(kind.scenario);
    }
    for (int tag = 0; tag < kind.tags; ++tag) {
      field_.add({.epc = {0xE2, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(tag / 256),
                          static_cast<std::uint8_t>(tag)}});
    }
    if (!kind.fault.empty()) {
      faults_.set(kind.fault, kind.probability);
    }
  }

  // How often each state but answering was come to, once the reader had answered.
  std::map<std::string, int> pass(hours time) {
    const Clock::time_point end = kBegin + time;
    while (now_ < end) {
      now_ = std::min({next_tick_, next_poll_, coming_.empty() ? end : coming_.front().at, end});
      while (!coming_.empty() && coming_.front().at <= now_) {
        arrive();
      }
      if (now_ >= next_poll_) {
        plug_in_asks();
      }
      if (now_ >= next_tick_) {
        tick();
      }
    }
    return alarms_;
  }

  std::uint64_t polls() const { return watch_.health().polls; }

 private:
  static constexpr Clock::time_point kBegin{hours(1)};
  static constexpr Micro kByte{87};
  static constexpr std::size_t kPiece = 64;
  static constexpr milliseconds kPause{100};  // of the plug-in, after an answer
  static constexpr milliseconds kWait{1000};  // of the plug-in, for one

  struct Coming {
    Bytes bytes;
    Clock::time_point at;
    bool last;
  };

  void say(Code code) {
    const bool is_inventory = code == Code::inventory;
    const auto range = static_cast<std::size_t>((kind_.slowest - kind_.fastest).count() + 1);
    const auto busy = is_inventory ? kind_.fastest + milliseconds(random_.below(range)) : milliseconds(2);
    free_ = std::max(free_, now_) + busy;
    const Bytes command = frame_of(FrameType::command, code, {});
    for (auto& reply : engine_.feed(command)) {
      for (const auto& sending : faults_.intercept(std::move(reply), command)) {
        free_ += sending.pause;
        for (std::size_t done = 0; done < sending.bytes.size(); done += kPiece) {
          const auto count = std::min(kPiece, sending.bytes.size() - done);
          const auto begin = sending.bytes.begin() + static_cast<std::ptrdiff_t>(done);
          free_ += kByte * count;
          coming_.push_back(
              {Bytes(begin, begin + static_cast<std::ptrdiff_t>(count)), free_, done + count == sending.bytes.size()});
        }
      }
    }
  }

  void plug_in_asks() {
    next_poll_ = now_ + kWait;
    if (own_deadline_.has_value()) {
      held_ = true;
      return;
    }
    say(Code::inventory);
    done_with(conversation_.ask(now_, frame_of(FrameType::command, Code::inventory, {})));
    watch_.asked(now_);
  }

  void arrive() {
    const Coming part = coming_.front();
    coming_.pop_front();
    if (own_deadline_.has_value()) {
      const auto [others, answer] = own_.add(part.bytes, conversation_.is_waiting(now_));
      pass(others, part.last);
      if (answer.has_value()) {
        watch_.answered(now_, answer_of(Code::get_power, *answer), false);
        finish_own();
      }
    } else {
      pass(without_responses(Code::get_power, part.bytes), part.last);
    }
  }

  void pass(const Bytes& bytes, bool last) {
    if (!bytes.empty()) {
      watch_.dropped(bytes.size() - conversation_.take(now_, bytes));
      next_poll_ = now_ + (last ? kPause : kWait);
    }
  }

  void finish_own() {
    own_deadline_.reset();
    pass(own_.rest(), true);
    if (std::exchange(held_, false)) {
      plug_in_asks();
    }
  }

  void done_with(const std::optional<Exchange>& exchange) {
    if (exchange.has_value()) {
      watch_.answered(exchange->last_byte, exchange->answer, exchange->code == Code::inventory);
    }
  }

  void tick() {
    next_tick_ = now_ + milliseconds(50);
    play();
    done_with(conversation_.settle(now_));
    if (own_deadline_.has_value() && now_ >= *own_deadline_) {
      finish_own();
    }
    const auto since = watch_.unanswered_since();
    if (since.has_value() && now_ - *since >= milliseconds(750) && now_ >= next_life_ && !own_deadline_.has_value() &&
        conversation_.is_quiet(now_)) {
      next_life_ = now_ + milliseconds(500);
      own_deadline_ = now_ + milliseconds(300);
      watch_.asked(now_);
      say(Code::get_power);
    }
    has_answered_ = has_answered_ || watch_.has_answered();
    if (watch_.look(now_) && has_answered_ && watch_.health().state != State::answering) {
      ++alarms_[name_of(watch_.health().state)];
    }
  }

  // The scenario, but for its faults.
  void play() {
    const auto until = std::chrono::duration_cast<milliseconds>(now_ - kBegin);
    for (const auto& command : scenario_.due(played_, until)) {
      if (!std::holds_alternative<uhfsim::SetFault>(command)) {
        uhfsim::apply(command, field_, faults_);
      }
    }
    played_ = until;
  }

  const Kind kind_;
  uhfsim::Field field_;
  uhfsim::FaultInjector faults_{1};
  uhfsim::Reader engine_;
  uhfsim::Scenario scenario_;
  milliseconds played_ = uhfsim::Scenario::kBeforeStart;
  uhfsim::Random random_{1};
  Clock::time_point now_ = kBegin;
  Clock::time_point free_ = kBegin;  // when the reader is done with what it was told
  Clock::time_point next_tick_ = kBegin;
  Clock::time_point next_poll_ = kBegin;
  Clock::time_point next_life_ = kBegin;
  std::deque<Coming> coming_;
  Conversation conversation_;
  HealthWatch watch_{"/dev/reader", kBegin};
  std::optional<Clock::time_point> own_deadline_;  // while a question of the line's own is out
  OwnAnswer own_{Code::get_power};                 // to it
  bool held_ = false;                              // the plug-in has asked meanwhile
  bool has_answered_ = false;
  std::map<std::string, int> alarms_;
};

std::map<std::string, int> alarms_of(const Kind& kind, hours time = hours(QUIET_HOURS)) {
  Day day(kind);
  auto alarms = day.pass(time);
  EXPECT_GT(day.polls(), 1000U * static_cast<unsigned>(time.count()));
  return alarms;
}

using testing::Contains;
using testing::IsEmpty;
using testing::Key;

TEST(QuietDay, TheStoryRaisesNoAlarm) { EXPECT_THAT(alarms_of({.scenario = STORY}), IsEmpty()); }

TEST(QuietDay, CardsThatComeAndGoRaiseNoAlarm) { EXPECT_THAT(alarms_of({.scenario = CARDS}), IsEmpty()); }

TEST(QuietDay, AnEmptyFieldRaisesNoAlarm) { EXPECT_THAT(alarms_of({}), IsEmpty()); }

TEST(QuietDay, AReaderThatSaysNothingOfAnEmptyFieldRaisesNoAlarm) {
  EXPECT_THAT(alarms_of({.quiet_when_empty = true}), IsEmpty());
  EXPECT_THAT(alarms_of({.scenario = STORY, .quiet_when_empty = true}), IsEmpty());
  EXPECT_THAT(alarms_of({.scenario = CARDS, .quiet_when_empty = true}), IsEmpty());
}

TEST(QuietDay, ASlowReaderRaisesNoAlarm) {
  for (const int tags : {0, 1}) {
    EXPECT_THAT(alarms_of({.tags = tags, .fastest = milliseconds(300), .slowest = milliseconds(1200)}), IsEmpty());
  }
}

TEST(QuietDay, ALongListOfTagsRaisesNoAlarm) { EXPECT_THAT(alarms_of({.tags = 500}), IsEmpty()); }

// What would be noticed.
TEST(QuietDay, ADayWithAFaultIsNoQuietOne) {
  EXPECT_THAT(alarms_of({.scenario = CARDS, .fault = "corrupt-checksum", .probability = 0.3}, hours(1)),
              Contains(Key("noisy")));
  EXPECT_THAT(alarms_of({.fault = "silence", .probability = 0.9}, hours(1)), Contains(Key("silent")));
  EXPECT_THAT(alarms_of({.fastest = milliseconds(2000), .slowest = milliseconds(2500)}, hours(1)),
              Contains(Key("silent")));
}

}  // namespace
}  // namespace line
