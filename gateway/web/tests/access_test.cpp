#include "gateway/web/access.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "refhost/tests/support.h"

namespace web {
namespace {

constexpr Seconds kNow = 1'800'000'000;

class AccessTest : public testing::Test {
 protected:
  std::string content() const {
    std::ifstream file(directory_.path() / "access.json");
    return {std::istreambuf_iterator<char>(file), {}};
  }

  refhost::test::TemporaryDirectory directory_;
  Access access_{directory_.path()};
};

TEST_F(AccessTest, ALinkWorksOnceAndWithinItsTime) {
  const std::string link = access_.make_link(Role::view, kNow);
  EXPECT_FALSE(access_.enter(link, kNow + Access::kLinkLife).has_value());
  EXPECT_EQ(access_.enter(link, kNow + Access::kLinkLife - 1)->role, Role::view);
  EXPECT_FALSE(access_.enter(link, kNow).has_value());
}

TEST_F(AccessTest, ASessionEndsAtItsTimeWhichIsShorterForWhoMayDoAll) {
  const auto admin = access_.enter(access_.make_link(Role::admin, kNow), kNow).value();
  const auto view = access_.enter(access_.make_link(Role::view, kNow), kNow).value();
  EXPECT_EQ(access_.role_of_secret(admin.secret, kNow + Access::kAdminLife - 1), Role::admin);
  EXPECT_EQ(access_.role_of_secret(admin.secret, kNow + Access::kAdminLife), std::nullopt);
  EXPECT_EQ(access_.role_of_secret(view.secret, kNow + Access::kAdminLife), Role::view);
  EXPECT_EQ(access_.role_of_secret(view.secret, kNow + Access::kViewLife), std::nullopt);
}

TEST_F(AccessTest, ALinkIsNoSessionAndASessionIsNoLink) {
  const std::string link = access_.make_link(Role::admin, kNow);
  EXPECT_EQ(access_.role_of_secret(link, kNow), std::nullopt);
  const auto session = access_.enter(link, kNow).value();
  EXPECT_FALSE(access_.enter(session.secret, kNow).has_value());
  EXPECT_EQ(access_.role_of_secret("", kNow), std::nullopt);
}

TEST_F(AccessTest, WhoReadsTheFileGetsInNoFurther) {
  const std::string key = access_.make_key();
  const std::string link = access_.make_link(Role::admin, kNow);
  EXPECT_THAT(content(), testing::Not(testing::HasSubstr(key)));
  EXPECT_THAT(content(), testing::Not(testing::HasSubstr(link)));
  struct stat found {};
  stat((directory_.path() / "access.json").c_str(), &found);
  EXPECT_EQ(found.st_mode & 0777, 0600U);
}

TEST_F(AccessTest, WhatAnotherProcessChangesHoldsHereAndAfterARestart) {
  Access another(directory_.path());
  const auto session = access_.enter(another.make_link(Role::view, kNow), kNow).value();
  EXPECT_EQ(another.role_of_secret(session.secret, kNow), Role::view);
  EXPECT_EQ(Access(directory_.path()).role_of_secret(session.secret, kNow), Role::view);
  another.forget();
  EXPECT_EQ(access_.role_of_secret(session.secret, kNow), std::nullopt);
  EXPECT_FALSE(access_.is_new());
}

TEST_F(AccessTest, WhoLeavesEndsHisOwnSessionAlone) {
  const auto one = access_.enter(access_.make_link(Role::view, kNow), kNow).value();
  const auto other = access_.enter(access_.make_link(Role::view, kNow), kNow).value();
  access_.leave(one.secret);
  EXPECT_EQ(access_.role_of_secret(one.secret, kNow), std::nullopt);
  EXPECT_EQ(access_.role_of_secret(other.secret, kNow), Role::view);
}

TEST_F(AccessTest, TheOldestGoWhenThereAreTooMany) {
  const std::string first = access_.make_link(Role::view, kNow);
  for (std::size_t i = 1; i < Access::kMost; ++i) {
    access_.make_key();
  }
  EXPECT_TRUE(Access(directory_.path()).enter(first, kNow).has_value());
  const std::string second = access_.make_link(Role::view, kNow);
  for (std::size_t i = 0; i < Access::kMost; ++i) {
    access_.make_key();
  }
  EXPECT_FALSE(access_.enter(second, kNow).has_value());
}

TEST_F(AccessTest, ADamagedFileLetsNobodyInAndSaysTheWayOut) {
  access_.make_key();
  std::ofstream(directory_.path() / "access.json") << "no JSON";
  try {
    Access(directory_.path()).role_of_secret("x", kNow);
    FAIL() << "nobody has noticed";
  } catch (const std::runtime_error& failure) {
    EXPECT_THAT(failure.what(), testing::HasSubstr("is damaged: remove it"));
  }
}

}  // namespace
}  // namespace web
