// A million messages from eight senders, none lost and each sender's in their order. Each sender has at most so many on
// their way that together they stay below the queue's bound.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

#include "ac/post_office.h"
#include "refhost/bus_counters.h"
#include "refhost/subscriber.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

constexpr int kSenders = 8;
constexpr int kMessages = LOAD_MESSAGES / kSenders;  // of each
constexpr int kWindow = 1024;
static_assert(kSenders * kWindow < static_cast<int>(Subscriber::kDefaultBound));

TEST(BusLoad, NothingIsLostAndEachSendersOrderIsKept) {
  std::array<std::atomic<int>, kSenders> received{};  // of each sender; written by the delivery thread
  std::atomic<int> disorder = 0;
  const auto dropped = bus_counters().dropped;
  Subscriber subscriber("load", {on("load", [&](ac::Message* message) {
                          int sender = 0;
                          int number = 0;
                          message->get_int("sender", &sender);
                          message->get_int("number", &number);
                          auto& count = received.at(static_cast<std::size_t>(sender));
                          disorder += number == count ? 0 : 1;
                          ++count;
                          count.notify_one();
                        })});
  std::vector<std::jthread> senders;
  for (int sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([sender, &count = received.at(static_cast<std::size_t>(sender))] {
      for (int number = 0; number < kMessages; ++number) {
        for (int seen = count; number - seen >= kWindow; seen = count) {
          count.wait(seen);
        }
        auto message = std::make_unique<ac::Message>("load");
        message->add_int("sender", sender);
        message->add_int("number", number);
        message->add_string("text", "as long as an identification's fields are together");
        ac::PostOffice::send_message(std::move(message));
      }
    });
  }
  senders.clear();
  for (auto& count : received) {
    for (int seen = count; seen != kMessages; seen = count) {
      count.wait(seen);
    }
  }
  EXPECT_EQ(disorder, 0);
  EXPECT_EQ(bus_counters().dropped, dropped);
}

}  // namespace
}  // namespace refhost::test
