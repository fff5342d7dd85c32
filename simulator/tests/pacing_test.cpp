#include "uhfsim/pacing.h"

#include <gmock/gmock.h>

namespace uhfsim::testing {
namespace {

using std::chrono::nanoseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

const Clock::time_point kStart = Clock::time_point() + 5s;

TEST(LinePacing, AByteIsTenBits) {
  EXPECT_EQ(LinePacing(115200).duration(1), nanoseconds(86'805));
  EXPECT_EQ(LinePacing(10).duration(3), 3s);
}

TEST(LinePacing, RoundingDoesNotAddUp) {
  EXPECT_EQ(LinePacing(115200).duration(11'520), 1s);
  EXPECT_EQ(LinePacing(115200).duration(1'152'000), 100s);
}

TEST(LinePacing, NothingTakesNoTime) { EXPECT_EQ(LinePacing(115200).duration(0), 0s); }

TEST(LinePacing, BaudZeroTakesNoTime) {
  EXPECT_FALSE(LinePacing(0).paced());
  EXPECT_TRUE(LinePacing(1).paced());
  EXPECT_EQ(LinePacing(0).duration(1'000'000), 0s);
  EXPECT_EQ(LinePacing(0).due(kStart, 1000), kStart);
}

TEST(LinePacing, IsDueAfterTheStart) { EXPECT_EQ(LinePacing(1000).due(kStart, 24), kStart + 240ms); }

TEST(Chunking, WholeReplyIsDueWithItsLastByte) {
  EXPECT_THAT(Chunking(0).pieces(24, kStart, LinePacing(1000)), ElementsAre(Piece{0, 24, kStart + 240ms}));
}

TEST(Chunking, EachChunkIsDueWithItsOwnLastByte) {
  EXPECT_THAT(Chunking(4).pieces(9, kStart, LinePacing(1000)),
              ElementsAre(Piece{0, 4, kStart + 40ms}, Piece{4, 4, kStart + 80ms}, Piece{8, 1, kStart + 90ms}));
}

TEST(Chunking, ReplyOfExactlyTheChunksHasNoEmptyRest) {
  EXPECT_THAT(Chunking(4).pieces(8, kStart, LinePacing(0)), ElementsAre(Piece{0, 4, kStart}, Piece{4, 4, kStart}));
}

TEST(Chunking, NothingHasNoPieces) {
  EXPECT_THAT(Chunking(0).pieces(0, kStart, LinePacing(1000)), IsEmpty());
  EXPECT_THAT(Chunking(4).pieces(0, kStart, LinePacing(1000)), IsEmpty());
}

}  // namespace
}  // namespace uhfsim::testing
