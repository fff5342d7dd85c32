// Somebody tells the second opinion something while there is no memory.
#include <gtest/gtest.h>

#include "door/run/reading_watch.h"
#include "door/tests/failing_memory.h"
#include "door/tests/service_fixture.h"

namespace achost::test {
namespace {

class ReadingWatchMemory : public Services {
 protected:
  GpioService gpio_;
  ReadingWatch watch_{settings(), gpio_, [](const Entry&) {}, [] { return true; }};
};

// The line's thread, which passes the bytes on, tells of each answer.
TEST_F(ReadingWatchMemory, WhatFindsNoneIsLeftOutAndWhoToldItGoesOn) {
  watch_.begin();
  for (int i = 0; i < 1000; ++i) {
    line::Exchange exchange;
    exchange.last_byte = std::chrono::steady_clock::now();
    fail_allocation(1);
    EXPECT_NO_THROW(watch_.saw(std::move(exchange)));
    stop_failing();
  }
  EXPECT_GT(watch_.left_out(), 0U);
}

}  // namespace
}  // namespace achost::test
