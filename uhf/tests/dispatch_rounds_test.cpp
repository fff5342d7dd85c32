// The dispatch thread's rounds, one after the other on the test's own thread and in its time: each wait ends at once,
// at its deadline, and a script tells what happens meanwhile.
#include <gmock/gmock.h>
#include <pthread.h>

#include <cerrno>
#include <functional>
#include <future>

#include "ac/exception.h"
#include "dispatch.h"
#include "fake_clock.h"
#include "second_host.h"
#include "settings.h"

using second_host::Fields;
using second_host::host;
using second_host::SentMessage;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct End {};

// What happens in each wait, in turn; behind the last the thread is ended. Given the time that the wait was to last.
std::function<void(nanoseconds)> onWait;

}  // namespace

// The linker sends the waits of condition variables here (--wrap).
extern "C" int __real_pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                             const timespec* deadline) {
  if (!onWait) {
    return __real_pthread_cond_clockwait(condition, mutex, clock, deadline);
  }
  const TimePoint until(std::chrono::seconds(deadline->tv_sec) + nanoseconds(deadline->tv_nsec));
  const auto wait = until - fake_clock::now();
  fake_clock::advance(wait);
  onWait(wait);
  return ETIMEDOUT;
}

namespace {

bool isFree(std::mutex& mutex) {
  return std::async(std::launch::async, [&mutex] { return std::unique_lock(mutex, std::try_to_lock).owns_lock(); })
      .get();
}

class DispatchRounds : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    host().set("read_interval", 3000);
    host().set("read_interval_diff_tags", 500);
    fake_clock::freeze();
    lastCardsRead_.clear();
    lastCardsSent_.clear();
    uhf_operation_mode_ = CONTINUOUS;
    same_tag_timeout_ = 3000;
    different_tag_timeout_ = 0;
    trigger_timeout_ = 1000;
    trigger_idle_ = 0;
    trigAntiesmagGPIO = 5;
    watchdogTimeout = 3'600'000;
    lastTriggerTimePoint = {};
    setProbeInterval(10);
  }
  void TearDown() override {
    onWait = nullptr;
    fake_clock::release();
  }

  // Runs the thread's body: meanwhile[i] in its wait i. Returns how long each wait was to last.
  std::vector<milliseconds> rounds(const std::vector<std::function<void()>>& meanwhile) {
    std::vector<milliseconds> waits;
    onWait = [&](nanoseconds wait) {
      if (waits.size() == meanwhile.size()) {
        throw End();
      }
      const auto step = waits.size();
      waits.push_back(std::chrono::duration_cast<milliseconds>(wait));
      meanwhile[step]();
    };
    try {
      dispatchCards(cardsRead);
    } catch (const End&) {
    } catch (const ac::ac_exception& error) {
      failure = error.what();
    }
    return waits;
  }

  static void read(std::uint64_t card) { lastCardsRead_[card] = fake_clock::now(); }
  static void nothing() {}

  static std::vector<std::int64_t> announced() {
    std::vector<std::int64_t> cards;
    for (const auto& message : host().messages("identifier_new_card")) {
      cards.push_back(std::get<std::int64_t>(message.fields.at(1).second));
    }
    return cards;
  }

  static void answerLevel(int level) {
    host().answer_with([level](const SentMessage&) { return Fields{{"value", level}}; });
  }

  std::condition_variable cardsRead;
  std::string failure;
};

}  // namespace

