#include "gateway/base/rate_limit.h"

#include <gtest/gtest.h>

namespace gateway {
namespace {

using std::chrono::milliseconds;

const RateLimit::Time kStart{};

TEST(RateLimitTest, GivesSoManyAtOnceAndThenSoManyASecond) {
  RateLimit limit(3, 2);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(limit.take("a", kStart));
  }
  EXPECT_FALSE(limit.take("a", kStart + milliseconds(499)));
  EXPECT_TRUE(limit.take("a", kStart + milliseconds(500)));
  EXPECT_FALSE(limit.take("a", kStart + milliseconds(500)));
}

TEST(RateLimitTest, SavesNoMoreThanThatForLater) {
  RateLimit limit(3, 2);
  limit.take("a", kStart);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(limit.take("a", kStart + std::chrono::hours(1)));
  }
  EXPECT_FALSE(limit.take("a", kStart + std::chrono::hours(1)));
}

TEST(RateLimitTest, OneDoesNotTakeFromAnother) {
  RateLimit limit(1, 1);
  EXPECT_TRUE(limit.take("a", kStart));
  EXPECT_FALSE(limit.take("a", kStart));
  EXPECT_TRUE(limit.take("b", kStart));
}

TEST(RateLimitTest, WhoHasBeenQuietLongestIsForgottenFirst) {
  RateLimit limit(1, 0.001);
  limit.take("first", kStart);
  for (std::size_t i = 1; i < RateLimit::kMostClients; ++i) {
    limit.take(std::to_string(i), kStart + milliseconds(i));
  }
  EXPECT_FALSE(limit.take("5", kStart + milliseconds(2000)));
  EXPECT_TRUE(limit.take("another", kStart + milliseconds(2000)));
  EXPECT_FALSE(limit.take("5", kStart + milliseconds(2000)));
  EXPECT_TRUE(limit.take("first", kStart + milliseconds(2000)));
}

}  // namespace
}  // namespace gateway
