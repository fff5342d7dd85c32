#include "door/base/state_directory.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "door/base/failure.h"

namespace achost {
namespace {

TEST(StateDirectory, IsTheOneAskedForMadeAbsolute) {
  EXPECT_EQ(state_directory("/somewhere"), "/somewhere");
  EXPECT_EQ(state_directory("here"), std::filesystem::current_path() / "here");
}

TEST(StateDirectory, OfRootIsBelowVar) { EXPECT_EQ(usual_state_directory(true, "/state", "/root"), "/var/lib/achost"); }

TEST(StateDirectory, OfAUserIsBelowTheUsersStateOrHome) {
  EXPECT_EQ(usual_state_directory(false, "/state", "/home/u"), "/state/achost");
  EXPECT_EQ(usual_state_directory(false, nullptr, "/home/u"), "/home/u/.local/state/achost");
  EXPECT_EQ(usual_state_directory(false, "", "/home/u"), "/home/u/.local/state/achost");
  EXPECT_EQ(usual_state_directory(false, "relative", "/home/u"), "/home/u/.local/state/achost");
}

TEST(StateDirectory, WithoutAHomeHasToBeGiven) {
  EXPECT_THROW(usual_state_directory(false, nullptr, nullptr), Failure);
  EXPECT_THROW(usual_state_directory(false, nullptr, ""), Failure);
}

}  // namespace
}  // namespace achost
