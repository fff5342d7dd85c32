// Bytes as frames and as what is none.
#include "frame_scan.h"

#include <gmock/gmock.h>

#include <chrono>
#include <iterator>
#include <numeric>
#include <random>
#include <ranges>

#include "recording.h"

namespace uhfctl {
namespace {

const std::string kGetPower = "7F00B70000B77E";
const std::string kPower2600 = "7F01B700020A28EC7E";
const std::string kTag = "7F02220007C80800ABCD951D257E";

std::vector<std::string> found(const std::string& digits, bool all = true) {
  std::vector<std::string> texts;
  for (const auto& item : scan(parse_hex(digits, "test"), all).found) {
    texts.push_back(std::to_string(item.offset) + "+" + std::to_string(item.size) + " " +
                    (item.frame != nullptr ? describe(*item.frame) : item.problem));
  }
  return texts;
}

using ::testing::ElementsAre;

TEST(Scan, TellsFramesOneAfterTheOther) {
  EXPECT_THAT(found(kGetPower + kPower2600),
              ElementsAre("0+7 get power command", "7+9 get power response: power 2600"));
}

TEST(Scan, TellsATag) {
  EXPECT_THAT(found(kTag), ElementsAre("0+14 tag report: epc ABCD, rssi 200, pc 0800, crc 951D"));
}

TEST(Scan, JunkIsOnePieceUpToTheNextHeader) {
  EXPECT_THAT(found("00 11 22" + kGetPower + "7E"),
              ElementsAre("0+3 no header 7F", "3+7 get power command", "10+1 no header 7F"));
}

TEST(Scan, AWrongChecksumTakesItsFrameAlone) {
  const auto items = scan(parse_hex("7F00B70000B87E" + kGetPower, "test"), true).found;
  ASSERT_EQ(items.size(), 2U);
  EXPECT_TRUE(items[0].wrong_checksum);
  EXPECT_EQ(items[0].problem, "wrong checksum: it has B8, its bytes give B7");
  EXPECT_NE(items[1].frame, nullptr);
}

TEST(Scan, AMissingEndByteDoesNotHideTheNextFrame) {
  EXPECT_THAT(found("7F00B70000B700" + kGetPower),
              ElementsAre("0+1 no end byte 7E where the length puts it, 6 bytes on", "1+6 no header 7F",
                          "7+7 get power command"));
}

TEST(Scan, ALengthBeyondTheEndDoesNotHideTheNextFrame) {
  EXPECT_THAT(found("7F00B7FFFF" + kGetPower), ElementsAre("0+1 cut off: its length asks for 65542 bytes, 12 are left",
                                                           "1+4 no header 7F", "5+7 get power command"));
}

TEST(Scan, AnUnknownCommandIsNamed) {
  EXPECT_THAT(found("7F00120000127E"), ElementsAre("0+7 Unknown Command Type: 18"));
}

TEST(Scan, ATagReportWithoutRoomForItsCrcIsAProblem) {
  EXPECT_THAT(found("7F02220003C808 00F77E"), ElementsAre("0+10 a tag report with no room for its CRC"));
}

TEST(Scan, WhatMayBecomeAFrameIsLeftWhileMoreComes) {
  for (std::size_t cut = 0; cut < kTag.size(); cut += 2) {
    const auto [items, rest] = scan(parse_hex(kGetPower + kTag.substr(0, cut), "test"), false);
    EXPECT_EQ(items.size(), 1U) << cut;
    EXPECT_EQ(rest, cut / 2) << cut;
  }
  EXPECT_EQ(scan(parse_hex(kTag, "test"), false).rest, 0U);
}

TEST(Scan, EveryByteBelongsToOnePiece) {
  // Whatever is done to a byte of a conversation, the pieces fill it without a gap.
  const auto bytes = parse_hex(kGetPower + kPower2600 + kTag + kTag, "test");
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      auto changed = bytes;
      changed[at] = static_cast<unsigned char>(value);
      std::size_t next = 0;
      for (const auto& item : scan(changed, true).found) {
        ASSERT_EQ(item.offset, next);
        ASSERT_GT(item.size, 0U);
        next += item.size;
      }
      ASSERT_EQ(next, bytes.size());
    }
  }
}

// Bytes with good frames in them, and where these stand.
struct Noisy {
  std::vector<unsigned char> bytes;
  std::vector<std::size_t> frames;
};

// Chance makes one false frame of 256 a good one, which nobody can tell from others: not here.
void spoil(std::vector<unsigned char>& bytes, std::size_t header) {
  const std::size_t end = header + (bytes[header + 3] << 8 | bytes[header + 4]) + 6U;
  if (end < bytes.size()) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(header);
    const auto sum = std::accumulate(first + 1, bytes.begin() + static_cast<std::ptrdiff_t>(end) - 1, 0U);
    if ((sum & 0xFF) == bytes[end - 1]) {
      bytes[header + 5] ^= 1U;
    }
  }
}

