#include "uhfsim/faults.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <limits>
#include <set>
#include <span>
#include <stdexcept>

#include "frame.h"
#include "hex.h"

namespace uhfsim::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

// The bytes that one fault makes of a reply, when it leaves them in one part.
Bytes struck(std::string_view fault, const Bytes& reply, std::uint64_t seed = 1, ByteView received = {}) {
  FaultInjector faults(seed);
  faults.set(fault, 1);
  const auto line = faults.intercept(reply, received);
  EXPECT_THAT(line, ElementsAre(Sending{.bytes = line.front().bytes})) << "in several parts, or late";
  return line.front().bytes;
}

// What differs between seeds.
std::set<Bytes> struck_by_chance(std::string_view fault, const Bytes& reply) {
  std::set<Bytes> outcomes;
  for (std::uint64_t seed = 0; seed < 2000; ++seed) outcomes.insert(struck(fault, reply, seed));
  return outcomes;
}

const Bytes kOneTag = hex("7F 02 22 00 09 B4 10 00 12 34 56 78 AB CD 33 7E");

TEST(FaultInjector, PassesEveryReplyWhenNothingIsOn) {
  FaultInjector faults(1);
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(Sending{.bytes = kPower2600}));
}

TEST(FaultInjector, KnowsItsNames) {
  EXPECT_THAT(FaultInjector::names(),
              ElementsAre("silence", "short-notice", "wrong-length", "unknown-command", "unknown-type",
                          "corrupt-checksum", "flip-bit", "drop-byte", "insert-byte", "truncate", "junk", "echo",
                          "flood", "split", "split-at-end", "late", "hang-up"));
  for (const auto& [name, meaning] : FaultInjector::help()) EXPECT_FALSE(meaning.empty()) << name;
}

TEST(FaultInjector, SilenceDropsTheReply) {
  FaultInjector faults(1);
  faults.set("silence", 1);
  EXPECT_THAT(faults.intercept(kPower2600), IsEmpty());
}

TEST(FaultInjector, ShortNoticePutsAReportOfThreeOrFourBytesFirst) {
  std::set<std::size_t> lengths;
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    Bytes bytes = struck("short-notice", kPower2600, seed);
    ASSERT_GE(bytes.size(), kPower2600.size());
    EXPECT_TRUE(std::ranges::equal(std::span(bytes).last(kPower2600.size()), kPower2600));
    bytes.resize(bytes.size() - kPower2600.size());
    lengths.insert(bytes.size() - kFrameOverhead);
    EXPECT_EQ(bytes, encode_frame(FrameType::notice, 0x22, std::span(bytes).subspan(5, bytes.size() - kFrameOverhead)));
  }
  EXPECT_THAT(lengths, ElementsAre(3, 4));
}

TEST(FaultInjector, WrongLengthAnnouncesAnyOtherLengthWithAFittingChecksum) {
  const auto outcomes = struck_by_chance("wrong-length", kPower2600);
  EXPECT_EQ(outcomes.size(), 255U);
  for (const Bytes& bytes : outcomes) {
    Bytes expected = kPower2600;
    expected[4] = bytes[4];
    expected[7] = static_cast<std::uint8_t>(expected[7] + bytes[4] - kPower2600[4]);
    EXPECT_EQ(bytes, expected);
  }
}

TEST(FaultInjector, UnknownCommandKeepsTheChecksumRight) {
  EXPECT_EQ(struck("unknown-command", kPower2600), hex("7F 01 55 00 02 0A 28 8A 7E"));
}

TEST(FaultInjector, UnknownTypeIsNoneThatExistsAndKeepsTheChecksumRight) {
  const auto outcomes = struck_by_chance("unknown-type", kPower2600);
  EXPECT_EQ(outcomes.size(), 253U);
  for (Bytes bytes : outcomes) {
    EXPECT_GT(bytes[1], 2);
    Bytes mended = bytes;
    mend_checksum(mended);
    EXPECT_EQ(bytes, mended);
  }
}

TEST(FaultInjector, OneOfSeveralFramesIsStruck) {
  const Bytes first = hex("7F 01 55 00 01 15 6C 7E");
  EXPECT_THAT(struck_by_chance("unknown-command", kNothingRead + kNothingRead),
              ::testing::UnorderedElementsAre(first + kNothingRead, kNothingRead + first));
}

