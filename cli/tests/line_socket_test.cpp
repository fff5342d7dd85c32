#include "cli/line_socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <utility>
#include <vector>

namespace achost::test {
namespace {

TEST(LineReader, ALineThatHasBegunMustEndInTime) {
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  LineReader reader(ends[0], 100);
  std::string line;
  send_all(ends[1], "whole\nbegun");
  EXPECT_EQ(reader.next(line, std::chrono::milliseconds(10)), LineReader::Outcome::line);
  EXPECT_EQ(line, "whole");
  EXPECT_EQ(reader.next(line, std::chrono::milliseconds(10)), LineReader::Outcome::too_late);
  close(ends[1]);
  EXPECT_EQ(reader.next(line, std::chrono::milliseconds(10)), LineReader::Outcome::end);
  close(ends[0]);
}

TEST(LineReader, ALineMayBeAsLongAsItsBoundAndNoLonger) {
  for (const auto& [text, outcome] :
       std::vector<std::pair<std::string, LineReader::Outcome>>{{"12345\n", LineReader::Outcome::line},
                                                                {"123456\n", LineReader::Outcome::too_long},
                                                                {"123456", LineReader::Outcome::too_long}}) {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    send_all(ends[1], text);
    std::string line;
    EXPECT_EQ(LineReader(ends[0], 6).next(line, std::chrono::milliseconds(10)), outcome) << text;
    close(ends[0]);
    close(ends[1]);
  }
}

TEST(SendAll, GivesAPeerUpThatDoesNotRead) {
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  const timeval patience{.tv_sec = 0, .tv_usec = 10000};
  setsockopt(ends[0], SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  EXPECT_FALSE(send_all(ends[0], std::string(10 << 20, 'x')));
  close(ends[1]);
  EXPECT_FALSE(send_all(ends[0], "nobody is there")) << "and no signal";
  close(ends[0]);
}

}  // namespace
}  // namespace achost::test
