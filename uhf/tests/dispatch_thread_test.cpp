// The dispatch thread: when readings are used, and what is remembered. Each test runs it in this process until the
// host's fake throws it out of a keep-alive.
#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <thread>

#include "ac/exception.h"
#include "dispatch.h"
#include "second_host.h"
#include "settings.h"

using second_host::Fields;
using second_host::host;
using second_host::SentMessage;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

class Stop {};

class DispatchThread : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    host().set("read_interval", 60'000);
    host().set("read_interval_diff_tags", 500);
    host().on_keep_alive([this](const std::string&) {
      if (stop) {
        throw Stop();
      }
    });
    lastCardsRead_.clear();
    lastCardsSent_.clear();
    uhf_operation_mode_ = CONTINUOUS;
    same_tag_timeout_ = 60'000;
    different_tag_timeout_ = 0;
    trigger_timeout_ = 60'000;
    trigger_idle_ = 0;
    trigAntiesmagGPIO = 5;
    watchdogTimeout = 0;
    setProbeInterval(10);
    setTrigger({});
  }
  void TearDown() override {
    if (thread.valid()) {
      EXPECT_EQ(failure(), "");
    }
  }

  void start() {
    thread = std::async(std::launch::async, [this]() -> std::string {
      try {
        dispatchCards(cardsRead);
      } catch (const Stop&) {
        return "";
      } catch (const ac::ac_exception& error) {
        return error.what();
      }
    });
    // A reading made before the thread runs would be refused as too old.
    ASSERT_TRUE(host().wait_until([] { return host().keep_alives("uhf_write_threads") > 0; }));
  }

  // Ends the thread; the text of the exception that it ended with, if any.
  std::string failure() {
    stop = true;
    return thread.get();
  }

  static void setTrigger(TimePoint at) {
    const std::lock_guard lock(lastTriggerTimePointMutex);
    lastTriggerTimePoint = at;
  }

  void read(std::uint64_t card) {
    {
      const std::lock_guard lock(cardsReadMutex_);
      lastCardsRead_[card] = steady_clock::now();
    }
    cardsRead.notify_all();
  }

  static bool readingsAreGone() {
    const std::lock_guard lock(cardsReadMutex_);
    return lastCardsRead_.empty();
  }

  // The thread goes round at least once more from here on.
  static void waitForARound() {
    const auto rounds = host().keep_alives("uhf_write_threads");
    ASSERT_TRUE(host().wait_until([&] { return host().keep_alives("uhf_write_threads") > rounds + 2; }));
  }

  // Whether a card read now is announced, by what was set before: a round that had begun ends first.
  bool announces(std::uint64_t card) {
    waitForARound();
    const auto before = host().messages("identifier_new_card").size();
    read(card);
    waitForARound();
    EXPECT_TRUE(readingsAreGone()) << "used or discarded";
    return host().messages("identifier_new_card").size() > before;
  }

  static void answerLevel(std::optional<Fields> fields) {
    host().answer_with([fields](const SentMessage&) { return fields; });
  }

  std::condition_variable cardsRead;
  std::atomic<bool> stop = false;
  std::future<std::string> thread;
};

}  // namespace

TEST_F(DispatchThread, UsesReadingsInContinuousMode) {
  start();
  EXPECT_TRUE(announces(1));
  EXPECT_FALSE(announces(1)) << "its time-out has not passed";
  EXPECT_TRUE(announces(2));
}

TEST_F(DispatchThread, DiscardsReadingsInAnUnknownMode) {
  for (const int mode : {3, 4, -1}) {
    uhf_operation_mode_ = mode;
    if (!thread.valid()) {
      start();
    }
    EXPECT_FALSE(announces(1)) << mode;
  }
}

TEST_F(DispatchThread, UsesReadingsInTriggerModeWhileTheWindowIsOpen) {
  uhf_operation_mode_ = TRIGGER;
  start();
  EXPECT_FALSE(announces(1)) << "no trigger yet";
  setTrigger(steady_clock::now());
  EXPECT_TRUE(announces(2));
  trigger_timeout_ = -1;
  EXPECT_FALSE(announces(3)) << "the window closed";
}

TEST_F(DispatchThread, AReadingDiscardedIsNeverAnnounced) {
  uhf_operation_mode_ = TRIGGER;
  start();
  EXPECT_FALSE(announces(1));
  setTrigger(steady_clock::now());
  waitForARound();
  EXPECT_TRUE(host().messages("identifier_new_card").empty());
}

TEST_F(DispatchThread, InhibitModeAsksTheHostForTheLevel) {
  uhf_operation_mode_ = INHIBIT;
  answerLevel(Fields{{"value", 0}});
  start();
  EXPECT_TRUE(announces(1));
  const auto question = host().messages("gpio_current_state").at(0);
  EXPECT_TRUE(question.synchronous);
  EXPECT_EQ(question.fields, (Fields{{"gpio", 5}}));
}

TEST_F(DispatchThread, InhibitModeDiscardsAtTheActiveLevel) {
  uhf_operation_mode_ = INHIBIT;
  answerLevel(Fields{{"value", 1}});
  start();
  EXPECT_FALSE(announces(1)) << "active is 1 when idle is 0";
  trigger_idle_ = 1;
  EXPECT_TRUE(announces(2)) << "active is 0 when idle is 1";
  answerLevel(Fields{{"value", 0}});
  EXPECT_FALSE(announces(3));
  trigger_idle_ = 7;
  EXPECT_FALSE(announces(4)) << "active is 0 for any idle level but 0";
}