TEST(FaultInjector, CorruptChecksumChangesThatByteAlone) {
  EXPECT_EQ(struck("corrupt-checksum", kPower2600), hex("7F 01 B7 00 02 0A 28 13 7E"));
}

TEST(FaultInjector, CorruptChecksumOfAnInventoryHitsTheLastNotice) {
  EXPECT_EQ(struck("corrupt-checksum", kNothingRead + kNothingRead), kNothingRead + hex("7F 01 FF 00 01 15 E9 7E"));
}

TEST(FaultInjector, FlipBitChangesOneBitAnywhereOrNone) {
  const auto outcomes = struck_by_chance("flip-bit", kPower2600);
  EXPECT_EQ(outcomes.size(), 8 * kPower2600.size() + 1);
  for (const Bytes& bytes : outcomes) {
    ASSERT_EQ(bytes.size(), kPower2600.size());
    int bits = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) bits += std::popcount<std::uint8_t>(bytes[i] ^ kPower2600[i]);
    EXPECT_LE(bits, 1);
  }
}

TEST(FaultInjector, DropByteTakesOneAnywhereOrNone) {
  std::set<Bytes> expected{kPower2600};
  for (std::size_t i = 0; i < kPower2600.size(); ++i) {
    Bytes bytes = kPower2600;
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(i));
    expected.insert(bytes);
  }
  EXPECT_EQ(struck_by_chance("drop-byte", kPower2600), expected);
}

TEST(FaultInjector, InsertByteAddsOneAnywhere) {
  std::set<std::size_t> places;
  for (const Bytes& bytes : struck_by_chance("insert-byte", kPower2600)) {
    ASSERT_EQ(bytes.size(), kPower2600.size() + 1);
    const auto place = std::ranges::mismatch(bytes, kPower2600).in1 - bytes.begin();
    places.insert(static_cast<std::size_t>(place));
    Bytes without = bytes;
    without.erase(without.begin() + place);
    EXPECT_EQ(without, kPower2600);
  }
  EXPECT_EQ(places.size(), kPower2600.size() + 1);
}

TEST(FaultInjector, TruncateLeavesABeginning) {
  const auto outcomes = struck_by_chance("truncate", kPower2600);
  EXPECT_EQ(outcomes.size(), kPower2600.size() + 1);
  for (const Bytes& bytes : outcomes) EXPECT_TRUE(std::ranges::equal(bytes, std::span(kPower2600).first(bytes.size())));
}

TEST(FaultInjector, JunkBeforeTheHeaderHoldsNone) {
  std::set<std::size_t> lengths;
  for (const Bytes& bytes : struck_by_chance("junk", kPower2600)) {
    ASSERT_GT(bytes.size(), kPower2600.size());
    const std::size_t junk = bytes.size() - kPower2600.size();
    lengths.insert(junk);
    EXPECT_EQ(std::ranges::find(bytes, 0x7F) - bytes.begin(), static_cast<std::ptrdiff_t>(junk));
    EXPECT_TRUE(std::ranges::equal(std::span(bytes).last(kPower2600.size()), kPower2600));
  }
  EXPECT_EQ(*lengths.begin(), 1U);
  EXPECT_EQ(*lengths.rbegin(), 16U);
}

TEST(FaultInjector, EchoSendsBackWhatWasReceived) {
  EXPECT_EQ(struck("echo", kPower2600, 1, kGetPower), kGetPower + kPower2600);
}

TEST(FaultInjector, FloodBeginsAFrameAndNeverEndsOne) {
  const Bytes bytes = struck("flood", kPower2600);
  EXPECT_EQ(bytes.size(), FaultInjector::kFloodBytes);
  EXPECT_EQ(bytes.front(), 0x7F);
  EXPECT_EQ(std::ranges::count(bytes, 0x7F), 1);
  EXPECT_EQ(std::ranges::count(bytes, 0x7E), 0);
}

TEST(FaultInjector, SplitPutsASilenceAnywhere) {
  std::set<std::size_t> places;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    FaultInjector faults(seed);
    faults.set("split", 1);
    const auto line = faults.intercept(kPower2600);
    ASSERT_EQ(line.size(), 2U);
    EXPECT_EQ(line[0].pause, 0ms);
    EXPECT_EQ(line[1].pause, FaultInjector::kGap);
    EXPECT_EQ(line[0].bytes + line[1].bytes, kPower2600);
    places.insert(line[0].bytes.size());
  }
  EXPECT_EQ(places.size(), kPower2600.size() + 1);
}

