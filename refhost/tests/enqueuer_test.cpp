// The queue of a plug-in's own.
#include "ac/message_enqueuer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "ac/post_office.h"
#include "refhost/bus_counters.h"
#include "refhost/subscriber.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Leaves process(), which has no other end.
struct Stop {};

// Runs the queue on this thread until on_timeout has been called so often; returns how long that took.
steady_clock::duration process(ac::MessageEnqueuer& queue, int timeout_ms, int timeouts) {
  const auto start = steady_clock::now();
  try {
    queue.process(timeout_ms, [&] {
      if (--timeouts <= 0) {
        throw Stop();
      }
    });
  } catch (const Stop&) {
  }
  return steady_clock::now() - start;
}

// A subscriber that moves the messages of a type into the queue.
Subscriber transferring(const std::string& type, ac::MessageEnqueuer& queue) {
  return Subscriber("s", {on(type, [&queue](ac::Message* m) {
                      m->set_handled();
                      m->transfer(&queue);
                    })});
}

TEST(MessageEnqueuer, HandlesTransferredMessagesInOrderOnItsOwnThread) {
  ac::MessageEnqueuer queue;
  std::vector<int> seen;
  std::vector<std::thread::id> threads;
  const ac::MessageListener listener = on("queue.order", [&](ac::Message* m) {
    seen.push_back(number_of(*m));
    threads.push_back(std::this_thread::get_id());
  });
  queue.listen(&listener, 1);
  {
    const auto subscriber = transferring("queue.order", queue);
    for (int i = 0; i < 3; ++i) {
      ac::PostOffice::send_message(numbered("queue.order", i));
    }
  }
  process(queue, 100, 1);
  EXPECT_EQ(seen, std::vector<int>({0, 1, 2}));
  EXPECT_EQ(threads, std::vector<std::thread::id>(3, std::this_thread::get_id()));
}

TEST(MessageEnqueuer, MessageMovesOnOnlyWhenItsHandlersHaveReturned) {
  ac::MessageEnqueuer queue;
  Event transferred;
  Event release;
  Event handled;
  std::atomic<bool> released{false};
  const ac::MessageListener listener = on("queue.after", [&](ac::Message*) {
    EXPECT_TRUE(released);
    handled.set();
  });
  queue.listen(&listener, 1);
  const Subscriber subscriber("s", {on("queue.after", [&](ac::Message* m) {
                                m->transfer(&queue);
                                transferred.set();
                                release.wait();
                              })});
  ac::PostOffice::send_message(message("queue.after"));
  ASSERT_TRUE(transferred.wait());
  process(queue, 10, 2);
  released = true;
  release.set();
  std::atomic<bool> stop{false};
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
  EXPECT_TRUE(handled.wait());
  stop = true;
}

TEST(MessageEnqueuer, CallsOnTimeoutEachTimeTheTimePasses) {
  ac::MessageEnqueuer queue;
  EXPECT_GE(process(queue, 10, 4), milliseconds(40));
}

TEST(MessageEnqueuer, TimeoutOfZeroOrLessCountsAsOneMillisecond) {
  ac::MessageEnqueuer queue;
  EXPECT_GE(process(queue, 0, 10), milliseconds(10));
  EXPECT_GE(process(queue, -5, 10), milliseconds(10));
}

TEST(MessageEnqueuer, SteadyStreamOfMessagesDoesNotKeepTheTimeoutFromBeingTold) {
  ac::MessageEnqueuer queue;
  const auto subscriber = transferring("queue.stream", queue);
  int handled = 0;
  // Each message sends the next, the first ones two: from then on a hundred are under way.
  const ac::MessageListener listener = on("queue.stream", [&](ac::Message*) {
    ++handled;
    ac::PostOffice::send_message(message("queue.stream"));
    if (handled < 100) {
      ac::PostOffice::send_message(message("queue.stream"));
    }
    ASSERT_LT(handled, 10'000'000) << "the time-out is never told";
  });
  queue.listen(&listener, 1);
  ac::PostOffice::send_message(message("queue.stream"));
  process(queue, 20, 3);
  EXPECT_GT(handled, 0);
}

TEST(MessageEnqueuer, ThrowingHandlerIsLoggedAndCountedAndTheQueueGoesOn) {
  const auto before = bus_counters();
  ac::MessageEnqueuer queue;
  int handled = 0;
  const ac::MessageListener listener = on("queue.throw", [&](ac::Message*) {
    ++handled;
    throw std::runtime_error("queue broken");
  });
  queue.listen(&listener, 1);
  {
    const auto subscriber = transferring("queue.throw", queue);
    ac::PostOffice::send_message(message("queue.throw"));
    ac::PostOffice::send_message(message("queue.throw"));
  }
  capture_log();
  process(queue, 100, 1);
  EXPECT_NE(captured_log().find("queue broken"), std::string::npos);
  EXPECT_EQ(handled, 2);
  EXPECT_EQ(bus_counters().failures - before.failures, 2U);
}

TEST(MessageEnqueuer, WhatWaitsIsHandledAfterAnExceptionOfOnTimeout) {
  ac::MessageEnqueuer queue;
  int handled = 0;
  const ac::MessageListener listener = on("queue.rest", [&](ac::Message*) {
    ++handled;
    const auto until = steady_clock::now() + milliseconds(2);
    while (steady_clock::now() < until) {
    }
  });
  queue.listen(&listener, 1);
  {
    const auto subscriber = transferring("queue.rest", queue);
    for (int i = 0; i < 3; ++i) {
      ac::PostOffice::send_message(message("queue.rest"));
    }
  }
  process(queue, 1, 1);
  EXPECT_EQ(handled, 1);
  process(queue, 100, 1);
  EXPECT_EQ(handled, 3);
}

TEST(MessageEnqueuer, TransferredMessageWithoutAListenerIsCounted) {
  const auto before = bus_counters();
  ac::MessageEnqueuer queue;
  {
    const auto subscriber = transferring("queue.nobody", queue);
    ac::PostOffice::send_message(message("queue.nobody"));
  }
  process(queue, 50, 1);
  EXPECT_EQ(bus_counters().undelivered - before.undelivered, 1U);
}

TEST(MessageEnqueuer, MessageMayMoveOnToAnotherQueue) {
  ac::MessageEnqueuer first;
  ac::MessageEnqueuer second;
  int handled = 0;
  const ac::MessageListener onward = on("queue.onward", [&](ac::Message* m) { m->transfer(&second); });
  const ac::MessageListener last = on("queue.onward", [&](ac::Message*) { ++handled; });
  first.listen(&onward, 1);
  second.listen(&last, 1);
  {
    const auto subscriber = transferring("queue.onward", first);
    ac::PostOffice::send_message(message("queue.onward"));
  }
  process(first, 50, 1);
  EXPECT_EQ(handled, 0);
  process(second, 50, 1);
  EXPECT_EQ(handled, 1);
}

}  // namespace
}  // namespace refhost::test