TEST_F(DispatchThread, InhibitModeUsesALevelThatIsNeither) {
  uhf_operation_mode_ = INHIBIT;
  answerLevel(Fields{{"value", 2}});
  start();
  EXPECT_TRUE(announces(1));
}

TEST_F(DispatchThread, InhibitModeDiscardsForATimeAfterTheInputWentIdle) {
  uhf_operation_mode_ = INHIBIT;
  answerLevel(Fields{{"value", 0}});
  setTrigger(steady_clock::now());
  start();
  EXPECT_FALSE(announces(1));
  trigger_timeout_ = -1;
  EXPECT_TRUE(announces(2));
}

TEST_F(DispatchThread, AReplyThatDoesNotTellTheLevelCountsAsActive) {
  uhf_operation_mode_ = INHIBIT;
  answerLevel(Fields{});
  start();
  EXPECT_FALSE(announces(1));
  answerLevel(Fields{{"value", std::string("0")}});
  EXPECT_FALSE(announces(2));
  trigger_idle_ = 1;
  EXPECT_FALSE(announces(3));
}

TEST_F(DispatchThread, NoReplyEndsIt) {
  uhf_operation_mode_ = INHIBIT;
  trigAntiesmagGPIO = -12;
  start();
  EXPECT_EQ(thread.get(), "Empty reply; gpio: -12");
}

TEST_F(DispatchThread, KeepsItselfAliveAtItsTimeout) {
  watchdogTimeout = 3'600'000;
  start();
  ASSERT_TRUE(host().wait_until([] { return host().keep_alives("uhf_write_threads") == 1; }));
  read(1);
  ASSERT_TRUE(host().wait_until([] { return host().messages("identifier_new_card").size() == 1; }));
  EXPECT_EQ(host().keep_alives("uhf_write_threads"), 1U) << "not once a round";
  uhf_operation_mode_ = INHIBIT;  // without an answer: ends it
  EXPECT_EQ(thread.get(), "Empty reply; gpio: 5");
}

TEST_F(DispatchThread, WakesUpByItselfEvenWithoutAPeriod) {
  for (const int interval : {0, -5}) {
    setProbeInterval(interval);
    if (!thread.valid()) {
      start();
    }
    waitForARound();
  }
}

TEST_F(DispatchThread, ANotificationWakesItBeforeItsPeriod) {
  start();
  setProbeInterval(3'600'000);
  const auto rounds = host().keep_alives("uhf_write_threads");
  // A notification may come while the thread does not wait, and be lost: it is given again.
  const auto notifyUntil = [this](const auto& condition) {
    const auto deadline = steady_clock::now() + std::chrono::seconds(10);
    while (!condition() && steady_clock::now() < deadline) {
      cardsRead.notify_all();
      std::this_thread::yield();
    }
    return condition();
  };
  EXPECT_TRUE(notifyUntil([&] { return host().keep_alives("uhf_write_threads") > rounds + 2; }));
  stop = true;
  EXPECT_TRUE(notifyUntil([this] { return thread.wait_for(milliseconds(0)) == std::future_status::ready; }));
}

TEST_F(DispatchThread, ForgetsACardOnceTheLargerIntervalHasPassed) {
  host().set("read_interval", 100);
  host().set("read_interval_diff_tags", 0);
  lastCardsSent_[1] = steady_clock::now() - milliseconds(101);
  lastCardsSent_[2] = steady_clock::now() + std::chrono::hours(1);
  start();
  waitForARound();
  EXPECT_EQ(failure(), "");
  EXPECT_FALSE(lastCardsSent_.contains(1));
  EXPECT_TRUE(lastCardsSent_.contains(2));
}

TEST_F(DispatchThread, TheLargerOfTheTwoIntervalsCounts) {
  host().set("read_interval", 100);
  host().set("read_interval_diff_tags", 3'600'000);
  lastCardsSent_[1] = steady_clock::now() - milliseconds(101);
  start();
  waitForARound();
  EXPECT_EQ(failure(), "");
  EXPECT_TRUE(lastCardsSent_.contains(1));
}

TEST_F(DispatchThread, ReadsTheIntervalsOnlyWhenThereIsACardToForget) {
  start();
  waitForARound();
  EXPECT_THAT(host().calls(), testing::Not(testing::Contains("get_int uhf read_interval false")));
  EXPECT_TRUE(announces(1));
  EXPECT_THAT(host().calls(),
              testing::IsSupersetOf({"get_int uhf read_interval false", "get_int uhf read_interval_diff_tags false"}));
}

TEST_F(DispatchThread, ForgetsNothingWhileReadingsAreDiscarded) {
  uhf_operation_mode_ = 3;
  host().set("read_interval", 0);
  host().set("read_interval_diff_tags", 0);
  lastCardsSent_[1] = {};
  start();
  waitForARound();
  EXPECT_EQ(failure(), "");
  EXPECT_TRUE(lastCardsSent_.contains(1));
}

TEST_F(DispatchThread, SettingsMayChangeWhileCardsAreRead) {
  start();
  std::atomic<bool> done = false;
  std::thread settings([&done] {
    for (int i = 0; !done; ++i) {
      different_tag_timeout_ = i % 4;
      same_tag_timeout_ = 3000 + i % 100;
      trigger_timeout_ = i;
      trigger_idle_ = i % 2;
      setProbeInterval(i % 3);
      setTrigger(steady_clock::now());
    }
  });
  for (std::uint64_t card = 1; card <= 20; ++card) {
    while (!announces(card)) {  // it may be refused while the different-card time-out is not 0
    }
  }
  done = true;
  settings.join();
}
