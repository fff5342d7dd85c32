#include "line/recorder.h"

#include <gmock/gmock.h>

#include <atomic>
#include <sstream>
#include <thread>

#include "line/tests/samples.h"

namespace line::test {
namespace {

using std::chrono::milliseconds;

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

TEST(LineRecorder, SaysWhatWentWhichWayAndWhen) {
  Recorder recorder;
  recorder.add(Direction::to_reader, Bytes{0x7F, 0x00}, kStart);
  recorder.add(Direction::from_reader, Bytes{0xAB}, kStart + std::chrono::microseconds(1500));
  recorder.note("reader silent", kStart + milliseconds(2000));
  const auto lines = lines_of(recorder.text());
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[0], "# uhf recording 1");
  EXPECT_THAT(lines[1], testing::MatchesRegex("# begins ....-..-..T..:..:..[.]......[-+]..:.. [0-9]+[.]......"));
  EXPECT_EQ(lines[2], "0.000000 > 7F00");
  EXPECT_EQ(lines[3], "0.001500 < AB");
  EXPECT_EQ(lines[4], "# 2.000000 reader silent");
}

TEST(LineRecorder, IsEmptyAtTheBeginning) { EXPECT_EQ(Recorder().text(), "# uhf recording 1\n"); }

TEST(LineRecorder, TheOldestGoesWhenItIsFullAndNoPieceIsTorn) {
  constexpr std::size_t kSize = 1000;
  for (std::size_t length = 1; length < 60; ++length) {
    Recorder recorder(kSize);
    for (int i = 0; i < 500; ++i) {
      recorder.add(Direction::to_reader, Bytes(length, static_cast<std::uint8_t>(i)), kStart + milliseconds(i));
    }
    const auto lines = lines_of(recorder.text());
    ASSERT_EQ(lines.size(), 2 + kSize / (length + 13)) << length;
    for (std::size_t i = 2; i < lines.size(); ++i) {
      const auto number = 500 - (lines.size() - i);
      std::ostringstream expected;
      expected << " > ";
      for (std::size_t byte = 0; byte < length; ++byte) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned>(number % 256));
        expected << digits;
      }
      ASSERT_TRUE(lines[i].ends_with(expected.str())) << length << ": " << lines[i];
    }
  }
}

TEST(LineRecorder, TheLatestCanBeHadAlone) {
  Recorder recorder;
  for (int i = 0; i < 100; ++i) {
    recorder.add(Direction::to_reader, Bytes(7), kStart + milliseconds(i));
  }
  EXPECT_EQ(lines_of(recorder.text(200)).size(), 2U + 10U);
  EXPECT_TRUE(lines_of(recorder.text(200)).at(2).starts_with("0.000000 >")) << "it has a beginning of its own";
  EXPECT_EQ(lines_of(recorder.text(0)).size(), 1U);
}

// While another thread copies a big one, again and again.
TEST(LineRecorder, ANoteThatIsLeftOutIsSaidWhereTheNextOneStands) {
  constexpr std::size_t kSize = 64U << 20U;
  Recorder recorder(kSize);
  for (int i = 0; i < 4; ++i) {
    recorder.add(Direction::to_reader, Bytes(kSize / 4 - 100), kStart);
  }
  std::atomic<bool> is_over = false;
  std::thread reader([&] {
    while (!is_over) {
      recorder.text(0);
    }
  });
  const auto deadline = Clock::now() + std::chrono::seconds(20);
  for (int slow = 0; slow < 3 && Clock::now() < deadline;) {
    const auto before = Clock::now();
    recorder.note("a note", kStart);
    slow += Clock::now() - before >= milliseconds(1) ? 1 : 0;
  }
  is_over = true;
  reader.join();
  recorder.note("the last", kStart);
  const auto lines = lines_of(recorder.text(1000));
  EXPECT_THAT(lines, testing::Contains("# 0.000000 " + std::string(kNotesMissing)));
  EXPECT_EQ(lines.back(), "# 0.000000 the last");
}

TEST(LineRecorder, ThreadsMayAddAndReadAtTheSameTime) {
  Recorder recorder(2000);
  std::thread one([&] {
    for (int i = 0; i < 2000; ++i) {
      recorder.add(Direction::to_reader, Bytes(static_cast<std::size_t>(i % 50), 1));
    }
  });
  std::thread two([&] {
    for (int i = 0; i < 2000; ++i) {
      recorder.note("a note");
    }
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_TRUE(recorder.text().starts_with("# uhf recording 1\n"));
  }
  one.join();
  two.join();
}

}  // namespace
}  // namespace line::test
