#include "gateway/mqtt/client_id.h"

#include <gmock/gmock.h>

#include <fstream>

#include "refhost/tests/support.h"

namespace mqtt {
namespace {

using testing::MatchesRegex;

TEST(ClientIdTest, ABridgesSecretStaysAndIsNoOthers) {
  const refhost::test::TemporaryDirectory directory;
  const auto file = directory.path() / "client-id";
  const auto secret = kept_secret(file);
  EXPECT_THAT(secret, MatchesRegex("[0-9a-f]{32}"));
  EXPECT_EQ(kept_secret(file), secret);
  EXPECT_NE(kept_secret(directory.path() / "other"), secret);
  EXPECT_EQ(std::filesystem::status(file).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(ClientIdTest, WhatIsNoSecretIsReplaced) {
  const refhost::test::TemporaryDirectory directory;
  const auto file = directory.path() / "client-id";
  for (const char* const text : {"", "gate-1\n", "0123456789abcdef0123456789abcde+\n"}) {
    std::ofstream(file) << text;
    EXPECT_THAT(kept_secret(file), MatchesRegex("[0-9a-f]{32}")) << text;
  }
}

}  // namespace
}  // namespace mqtt
