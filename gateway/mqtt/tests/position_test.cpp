#include "gateway/mqtt/position.h"

#include <gtest/gtest.h>

#include <fstream>

#include "refhost/tests/support.h"

namespace mqtt {
namespace {

using std::chrono::milliseconds;

const PositionFile::Time kStart{};

Position at(std::int64_t number) { return {"j", number}; }

TEST(AcknowledgementsTest, NothingIsReachedBeforeAllBeforeItIs) {
  Acknowledgements all;
  all.begin_at(at(4));
  const auto first = all.send(at(5));
  const auto second = all.send(at(7));
  all.take(second);
  EXPECT_EQ(all.reached(), at(4));
  EXPECT_EQ(all.under_way(), 2U);
  all.take(first);
  EXPECT_EQ(all.reached(), at(7));
  EXPECT_EQ(all.under_way(), 0U);
}

TEST(AcknowledgementsTest, WhatIsAcknowledgedOfAnEarlierConnectionCountsNoMore) {
  Acknowledgements all;
  all.begin_at(at(0));
  const auto early = all.send(at(1));
  all.begin_at(at(0));
  all.send(at(1));
  all.take(early);
  EXPECT_EQ(all.reached(), at(0));
}

class PositionFileTest : public testing::Test {
 protected:
  Position stored() const { return PositionFile(file_).stored(); }

  refhost::test::TemporaryDirectory directory_;
  const std::filesystem::path file_ = directory_.path() / "position.json";
};

TEST_F(PositionFileTest, ThereIsNoneAtFirst) { EXPECT_EQ(stored(), Position()); }

TEST_F(PositionFileTest, IsWrittenEachSecondOrAfterMany) {
  PositionFile file(file_);
  file.keep(at(1), kStart + milliseconds(1000));
  EXPECT_EQ(stored(), at(1));
  file.keep(at(2), kStart + milliseconds(1999));
  EXPECT_EQ(stored(), at(1));
  file.keep(at(3), kStart + milliseconds(2000));
  EXPECT_EQ(stored(), at(3));
  file.keep(at(3 + PositionFile::kMostBehind), kStart + milliseconds(2001));
  EXPECT_EQ(stored(), at(3 + PositionFile::kMostBehind));
}

TEST_F(PositionFileTest, WhatIsNoPositionIsNamed) {
  std::ofstream(file_) << "{\"journal\": 7}";
  try {
    const PositionFile file(file_);
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_NE(std::string(failure.what()).find("position.json holds no position"), std::string::npos);
  }
}

}  // namespace
}  // namespace mqtt
