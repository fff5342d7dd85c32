// Somebody sends a message while there is no memory.
#include <gtest/gtest.h>

#include <algorithm>

#include "door/control/event_ring.h"
#include "door/tests/failing_memory.h"

namespace achost::test {
namespace {

TEST(EventRingMemory, NotingAMessageTakesNone) {
  EventRing ring;
  std::int64_t allocations = 0;
  constexpr int kMore = static_cast<int>(EventRing::kMostEvents) * 2;  // those that drive others out, too
  for (int i = 0; i < kMore; ++i) {
    ac::Message message("test.event");
    message.add_string("text", std::string(static_cast<std::size_t>(i) % 500, 'x'));
    fail_allocation(1);
    ring.note(message);
    allocations = std::max(allocations, stop_failing());
  }
  EXPECT_EQ(allocations, 0);
  EXPECT_EQ(ring.newest(), kMore);
}

}  // namespace
}  // namespace achost::test