TEST(FaultInjector, SplitAtEndPutsItBehindTheFirstEndByte) {
  FaultInjector faults(1);
  faults.set("split-at-end", 1);
  EXPECT_THAT(
      faults.intercept(hex("7F 01 7E 00 7E")),
      ElementsAre(Sending{.bytes = hex("7F 01 7E")}, Sending{.bytes = hex("00 7E"), .pause = FaultInjector::kGap}));
  EXPECT_THAT(faults.intercept(hex("7F 01")), ElementsAre(Sending{.bytes = hex("7F 01")}));
}

TEST(FaultInjector, LateComesWholeAfterItsTime) {
  FaultInjector faults(1);
  faults.set("late", 1);
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(Sending{.bytes = kPower2600, .pause = FaultInjector::kLate}));
}

TEST(FaultInjector, HangUpEndsTheLineBehindABeginning) {
  FaultInjector faults(3);
  faults.set("hang-up", 1);
  faults.set("split", 1);
  const auto line = faults.intercept(kPower2600);
  ASSERT_EQ(line.size(), 1U);
  EXPECT_TRUE(line[0].hang_up);
  EXPECT_TRUE(std::ranges::equal(line[0].bytes, std::span(kPower2600).first(line[0].bytes.size())));
}

TEST(FaultInjector, EveryFaultTakesEveryAnswerThatAnotherHasLeft) {
  FaultInjector faults(1);
  for (const auto name : FaultInjector::names()) faults.set(name, 0.5);
  for (int i = 0; i < 2000; ++i) {
    for (const Bytes& reply : {Bytes(), hex("7F"), kPower2600, kOneTag + kOneTag}) faults.intercept(reply, kGetPower);
  }
}

TEST(FaultInjector, ZeroSwitchesOff) {
  FaultInjector faults(1);
  faults.set("silence", 1);
  faults.set("silence", 0);
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(Sending{.bytes = kPower2600}));
}

TEST(FaultInjector, ClearSwitchesAllOff) {
  FaultInjector faults(1);
  for (const auto name : FaultInjector::names()) faults.set(name, 1);
  faults.clear();
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(Sending{.bytes = kPower2600}));
}

TEST(FaultInjector, SilenceAndCorruptChecksumTogetherAreSilence) {
  FaultInjector faults(1);
  faults.set("corrupt-checksum", 1);
  faults.set("silence", 1);
  EXPECT_THAT(faults.intercept(kPower2600), IsEmpty());
}

std::vector<bool> silenced(std::uint64_t seed, double probability, int replies) {
  FaultInjector faults(seed);
  faults.set("silence", probability);
  std::vector<bool> silenced;
  for (int i = 0; i < replies; ++i) silenced.push_back(faults.intercept(kPower2600).empty());
  return silenced;
}

TEST(FaultInjector, ProbabilityIsTheShareOfRepliesThatSuffer) {
  const auto outcome = silenced(1, 0.25, 4000);
  EXPECT_NEAR(static_cast<double>(std::count(outcome.begin(), outcome.end(), true)), 1000, 100);
}

TEST(FaultInjector, SeedDecidesWhichRepliesSuffer) {
  EXPECT_EQ(silenced(7, 0.5, 100), silenced(7, 0.5, 100));
  EXPECT_NE(silenced(7, 0.5, 100), silenced(8, 0.5, 100));
}

TEST(FaultInjector, UnknownNameIsRefusedWithTheKnownOnes) {
  FaultInjector faults(1);
  try {
    faults.set("silense", 1);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(error.what(), ::testing::StartsWith("unknown fault \"silense\"; expected silence, short-notice, "));
  }
}

TEST(FaultInjector, ProbabilityOutsideZeroToOneIsRefused) {
  FaultInjector faults(1);
  EXPECT_THROW(faults.set("silence", -0.01), std::invalid_argument);
  EXPECT_THROW(faults.set("silence", 1.01), std::invalid_argument);
  EXPECT_THROW(faults.set("silence", std::numeric_limits<double>::quiet_NaN()), std::invalid_argument);
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(Sending{.bytes = kPower2600}));
}

}  // namespace
}  // namespace uhfsim::testing
