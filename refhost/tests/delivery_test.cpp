// What has become of a message at its recipients.
#include "refhost/delivery.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

#include "ac/message_enqueuer.h"
#include "ac/post_office.h"
#include "refhost/bus_counters.h"
#include "refhost/bus_view.h"
#include "refhost/subscriber.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

using testing::ElementsAre;

class DeliveryTest : public testing::Test {
 protected:
  void send(const std::string& type, const std::vector<std::string>& except = {}) {
    delivery_ = Delivery::send(
        message(type), [this] { reports_.add(0); }, except);
  }
  void send_to(const std::string& recipient, const std::string& type) {
    delivery_ = Delivery::send_to(recipient, message(type), [this] { reports_.add(0); });
  }

  // "NAME: through, FAILURE, marked" of each, once so many have reported.
  std::vector<std::string> outcome(std::size_t reports) {
    EXPECT_EQ(reports_.wait_for(reports).size(), reports);
    std::vector<std::string> texts;
    for (const auto& one : delivery_->recipients()) {
      texts.push_back(one.name + ":" + (one.is_through ? " through" : " waits") +
                      (one.failure.empty() ? "" : ", " + one.failure) + (one.is_marked ? ", marked" : ""));
    }
    return texts;
  }

 private:
  Recorder<int> reports_;
  std::shared_ptr<const Delivery> delivery_;
};

// Leaves process(), which has no other end.
struct Enough {};

void run_queue(ac::MessageEnqueuer& queue) {
  try {
    queue.process(50, [] { throw Enough(); });
  } catch (const Enough&) {
  }
}

TEST_F(DeliveryTest, TellsOfEachRecipientThatItsHandlersHaveRun) {
  const Subscriber first("first", {on("delivery.all", [](ac::Message*) {})});
  const Subscriber second("second", {on("delivery.all", [](ac::Message*) {})});
  const Subscriber other("other", {on("delivery.other", [](ac::Message*) {})});
  send("delivery.all");
  EXPECT_THAT(outcome(2), ElementsAre("first: through", "second: through"));
}

TEST_F(DeliveryTest, TellsWhyAHandlerFailed) {
  capture_log();
  const Subscriber good("good", {on("delivery.fail", [](ac::Message*) {})});
  const Subscriber bad("bad", {on("delivery.fail", [](ac::Message*) { throw std::runtime_error("it is broken"); }),
                               on("delivery.fail", [](ac::Message*) { throw 1; })});
  send("delivery.fail");
  EXPECT_THAT(outcome(2), ElementsAre("good: through", "bad: through, it is broken; unknown exception"));
  captured_log();
}

TEST_F(DeliveryTest, AHandlerThatHangsIsWaitedFor) {
  Event release;
  const Subscriber quick("quick", {on("delivery.hang", [](ac::Message*) {})});
  const Subscriber slow("slow", {on("delivery.hang", [&](ac::Message*) { release.wait(); })});
  send("delivery.hang");
  EXPECT_THAT(outcome(1), ElementsAre("quick: through", "slow: waits"));
  release.set();
  EXPECT_THAT(outcome(2), ElementsAre("quick: through", "slow: through"));
}

TEST_F(DeliveryTest, OfATransferredMessageTheQueuesHandlersCount) {
  ac::MessageEnqueuer queue;
  const ac::MessageListener listener =
      on("delivery.queue", [](ac::Message*) { throw std::runtime_error("the queue's is broken"); });
  queue.listen(&listener, 1);
  Event moved;
  const Subscriber subscriber("s", {on("delivery.queue", [&](ac::Message* m) { m->transfer(&queue); }),
                                    on("delivery.after", [&](ac::Message*) { moved.set(); })});
  send("delivery.queue");
  ac::PostOffice::send_message(message("delivery.after"));
  ASSERT_TRUE(moved.wait());
  EXPECT_THAT(outcome(0), ElementsAre("s: waits"));
  capture_log();
  run_queue(queue);
  captured_log();
  EXPECT_THAT(outcome(1), ElementsAre("s: through, the queue's is broken"));
}

TEST_F(DeliveryTest, AQueueWithoutAHandlerOfTheTypeIsThrough) {
  ac::MessageEnqueuer queue;
  {
    const Subscriber subscriber("s", {on("delivery.empty", [&](ac::Message* m) { m->transfer(&queue); })});
    send("delivery.empty");
  }
  run_queue(queue);
  EXPECT_THAT(outcome(1), ElementsAre("s: through"));
}

TEST_F(DeliveryTest, AQueueThatGoesWithTheMessageIsAFailure) {
  {
    ac::MessageEnqueuer queue;
    {
      const Subscriber subscriber("s", {on("delivery.gone", [&](ac::Message* m) { m->transfer(&queue); })});
      send("delivery.gone");
    }
  }
  EXPECT_THAT(outcome(1), ElementsAre("s: through, its queue took no more messages"));
}