// Bursts between good frames: any bytes, begun by a header that announces a length, whose end byte often stands where
// the length puts it, because frames end everywhere.
Noisy noisy(unsigned int seed, std::size_t size, int bursts) {
  std::mt19937 random(seed);
  const auto below = [&random](unsigned int most) { return static_cast<unsigned char>(random() % most); };
  Noisy noisy;
  std::vector<std::size_t> false_headers;
  for (std::size_t burst = 1; noisy.bytes.size() < size; ++burst) {
    while (noisy.bytes.size() < size / static_cast<std::size_t>(bursts) * burst) {
      noisy.frames.push_back(noisy.bytes.size());
      auto bytes = parse_hex("7F0222000BC83000E2007E007F00951D007E", "test");
      bytes[11] = below(256);
      bytes[13] = below(256);
      bytes[16] = static_cast<unsigned char>(std::accumulate(bytes.begin() + 1, bytes.end() - 2, 0U));
      noisy.bytes.insert(noisy.bytes.end(), bytes.begin(), bytes.end());
    }
    // A multiple of a frame's size away there is an end byte again.
    const std::size_t junk = 6 + random() % 12;
    const std::size_t announced = (random() % 50 + 1) * 18 + (junk - 7);
    false_headers.push_back(noisy.bytes.size());
    noisy.bytes.insert(noisy.bytes.end(), {0x7F, below(3), 0x22, static_cast<unsigned char>(announced >> 8),
                                           static_cast<unsigned char>(announced & 0xFF)});
    for (std::size_t i = 5; i < junk; ++i) {
      noisy.bytes.push_back(below(0x7E));
    }
  }
  for (const auto header : false_headers | std::views::reverse) {  // as each has those behind it in its sum
    spoil(noisy.bytes, header);
  }
  return noisy;
}

std::vector<std::size_t> frames_in(const Scan& scan, std::size_t base = 0) {
  std::vector<std::size_t> places;
  for (const auto& item : scan.found) {
    if (item.frame != nullptr) {
      places.push_back(base + item.offset);
    }
  }
  return places;
}

TEST(Scan, EveryGoodFrameBehindAFalseHeaderIsFound) {
  for (unsigned int seed = 1; seed <= 200; ++seed) {
    const auto [bytes, frames] = noisy(seed, 65'536, 130);
    ASSERT_EQ(frames_in(scan(bytes, true)), frames) << "seed " << seed;
  }
}

TEST(Scan, TheSameFramesAreFoundHoweverTheBytesArrive) {
  for (unsigned int seed = 1; seed <= 50; ++seed) {
    const auto [bytes, frames] = noisy(seed, 4096, 20);
    std::mt19937 random(seed);
    std::vector<unsigned char> rest;
    std::vector<std::size_t> found;
    for (std::size_t at = 0; at < bytes.size();) {
      const auto chunk = std::min<std::size_t>(1 + random() % 100, bytes.size() - at);
      rest.insert(rest.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                  bytes.begin() + static_cast<std::ptrdiff_t>(at + chunk));
      at += chunk;
      const auto scanned = scan(rest, at == bytes.size());
      std::ranges::copy(frames_in(scanned, at - rest.size()), std::back_inserter(found));
      rest.erase(rest.begin(), rest.end() - static_cast<std::ptrdiff_t>(scanned.rest));
    }
    ASSERT_EQ(found, frames) << "seed " << seed;
  }
}

TEST(Scan, AFalseHeaderIsNamedAsOne) {
  // It announces five bytes: its end byte is that of the frame behind it.
  EXPECT_THAT(found("7F00B70005" + kGetPower),
              ElementsAre("0+1 a false header, or a frame cut off: another begins 5 bytes on", "1+4 no header 7F",
                          "5+7 get power command"));
}

TEST(Scan, AFrameInsideADamagedOneIsWaitedFor) {
  const std::string damaged = "7F00B70003";  // its end byte is the fifth of what follows
  const std::string inner = "7F017E007E";
  const auto [items, rest] = scan(parse_hex(damaged + inner, "test"), false);
  EXPECT_TRUE(items.empty());
  EXPECT_EQ(rest, 10U);
}

// Headers without end, each of which announces the longest frame, whose end byte stands in its place.
TEST(Scan, FalseHeadersWithoutEndCostNoMoreThanALookEach) {
  std::vector<unsigned char> bytes;
  while (bytes.size() < 2'000'000) {
    for (const int byte : {0x7F, 0x02, 0x22, 0xFF, 0xFF, 0x7E, 0x01, 0x00}) {
      bytes.push_back(static_cast<unsigned char>(byte));
    }
  }
  const auto good = parse_hex(kGetPower, "test");
  for (std::size_t at = 60'000; at < bytes.size(); at += 60'000) {
    std::ranges::copy(good, bytes.begin() + static_cast<std::ptrdiff_t>(at));
  }
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(frames_in(scan(bytes, true)).size(), 33U);
  // A fraction of a second; minutes when each header's frame is summed up for itself.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

TEST(ParseHex, LeavesOutWhatStandsBetweenTheDigits) {
  EXPECT_EQ(parse_hex("7f 0x00,B7:\n01", "test"), (std::vector<unsigned char>{0x7F, 0x00, 0xB7, 0x01}));
}

}  // namespace
}  // namespace uhfctl
