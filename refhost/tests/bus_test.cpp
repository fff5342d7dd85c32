// Sending without waiting.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ac/post_office.h"
#include "refhost/answer.h"
#include "refhost/bus_counters.h"
#include "refhost/subscriber.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

TEST(Bus, DeliversOnTheSubscribersOwnThread) {
  Recorder<std::thread::id> threads;
  const Subscriber subscriber("s", {on("bus.thread", [&](ac::Message*) { threads.add(std::this_thread::get_id()); })});
  ac::PostOffice::send_message(message("bus.thread"));
  ac::PostOffice::send_message(message("bus.thread"));
  const auto seen = threads.wait_for(2);
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_NE(seen[0], std::this_thread::get_id());
  EXPECT_EQ(seen[0], seen[1]);
}

TEST(Bus, SubscribersDoNotWaitForOneAnother) {
  Event release;
  Event delivered;
  const Subscriber slow("slow", {on("bus.apart", [&](ac::Message*) { release.wait(); })});
  const Subscriber quick("quick", {on("bus.apart", [&](ac::Message*) { delivered.set(); })});
  ac::PostOffice::send_message(message("bus.apart"));
  EXPECT_TRUE(delivered.wait());
  release.set();
}

TEST(Bus, KeepsTheOrderOfEachSender) {
  constexpr int kSenders = 4;
  constexpr int kMessages = 2000;
  std::vector<std::vector<int>> seen(kSenders);  // by the delivery thread only, until it has ended
  {
    const Subscriber subscriber("s", {on("bus.order", [&](ac::Message* m) {
                                  int sender = -1;
                                  m->get_int("sender", &sender);
                                  seen.at(static_cast<std::size_t>(sender)).push_back(number_of(*m));
                                })});
    std::vector<std::jthread> senders;
    for (int sender = 0; sender < kSenders; ++sender) {
      senders.emplace_back([sender] {
        for (int i = 0; i < kMessages; ++i) {
          auto m = numbered("bus.order", i);
          m->add_int("sender", sender);
          ac::PostOffice::send_message(std::move(m));
        }
      });
    }
  }
  for (const auto& numbers : seen) {
    ASSERT_EQ(numbers.size(), static_cast<std::size_t>(kMessages));
    for (int i = 0; i < kMessages; ++i) {
      ASSERT_EQ(numbers[static_cast<std::size_t>(i)], i);
    }
  }
}

TEST(Bus, EachSubscriberGetsItsOwnMessage) {
  Recorder<const ac::Message*> messages;
  Recorder<int> numbers;
  Event both_seen;
  const auto keep = [&](ac::Message* m) {
    m->add_int("mark", 1);
    numbers.add(number_of(*m));
    messages.add(m);
    both_seen.wait();  // the message lives as long as its handler
  };
  const Subscriber first("first", {on("bus.own", keep)});
  const Subscriber second("second", {on("bus.own", keep)});
  ac::PostOffice::send_message(numbered("bus.own", 5));
  const auto seen = messages.wait_for(2);
  both_seen.set();
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_NE(seen[0], seen[1]);
  EXPECT_EQ(numbers.wait_for(2), std::vector<int>({5, 5}));
}

TEST(Bus, ListenersOfOneTypeAreCalledInTheirOrder) {
  Recorder<int> calls;
  const Subscriber subscriber(
      "s", {on("bus.two", [&](ac::Message*) { calls.add(1); }), on("bus.two", [&](ac::Message*) { calls.add(2); })});
  ac::PostOffice::send_message(message("bus.two"));
  EXPECT_EQ(calls.wait_for(2), std::vector<int>({1, 2}));
}

TEST(Bus, ThrowingHandlerIsLoggedAndCountedAndTheThreadGoesOn) {
  const auto before = bus_counters();
  Event delivered;
  capture_log();
  {
    const Subscriber subscriber("thrower", {on("bus.throw", [](ac::Message*) { throw std::runtime_error("broken"); }),
                                            on("bus.throw_int", [](ac::Message*) { throw 1; }),
                                            on("bus.after", [&](ac::Message*) { delivered.set(); })});
    ac::PostOffice::send_message(message("bus.throw"));
    ac::PostOffice::send_message(message("bus.throw_int"));
    ac::PostOffice::send_message(message("bus.after"));
    EXPECT_TRUE(delivered.wait());
  }
  const std::string log = captured_log();
  EXPECT_NE(log.find("thrower: handler of \"bus.throw\" failed: broken"), std::string::npos) << log;
  EXPECT_NE(log.find("thrower: handler of \"bus.throw_int\" failed: unknown exception"), std::string::npos) << log;
  EXPECT_EQ(bus_counters().failures - before.failures, 2U);
}

TEST(Bus, MessageThatNobodyWantsIsCounted) {
  const auto before = bus_counters();
  ac::PostOffice::send_message(message("bus.nobody"));
  EXPECT_EQ(bus_counters().undelivered - before.undelivered, 1U);
}

TEST(Bus, MessageMadeBeforeAnybodyListenedIsDelivered) {
  auto early = numbered("bus.early", 3);
  const std::string& type = early->type();
  Recorder<int> numbers;
  Recorder<std::string> types;
  const Subscriber subscriber("s", {on("bus.early", [&](ac::Message* m) {
                                types.add(m->type());
                                numbers.add(number_of(*m));
                              })});
  EXPECT_EQ(type, "bus.early");
  ac::PostOffice::send_message(std::move(early));
  EXPECT_EQ(numbers.wait_for(1), std::vector<int>({3}));
  EXPECT_EQ(types.wait_for(1), std::vector<std::string>({"bus.early"}));
}