TEST_F(DeliveryTest, WithoutRecipientsNobodyIsNamedAndTheMessageCounted) {
  const auto before = bus_counters();
  send("delivery.nobody");
  EXPECT_THAT(outcome(0), ElementsAre());
  EXPECT_EQ(bus_counters().undelivered - before.undelivered, 1U);
}

TEST_F(DeliveryTest, ARecipientThatEndsHandlesItBefore) {
  Event started;
  Event release;
  std::optional<Subscriber> ending(std::in_place, "ending",
                                   std::vector{on("delivery.first",
                                                  [&](ac::Message*) {
                                                    started.set();
                                                    release.wait();
                                                  }),
                                               on("delivery.end", [](ac::Message*) {})});
  ac::PostOffice::send_message(message("delivery.first"));
  ASSERT_TRUE(started.wait());
  send("delivery.end");
  std::jthread end([&] { ending.reset(); });
  EXPECT_THAT(outcome(0), ElementsAre("ending: waits"));
  release.set();
  EXPECT_THAT(outcome(1), ElementsAre("ending: through"));
}

TEST_F(DeliveryTest, AFullQueueIsAFailure) {
  Event started;
  Event release;
  capture_log();
  const Subscriber small("small",
                         {on("delivery.full",
                             [&](ac::Message*) {
                               started.set();
                               release.wait();
                             })},
                         1);
  ac::PostOffice::send_message(message("delivery.full"));
  ASSERT_TRUE(started.wait());
  ac::PostOffice::send_message(message("delivery.full"));
  send("delivery.full");
  EXPECT_THAT(outcome(1), ElementsAre("small: through, its queue took no more messages"));
  release.set();
  captured_log();
}

TEST_F(DeliveryTest, GoesToOneRecipientAlone) {
  Recorder<std::string> seen;
  const BusTap tap([&](const ac::Message& m) { seen.add("tap saw " + m.type()); });
  const Subscriber first("first", {on("delivery.one", [&](ac::Message*) { seen.add("first"); })});
  const Subscriber second("second", {on("delivery.one", [&](ac::Message*) { seen.add("second"); })});
  send_to("second", "delivery.one");
  EXPECT_THAT(outcome(1), ElementsAre("second: through"));
  EXPECT_THAT(seen.wait_for(1), ElementsAre("second"));
}

TEST_F(DeliveryTest, PassesByWhoIsExcepted) {
  Recorder<std::string> seen;
  const Subscriber first("first", {on("delivery.but", [&](ac::Message*) { seen.add("first"); })});
  const Subscriber second("second", {on("delivery.but", [&](ac::Message*) { seen.add("second"); })});
  send("delivery.but", {"first"});
  EXPECT_THAT(outcome(1), ElementsAre("second: through"));
  EXPECT_THAT(seen.wait_for(1), ElementsAre("second"));
}

TEST_F(DeliveryTest, IsSeenByATapOnce) {
  Recorder<std::string> seen;
  const BusTap tap([&](const ac::Message& m) { seen.add(m.type()); });
  const Subscriber first("first", {on("delivery.tap", [](ac::Message*) {})});
  const Subscriber second("second", {on("delivery.tap", [](ac::Message*) {})});
  send("delivery.tap");
  outcome(2);
  EXPECT_THAT(seen.wait_for(1), ElementsAre("delivery.tap"));
}

TEST_F(DeliveryTest, AMarkIsOfTheRecipientWhoseHandlersTheThreadCalls) {
  const Subscriber marks("marks", {on("delivery.mark", [](ac::Message*) { Delivery::mark(); })});
  const Subscriber does_not("does not", {on("delivery.mark", [](ac::Message*) {})});
  Delivery::mark();  // of nobody
  send("delivery.mark");
  EXPECT_THAT(outcome(2), ElementsAre("marks: through, marked", "does not: through"));
}

// A message that the handler sends itself synchronously is handled within it, and is nobody's to follow.
TEST_F(DeliveryTest, AMarkAndAFailureAreToldApartWithinAnotherMessagesHandling) {
  capture_log();
  const Subscriber subscriber("s", {on("delivery.outer",
                                       [](ac::Message*) {
                                         ac::PostOffice::send_message_sync(message("delivery.inner"));
                                         Delivery::mark();
                                       }),
                                    on("delivery.inner", [](ac::Message*) { throw std::runtime_error("inner"); })});
  send("delivery.outer");
  EXPECT_THAT(outcome(1), ElementsAre("s: through, marked"));
  captured_log();
}

}  // namespace
}  // namespace refhost::test
