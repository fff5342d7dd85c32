// Sending and waiting for the answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "ac/message_enqueuer.h"
#include "ac/post_office.h"
#include "refhost/answer.h"
#include "refhost/bus_counters.h"
#include "refhost/post_office.h"
#include "refhost/subscriber.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// The int "value" of the answer to a message of that type; nothing when there was no answer.
std::optional<int> ask(const std::string& type) {
  ac::MessageReply reply;
  auto question = message(type);
  question->set_reply(&reply);
  ac::PostOffice::send_message_sync(std::move(question));
  int value = 0;
  reply.get_int("value", &value);
  return reply.replied() ? std::optional(value) : std::nullopt;
}

auto answering(int value) {
  return [value](ac::Message* m) { Answer(*m).add_int("value", value).send(); };
}

class Sync : public testing::Test {
 protected:
  void TearDown() override { set_sync_timeout(milliseconds(2000)); }

  // Waiting is what must not happen: it would outlast the test's time limit.
  static void forbid_waiting() { set_sync_timeout(std::chrono::hours(1)); }
};

TEST_F(Sync, ReturnsTheAnswerWithItsFields) {
  const Subscriber subscriber(
      "s", {on("sync.fields", [](ac::Message* m) {
        Answer(*m).add_int("i", 1).add_int64("l", 1LL << 40).add_string("s", std::string(1000, 't')).send();
      })});
  ac::MessageReply reply;
  auto question = message("sync.fields");
  question->set_reply(&reply);
  ac::PostOffice::send_message_sync(std::move(question));
  int i = 0;
  std::int64_t l = 0;
  std::string s;
  EXPECT_TRUE(reply.replied());
  EXPECT_TRUE(reply.get_int("i", &i) && reply.get_int64("l", &l) && reply.get_string("s", &s));
  EXPECT_EQ(i, 1);
  EXPECT_EQ(l, 1LL << 40);
  EXPECT_EQ(s, std::string(1000, 't'));
}

TEST_F(Sync, EndsAtOnceWhenNobodyIsInterested) {
  forbid_waiting();
  EXPECT_EQ(ask("sync.nobody"), std::nullopt);
}

TEST_F(Sync, EndsWhenEveryRecipientHasHandledItWithoutAnswering) {
  forbid_waiting();
  const Subscriber first("first", {on("sync.silent", [](ac::Message*) {})});
  const Subscriber second("second", {on("sync.silent", [](ac::Message*) { throw std::runtime_error("broken"); })});
  capture_log();
  EXPECT_EQ(ask("sync.silent"), std::nullopt);
  EXPECT_NE(captured_log().find("broken"), std::string::npos);
}

TEST_F(Sync, OneAnswerAmongSeveralRecipientsIsEnough) {
  forbid_waiting();
  Event release;
  const Subscriber silent("silent", {on("sync.one", [&](ac::Message*) { release.wait(); })});
  const Subscriber answerer("answerer", {on("sync.one", answering(3))});
  EXPECT_EQ(ask("sync.one"), 3);
  release.set();
}

TEST_F(Sync, FirstAnswerCounts) {
  Recorder<bool> sent;
  const Subscriber subscriber("s", {on("sync.twice", [&](ac::Message* m) {
                                sent.add(Answer(*m).add_int("value", 1).send());
                                sent.add(Answer(*m).add_int("value", 2).send());
                              })});
  EXPECT_EQ(ask("sync.twice"), 1);
  EXPECT_EQ(sent.wait_for(2), std::vector<bool>({true, false}));
}

TEST_F(Sync, GivesUpAfterTheTimeOutAndTheLateAnswerTouchesNothing) {
  set_sync_timeout(milliseconds(30));
  Event release;
  Recorder<bool> sent;
  const Subscriber subscriber("s", {on("sync.late", [&](ac::Message* m) {
                                release.wait();
                                sent.add(Answer(*m).add_int("value", 1).send());
                              })});
  {
    ac::MessageReply reply;  // gone when the answer comes
    auto question = message("sync.late");
    question->set_reply(&reply);
    const auto start = steady_clock::now();
    ac::PostOffice::send_message_sync(std::move(question));
    EXPECT_GE(steady_clock::now() - start, milliseconds(30));
    EXPECT_FALSE(reply.replied());
  }
  release.set();
  EXPECT_EQ(sent.wait_for(1), std::vector<bool>({false}));
}

TEST_F(Sync, AnswerMayComeLaterFromAnotherThread) {
  forbid_waiting();
  Event message_is_gone;
  std::jthread helper;
  const Subscriber subscriber("s", {on("sync.later",
                                       [&](ac::Message* m) {
                                         ac::PostOffice::send_message(message("sync.later.next"));
                                         helper = std::jthread([&message_is_gone, answer = Answer(*m)]() mutable {
                                           message_is_gone.wait();
                                           answer.add_int("value", 9).send();
                                         });
                                       }),
                                    on("sync.later.next", [&](ac::Message*) { message_is_gone.set(); })});
  EXPECT_EQ(ask("sync.later"), 9);
}

TEST_F(Sync, AnswerThatIsNeverSentEndsTheWait) {
  forbid_waiting();
  const Subscriber subscriber("s", {on("sync.unsent", [](ac::Message* m) { Answer answer(*m); })});
  EXPECT_EQ(ask("sync.unsent"), std::nullopt);
}