// As many names as make several share a place, whatever that is taken from.
TEST(Bus, TypesAreToldApartByTheWholeName) {
  constexpr int kTypes = 300;
  Recorder<std::string> seen;
  std::vector<ac::MessageListener> listeners;
  std::vector<std::string> sent;
  for (int i = 0; i < kTypes; ++i) {
    sent.push_back("bus.many_" + std::to_string(i * i) + "_of_a_kind");
    listeners.push_back(on(sent.back(), [&seen, name = sent.back()](ac::Message* m) { seen.add(m->type() + name); }));
  }
  const Subscriber subscriber("s", listeners);
  for (std::string& name : sent) {
    ac::PostOffice::send_message(message(name));
    name += name;
  }
  EXPECT_EQ(seen.wait_for(kTypes), sent);
}

TEST(Bus, FullQueueDropsTheNewestCountsItAndLogsOnceABurst) {
  constexpr int kBound = 10;
  const auto before = bus_counters();
  Event started;
  Event release;
  std::vector<int> seen;  // by the delivery thread only, until it has ended
  capture_log();
  {
    const Subscriber subscriber("small",
                                {on("bus.bound",
                                    [&](ac::Message* m) {
                                      seen.push_back(number_of(*m));
                                      if (number_of(*m) == 0) {
                                        started.set();
                                        release.wait();
                                      }
                                    })},
                                kBound);
    ac::PostOffice::send_message(numbered("bus.bound", 0));
    ASSERT_TRUE(started.wait());  // from here on messages wait
    for (int i = 1; i <= kBound + 3; ++i) {
      ac::PostOffice::send_message(numbered("bus.bound", i));
    }
    release.set();
  }
  const std::string log = captured_log();
  EXPECT_EQ(seen, std::vector<int>({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(bus_counters().dropped - before.dropped, 3U);
  EXPECT_EQ(bus_counters().delivered - before.delivered, 11U);
  const auto first = log.find("small: queue full (10 messages), dropping, first a \"bus.bound\"");
  ASSERT_NE(first, std::string::npos) << log;
  EXPECT_EQ(log.find("queue full", first + 20), std::string::npos) << log;
}

TEST(Bus, EndOfABurstOfDropsIsLoggedWithItsNumber) {
  Event started;
  Event release;
  Recorder<int> seen;
  capture_log();
  {
    const Subscriber subscriber("tiny",
                                {on("bus.burst",
                                    [&](ac::Message* m) {
                                      seen.add(number_of(*m));
                                      if (number_of(*m) == 0) {
                                        started.set();
                                        release.wait();
                                      }
                                    })},
                                1);
    ac::PostOffice::send_message(numbered("bus.burst", 0));
    ASSERT_TRUE(started.wait());
    for (int i = 1; i <= 3; ++i) {
      ac::PostOffice::send_message(numbered("bus.burst", i));
    }
    release.set();
    ASSERT_EQ(seen.wait_for(2), std::vector<int>({0, 1}));
    ac::PostOffice::send_message(numbered("bus.burst", 4));
    EXPECT_EQ(seen.wait_for(3), std::vector<int>({0, 1, 4}));
  }
  const std::string log = captured_log();
  EXPECT_NE(log.find("tiny: queue takes messages again, 2 dropped"), std::string::npos) << log;
}

TEST(Bus, SubscriberThatLeavesDeliversWhatWaitsAndNothingAfter) {
  const auto before = bus_counters();
  int delivered = 0;  // by the delivery thread only, until it has ended
  {
    const Subscriber subscriber("s", {on("bus.leave", [&](ac::Message*) { ++delivered; })});
    for (int i = 0; i < 100; ++i) {
      ac::PostOffice::send_message(message("bus.leave"));
    }
  }
  EXPECT_EQ(delivered, 100);
  ac::PostOffice::send_message(message("bus.leave"));
  EXPECT_EQ(delivered, 100);
  EXPECT_EQ(bus_counters().undelivered - before.undelivered, 1U);
}

TEST(Bus, SendersAndSubscribersComeAndGoAtTheSameTime) {
  capture_log();  // the sender outruns them: full queues are logged
  std::atomic<bool> stop{false};
  std::jthread sender([&] {
    while (!stop) {
      ac::PostOffice::send_message(message("bus.churn"));
    }
  });
  for (int i = 0; i < 50; ++i) {
    Event delivered;
    const Subscriber subscriber("s", {on("bus.churn", [&](ac::Message*) { delivered.set(); })});
    EXPECT_TRUE(delivered.wait());
  }
  stop = true;
  sender.join();
  captured_log();
}

TEST(Bus, AnswerCallsTheCallbackOfAMessageSentWithoutWaiting) {
  Recorder<int> answers;
  const Subscriber subscriber(
      "s", {on("bus.callback", [](ac::Message* m) { EXPECT_TRUE(Answer(*m).add_int("value", 7).send()); })});
  ac::PostOffice::send_message(std::make_unique<ac::Message>("bus.callback", 0, [&](const ac::MessageReply& reply) {
    int value = 0;
    EXPECT_TRUE(reply.replied());
    reply.get_int("value", &value);
    answers.add(value);
  }));
  EXPECT_EQ(answers.wait_for(1), std::vector<int>({7}));
}

TEST(Bus, AnswerToAMessageThatAskedForNoneGoesNowhere) {
  Recorder<bool> sent;
  const Subscriber subscriber("s", {on("bus.unasked", [&](ac::Message* m) { sent.add(Answer(*m).send()); })});
  ac::PostOffice::send_message(message("bus.unasked"));
  EXPECT_EQ(sent.wait_for(1), std::vector<bool>({false}));
}

}  // namespace
}  // namespace refhost::test
