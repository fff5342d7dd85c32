// Recordings as they are read: what the recorder has written, what others have, and what is none.
#include "line/recording.h"

#include <gmock/gmock.h>

#include <sstream>
#include <vector>

#include "line/tests/samples.h"

namespace line::test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

struct Read {
  std::vector<Recorded> all;
  std::optional<Beginning> beginning;
};

Read read(const std::string& text) {
  std::istringstream in(text);
  RecordingReader reader(in, "door.uhfrec");
  Read result;
  while (auto one = reader.next()) {
    result.all.push_back(*std::move(one));
  }
  result.beginning = reader.beginning();
  return result;
}

std::string error_of(const std::string& text) {
  try {
    read(text);
  } catch (const RecordingError& failure) {
    return failure.what();
  }
  return "";
}

const std::string kHead = "# uhf recording 1\n";

TEST(Recording, IsReadAsItWasRecorded) {
  Recorder recorder;
  const auto now = Clock::now();
  recorder.add(Direction::to_reader, Bytes{0x7F, 0x00}, now);
  recorder.add(Direction::from_reader, Bytes{0xAB}, now + microseconds(1500));
  recorder.note("reader silent: 3 < 4", now + milliseconds(2000));
  const auto [all, beginning] = read(recorder.text());
  ASSERT_THAT(all, SizeIs(3));
  EXPECT_EQ(all[0].direction, Direction::to_reader);
  EXPECT_THAT(all[0].bytes, ElementsAre(0x7F, 0x00));
  EXPECT_EQ(all[1].direction, Direction::from_reader);
  EXPECT_EQ(all[1].at, microseconds(1500));
  EXPECT_EQ(all[2].direction, std::nullopt);
  EXPECT_EQ(all[2].note, "reader silent: 3 < 4");
  EXPECT_EQ(all[2].at, milliseconds(2000));
  ASSERT_TRUE(beginning.has_value());
  EXPECT_TRUE(beginning->is_exact);
  EXPECT_LE(std::chrono::abs(beginning->wall - std::chrono::system_clock::now()), std::chrono::seconds(1));
  EXPECT_LE(std::chrono::abs(*beginning->clock - now.time_since_epoch()), microseconds(1));
}

TEST(Recording, ItsBeginningMayBeInAnyZoneOrInSecondsOrMissing) {
  const auto beginning = [](const std::string& line) { return read(kHead + line + "\n0.5 > 7F\n").beginning; };
  const auto utc = std::chrono::sys_days(std::chrono::year(2026) / 1 / 31) + std::chrono::hours(7);
  EXPECT_EQ(beginning("# begins 2026-01-31T08:00:00.000250+01:00 12.5")->wall, utc + microseconds(250));
  EXPECT_EQ(beginning("# begins 2026-01-31T08:00:00.000250+01:00 12.5")->clock, milliseconds(12500));
  EXPECT_EQ(beginning("# begins 2026-01-31T03:30:00.0-03:30")->wall, utc);
  EXPECT_EQ(beginning("# begins 2026-01-31T07:00:00Z")->wall, utc);
  EXPECT_FALSE(beginning("# begins 2026-01-31T07:00:00Z")->is_exact);
  EXPECT_EQ(beginning("# begins 2026-01-31T07:00:00Z")->clock, std::nullopt);
  for (const char* const line : {"# a comment", "# begins", "# begins today", "# begins 2026-01-31T07:00:00",
                                 "# begins 2026-01-31T07:00:00+1", "# begins 2026-01-31T07:00:00+99:00"}) {
    EXPECT_EQ(beginning(line), std::nullopt) << line;
  }
}

TEST(Recording, WhatElseSomebodyHasWrittenInItIsLeftOut) {
  EXPECT_THAT(read(kHead + "\n# my door\n  \n#\n# -1 x\n# nan x\n# 1e300 x\n").all, IsEmpty());
  EXPECT_THAT(read(kHead + "0.1 < 7F 00\r\n").all.at(0).bytes, ElementsAre(0x7F, 0x00));
  EXPECT_THAT(read("# uhf recording 1").all, IsEmpty());
}

TEST(Recording, AWrongLineIsNamedWithTheWayOut) {
  const std::string wanted = "expected SECONDS, < or >, and bytes in hexadecimal; `sed 3d` gives the recording without";
  for (const char* const line :
       {"x > 7F", "0.1 7F", "0.1 = 7F", "0.1 > 7", "0.1 > 7G", "-0.1 > 7F", "nan > 7F", "inf > 7F", "> 7F"}) {
    EXPECT_THAT(error_of(kHead + "0 > 7F\n" + line + "\n"), HasSubstr("door.uhfrec:3: " + wanted)) << line;
  }
  EXPECT_THAT(error_of(kHead + "1000000001 > 7F\n"), HasSubstr(":2: a recording is no longer than 1000000000 seconds"));
  EXPECT_THAT(error_of(kHead + std::string(RecordingReader::kLongestLine + 1, '#')),
              HasSubstr(":2: a line has no more"));
}

TEST(Recording, ACutOffOneIsNotTakenForWhole) {
  const std::string text = kHead + "0.1 > 7F00\n";
  EXPECT_EQ(error_of(text), "");
  for (std::size_t size = kHead.size() + 1; size < text.size(); ++size) {
    EXPECT_EQ(error_of(text.substr(0, size)),
              "door.uhfrec:2: the file is cut off within this line; `head -n 1` gives what is whole");
  }
}

TEST(Recording, AnotherFileIsNone) {
  for (const char* const text : {"", "\n", "root:x:0:0\n", "# uhf recordin", "\x7F\x00\x22"}) {
    EXPECT_THAT(error_of(text), HasSubstr("door.uhfrec is no recording: its first line is not \"# uhf recording 1\""));
  }
}

}  // namespace
}  // namespace line::test