TEST_F(Sync, FromAHandlerToItsOwnSubscriberIsHandledInline) {
  forbid_waiting();
  Recorder<std::optional<int>> answers;
  Recorder<std::thread::id> threads;
  const Subscriber subscriber("s", {on("sync.own.start", [&](ac::Message*) { answers.add(ask("sync.own.question")); }),
                                    on("sync.own.question", [&](ac::Message* m) {
                                      threads.add(std::this_thread::get_id());
                                      Answer(*m).add_int("value", 4).send();
                                    })});
  ac::PostOffice::send_message(message("sync.own.start"));
  EXPECT_EQ(answers.wait_for(1), std::vector<std::optional<int>>({4}));
  EXPECT_EQ(threads.wait_for(1).size(), 1U);
}

TEST_F(Sync, AHandlerThatSendsItselfWhatItHandlesIsAnErrorAndNotTheEndOfTheStack) {
  forbid_waiting();
  Recorder<std::optional<int>> answers;
  capture_log();
  int handled = 0;  // the subscriber's thread's; read when that has gone
  {
    const Subscriber subscriber("s", {on("sync.self", [&](ac::Message*) {
                                  ++handled;
                                  answers.add(ask("sync.self"));
                                })});
    ac::PostOffice::send_message(message("sync.self"));
    ac::PostOffice::send_message(message("sync.self"));  // the first has left nothing behind
    EXPECT_EQ(answers.wait_for(34), std::vector<std::optional<int>>(34));
  }
  EXPECT_EQ(handled, 2 * 17);
  EXPECT_THAT(captured_log(), testing::HasSubstr("s: its handlers send \"sync.self\" to themselves"));
}

TEST_F(Sync, FailureOfAnInlineHandlerStaysInIt) {
  forbid_waiting();
  const auto before = bus_counters();
  Recorder<std::optional<int>> answers;
  capture_log();
  {
    const Subscriber subscriber(
        "s", {on("sync.ownfail.start", [&](ac::Message*) { answers.add(ask("sync.ownfail.question")); }),
              on("sync.ownfail.question", [](ac::Message*) { throw std::runtime_error("inline broken"); })});
    ac::PostOffice::send_message(message("sync.ownfail.start"));
    EXPECT_EQ(answers.wait_for(1), std::vector<std::optional<int>>({std::nullopt}));
  }
  EXPECT_NE(captured_log().find("inline broken"), std::string::npos);
  EXPECT_EQ(bus_counters().failures - before.failures, 1U);
}

TEST_F(Sync, FromAHandlerToAnotherSubscriberWorks) {
  forbid_waiting();
  Recorder<std::optional<int>> answers;
  const Subscriber asked("asked", {on("sync.other.question", answering(6))});
  const Subscriber asker("asker",
                         {on("sync.other.start", [&](ac::Message*) { answers.add(ask("sync.other.question")); })});
  ac::PostOffice::send_message(message("sync.other.start"));
  EXPECT_EQ(answers.wait_for(1), std::vector<std::optional<int>>({6}));
}

TEST_F(Sync, MessageDroppedAtAFullQueueEndsTheWait) {
  forbid_waiting();
  Event started;
  Event release;
  capture_log();
  {
    const Subscriber subscriber("s",
                                {on("sync.full",
                                    [&](ac::Message*) {
                                      started.set();
                                      release.wait();
                                    })},
                                1);
    ac::PostOffice::send_message(message("sync.full"));
    ASSERT_TRUE(started.wait());
    ac::PostOffice::send_message(message("sync.full"));
    EXPECT_EQ(ask("sync.full"), std::nullopt);
    release.set();
  }
  EXPECT_NE(captured_log().find("queue full"), std::string::npos);
}

TEST_F(Sync, ManyAskersGetTheirOwnAnswers) {
  const Subscriber subscriber(
      "s", {on("sync.many", [](ac::Message* m) { Answer(*m).add_int("value", number_of(*m)).send(); })});
  std::vector<std::jthread> askers;
  for (int asker = 0; asker < 4; ++asker) {
    askers.emplace_back([asker] {
      for (int i = 0; i < 200; ++i) {
        ac::MessageReply reply;
        auto question = numbered("sync.many", asker * 1000 + i);
        question->set_reply(&reply);
        ac::PostOffice::send_message_sync(std::move(question));
        int value = -1;
        reply.get_int("value", &value);
        ASSERT_EQ(value, asker * 1000 + i);
      }
    });
  }
}

TEST_F(Sync, AnswerOfATransferredMessageComesFromItsQueue) {
  forbid_waiting();
  struct Stop {};
  ac::MessageEnqueuer queue;
  const ac::MessageListener listener = on("sync.transfer", answering(8));
  queue.listen(&listener, 1);
  std::atomic<bool> stop{false};
  const Subscriber subscriber("s", {on("sync.transfer", [&](ac::Message* m) { m->transfer(&queue); })});
  std::jthread worker([&] {
    try {
      queue.process(1, [&] {
        if (stop) {
          throw Stop();
        }
      });
    } catch (const Stop&) {
    }
  });
  EXPECT_EQ(ask("sync.transfer"), 8);
  stop = true;
}

}  // namespace
}  // namespace refhost::test