TEST_F(DispatchRounds, WaitForTheProbeIntervalAndAtLeast10Milliseconds) {
  const auto interval = [](int value) { return [value] { setProbeInterval(value); }; };
  EXPECT_THAT(
      rounds({interval(9), interval(10), interval(11), interval(0), interval(-5), interval(2'000'000'000), nothing}),
      ElementsAre(milliseconds(10), milliseconds(10), milliseconds(10), milliseconds(11), milliseconds(10),
                  milliseconds(10), milliseconds(2'000'000'000)));
}

TEST_F(DispatchRounds, AReadingMadeBeforeTheThreadStartedIsRefused) {
  const auto earlier = fake_clock::now() - nanoseconds(1);
  rounds({[&] { lastCardsRead_[7] = earlier; }, [] { read(8); }});
  EXPECT_THAT(announced(), ElementsAre(8));
}

TEST_F(DispatchRounds, CardZeroIsTheOneAnnouncedBeforeAny) {
  const auto earlier = fake_clock::now() - nanoseconds(1);
  rounds({[&] { lastCardsRead_[0] = earlier; }});
  EXPECT_THAT(announced(), ElementsAre(0));
}

TEST_F(DispatchRounds, KeepAliveFromTheFirstRoundOnThenAtEachTimeout) {
  watchdogTimeout = 25;
  std::vector<std::size_t> kept;
  const auto count = [&kept] { kept.push_back(host().keep_alives("uhf_write_threads")); };
  rounds(std::vector<std::function<void()>>(8, count));
  // Rounds every 10 ms; due means strictly past, so 30 ms after the one before.
  EXPECT_THAT(kept, ElementsAre(0, 1, 1, 1, 2, 2, 2, 3));
}

TEST_F(DispatchRounds, KeepAliveComesBeforeTheReadings) {
  rounds({[] { read(1); }});
  EXPECT_THAT(host().calls(),
              ElementsAre("keep_alive uhf_write_threads", "send identifier_new_card", "get_int uhf read_interval false",
                          "get_int uhf read_interval_diff_tags false"))
      << "and the intervals, in this order, at the end";
}

TEST_F(DispatchRounds, NoLockIsHeldWhileAMessageIsSent) {
  uhf_operation_mode_ = INHIBIT;
  answerLevel(0);
  std::vector<bool> free;
  host().on_call([&free](const std::string& call) {
    if (call.starts_with("send ")) {
      free.push_back(isFree(cardsReadMutex_) && isFree(lastTriggerTimePointMutex) && isFree(db_create_mutex));
    }
  });
  rounds({[] { read(1); }});
  EXPECT_THAT(announced(), ElementsAre(1));
  EXPECT_EQ(free.size(), 2U);
  EXPECT_THAT(free, Each(true));
}

TEST_F(DispatchRounds, TheQuestionForTheLevelIsPlain) {
  uhf_operation_mode_ = INHIBIT;
  answerLevel(0);
  rounds({nothing});
  const auto question = host().messages("gpio_current_state").at(0);
  EXPECT_EQ(question.fields, (Fields{{"gpio", 5}}));
  EXPECT_EQ(question.argument, 0);
  EXPECT_FALSE(question.has_callback);
  EXPECT_TRUE(question.synchronous);
}

TEST_F(DispatchRounds, TheLevelIsAskedForInTheDeadTimeToo) {
  uhf_operation_mode_ = INHIBIT;
  answerLevel(0);
  lastTriggerTimePoint = fake_clock::now();
  rounds({nothing, nothing, nothing});
  EXPECT_EQ(host().messages("gpio_current_state").size(), 3U);
}

TEST_F(DispatchRounds, TheIdleLevelThatCountsIsThatAfterTheAnswer) {
  uhf_operation_mode_ = INHIBIT;
  host().answer_with([](const SentMessage&) {
    trigger_idle_ = 1;  // the setting changes while the host is asked
    return Fields{{"value", 1}};
  });
  rounds({[] { read(1); }});
  EXPECT_THAT(announced(), ElementsAre(1)) << "1 is idle now";
}

TEST_F(DispatchRounds, NoAnswerEndsTheThread) {
  uhf_operation_mode_ = INHIBIT;
  rounds({[] { read(1); }});
  EXPECT_EQ(failure, "Empty reply; gpio: 5");
  EXPECT_THAT(announced(), IsEmpty());
}

TEST_F(DispatchRounds, ACardIsForgottenOnceTheLargerIntervalHasPassedWhateverItsOrder) {
  for (const auto& [same, different] : {std::pair(50, 20), std::pair(20, 50)}) {
    host().set("read_interval", same);
    host().set("read_interval_diff_tags", different);
    lastCardsSent_.clear();
    std::vector<bool> remembered;
    const auto look = [&remembered] { remembered.push_back(lastCardsSent_.contains(1)); };
    rounds({[] { read(1); }, look, look, look, look, look, look});
    EXPECT_THAT(remembered, ElementsAre(true, true, true, true, true, false)) << same << " " << different;
  }
}

TEST_F(DispatchRounds, ACardThatTheHostMadeOlderIsForgotten) {
  std::vector<std::size_t> remembered;
  rounds({[] { lastCardsSent_[1] = lastCardsSent_[2] = fake_clock::now(); },
          [] { lastCardsSent_[1] -= std::chrono::hours(1); },
          [&remembered] { remembered.push_back(lastCardsSent_.size()); }});
  EXPECT_THAT(remembered, ElementsAre(1)) << "each round looks at each";
}
