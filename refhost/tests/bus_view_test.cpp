#include "refhost/bus_view.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "ac/message_enqueuer.h"
#include "refhost/bus_counters.h"
#include "refhost/send.h"
#include "refhost/subscriber.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

TEST(BusTap, SeesEachMessageOnceWhoeverIsInterested) {
  Recorder<std::string> seen;
  {
    const BusTap tap([&](const ac::Message& message) { seen.add(message.type() + fields_of(message).dump()); });
    const Subscriber first("first", {on("work", [](ac::Message*) {})});
    const Subscriber second("second", {on("work", [](ac::Message*) {})});
    send("work", {{"b", 1}, {"a", std::int64_t{-1} << 40}, {"c", "text"}});
    send("nobody's");
  }
  send("after");
  EXPECT_EQ(seen.wait_for(2), std::vector<std::string>({R"(work{"b":1,"a":-1099511627776,"c":"text"})", "nobody's{}"}));
}

TEST(QueueStates, ShowEveryQueueAsItStands) {
  Event release;
  Event begun;
  const Subscriber full("full",
                        {on("work",
                            [&](ac::Message*) {
                              begun.set();
                              release.wait();
                            })},
                        2);
  const ac::MessageEnqueuer enqueuer;
  capture_log();
  send("work");
  begun.wait();
  for (int i = 0; i < 5; ++i) {
    send("work");
  }
  const auto states = queue_states();
  release.set();
  const auto found = std::ranges::find(states, "full", &QueueState::name);
  ASSERT_NE(found, states.end());
  EXPECT_EQ(found->waiting, 2U);
  EXPECT_EQ(found->bound, 2U);
  EXPECT_EQ(found->dropped, 3U);
  EXPECT_NE(std::ranges::find(states, "queue of a plug-in", &QueueState::name), states.end());
  captured_log();
}

}  // namespace
}  // namespace refhost::test
