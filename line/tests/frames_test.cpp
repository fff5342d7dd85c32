#include "line/frames.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "ac/exception.h"
#include "frame.h"
#include "line/tests/by_codec.h"

namespace line::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

Bytes hex(const std::string& text) {
  Bytes bytes;
  std::istringstream words(text.substr(0, text.find('#')));
  for (std::string word; words >> word;) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(word, nullptr, 16)));
  }
  return bytes;
}

Bytes joined(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

std::vector<std::pair<std::size_t, std::size_t>> places_of(const std::vector<Frame>& frames) {
  std::vector<std::pair<std::size_t, std::size_t>> places;
  for (const Frame& frame : frames) {
    places.emplace_back(frame.offset, frame.size);
  }
  return places;
}

TEST(LineFrames, EveryVectorIsOneFrameAndIsMadeAgainFromItsParts) {
  int seen = 0;
  for (const auto& entry : std::filesystem::directory_iterator(LINE_VECTORS)) {
    std::ifstream file(entry.path());
    for (std::string line; entry.path().extension() == ".txt" && std::getline(file, line);) {
      std::istringstream words(line);
      std::string kind;
      std::string name;
      words >> kind >> name;
      if (name.empty() || kind.starts_with('#')) {
        continue;
      }
      std::string rest;
      std::getline(words, rest);
      const Bytes bytes = hex(rest);
      const auto pieces = pieces_of(bytes);
      ASSERT_EQ(pieces.frames.size(), 1U) << line;
      EXPECT_THAT(pieces.gaps, IsEmpty()) << line;
      const Frame& frame = pieces.frames.front();
      EXPECT_EQ(frame.type, kind == "command"    ? FrameType::command
                            : kind == "response" ? FrameType::response
                                                 : FrameType::notice)
          << line;
      EXPECT_EQ(frame_of(frame.type, frame.code, frame.parameters), bytes) << line;
      ++seen;
    }
  }
  EXPECT_GE(seen, 17);
}

TEST(LineFrames, ATagReportSaysItsEpcAndRssi) {
  const Bytes bytes = hex("7F 02 22 00 11 C8 30 00 E2 00 68 0A 00 01 02 03 12 34 56 78 95 1D 4D 7E");
  const Tag tag = tag_of(pieces_of(bytes).frames.at(0));
  EXPECT_THAT(tag.epc, ElementsAreArray(hex("E2 00 68 0A 00 01 02 03 12 34 56 78")));
  EXPECT_EQ(tag.rssi, 0xC8);
}

TEST(LineFrames, ABadPieceSaysWhatIsWrongWithItsHeader) {
  const std::vector<std::pair<std::string, Flaw>> rows = {
      {"00 01 02", Flaw::junk},
      {"7F 01 33 00 01 00 35 7E", Flaw::junk},
      {"7F 01 B6 00 01 00 B9 7E", Flaw::wrong_checksum},
      {"7F 01 B6 00 01 00 B8 7D", Flaw::wrong_end},
      {"7F 01 B6 00 05 00", Flaw::truncated},
      {"7F", Flaw::truncated},
      {"00 7F 01 B6 00 05 00", Flaw::truncated},
  };
  for (const auto& [text, flaw] : rows) {
    const Bytes bytes = hex(text);
    const auto pieces = pieces_of(bytes);
    EXPECT_THAT(pieces.frames, IsEmpty()) << text;
    ASSERT_EQ(pieces.gaps.size(), 1U) << text;
    EXPECT_EQ(pieces.gaps.front().flaw, flaw) << text;
    EXPECT_EQ(pieces.gaps.front().size, bytes.size()) << text;
  }
}

TEST(LineFrames, AFalseHeaderHidesNoFrameBehindIt) {
  const Bytes good = hex("7F 01 B6 00 01 00 B8 7E");
  for (const char* const junk :
       {"7F", "7F 02", "7F 02 22", "7F 02 22 00", "7F 02 22 00 09", "7F 7F 7F", "01 02 7F 01 FF 00 03"}) {
    const Bytes before = hex(junk);
    const auto pieces = pieces_of(joined({before, good, before}));
    EXPECT_THAT(places_of(pieces.frames), ElementsAre(std::pair(before.size(), good.size()))) << junk;
    EXPECT_EQ(pieces.gaps.size(), 2U) << junk;
  }
}

// Bytes in which frames, true and false, are not rare.
Bytes likely_bytes(std::mt19937& random) {
  const auto any = [&](int most) { return static_cast<std::uint8_t>(random() % static_cast<unsigned>(most + 1)); };
  constexpr std::array<std::uint8_t, 8> kCodes = {0x07, 0x22, 0xA9, 0xB6, 0xB7, 0xF0, 0xF1, 0xFF};
  Bytes bytes;
  for (int part = 0; part < 4; ++part) {
    Bytes frame = {0x7F, any(2), kCodes.at(any(7)), 0, any(7)};
    const std::size_t length = frame[4];
    for (std::size_t i = 0; i < length; ++i) {
      frame.push_back(any(9) == 0 ? 0x7F : any(3));
    }
    const std::size_t summed = any(1) == 0 ? frame.size() : std::min<std::size_t>(frame.size(), 6);
    std::uint8_t sum = 0;
    for (std::size_t i = 1; i < summed; ++i) {
      sum = static_cast<std::uint8_t>(sum + frame[i]);
    }
    frame.push_back(any(9) == 0 ? any(255) : sum);
    frame.push_back(any(19) == 0 ? any(255) : 0x7E);
    if (any(9) == 0) {
      frame.resize(any(static_cast<int>(frame.size())));
    }
    bytes.insert(bytes.end(), frame.begin(), frame.end());
  }
  return bytes;
}

TEST(LineFrames, WhatIsAFrameHereIsOneForTheCodecAndTheOtherWayRound) {
  std::mt19937 random(1);
  std::size_t frames = 0;
  for (int round = 0; round < 20000; ++round) {
    const Bytes bytes = likely_bytes(random);
    std::vector<std::pair<std::size_t, std::size_t>> expected;
    for (std::size_t at = 0; at < bytes.size();) {
      const std::size_t size = size_by_codec(bytes, at);
      if (size > 1) {
        expected.emplace_back(at, size);
      }
      at += size > 1 ? size : 1;
    }
    ASSERT_THAT(places_of(pieces_of(bytes).frames), ElementsAreArray(expected)) << "round " << round;
    frames += expected.size();
  }
  EXPECT_GT(frames, 10000U) << "the bytes are too unlikely to be frames";
}

TEST(LineFrames, GapsAndFramesCoverEveryByteOnce) {
  std::mt19937 random(2);
  for (int round = 0; round < 2000; ++round) {
    const Bytes bytes = likely_bytes(random);
    const auto pieces = pieces_of(bytes);
    std::vector<int> covered(bytes.size());
    for (const Frame& frame : pieces.frames) {
      std::for_each_n(covered.begin() + static_cast<std::ptrdiff_t>(frame.offset), frame.size, [](int& n) { ++n; });
    }
    for (const Gap& gap : pieces.gaps) {
      std::for_each_n(covered.begin() + static_cast<std::ptrdiff_t>(gap.offset), gap.size, [](int& n) { ++n; });
    }
    ASSERT_EQ(covered, std::vector<int>(bytes.size(), 1)) << "round " << round;
  }
}

}  // namespace
}  // namespace line::test
