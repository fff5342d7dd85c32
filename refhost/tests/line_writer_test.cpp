#include "refhost/line_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

// A pipe that nobody reads until he is asked to.
class Pipe {
 public:
  Pipe() {
    std::signal(SIGPIPE, SIG_IGN);  // as the program does
    EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0);
  }
  ~Pipe() { close_reader(); }  // a write that hangs has the other end, for good
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int writer() const { return ends_[1]; }

  void close_reader() { close(std::exchange(ends_[0], -1)); }

  // All that comes, up to the text.
  std::string read_until(const std::string& text) const {
    std::string seen;
    char next = 0;
    while (!seen.ends_with(text)) {
      if (read(ends_[0], &next, 1) != 1) {
        return seen + " (over)";
      }
      seen += next;
    }
    return seen;
  }

  // What follows the text on its line.
  std::string read_until_end_of(const std::string& text) const {
    read_until(text);
    return read_until("\n");
  }

 private:
  std::array<int, 2> ends_{-1, -1};
};

std::string gap(std::uint64_t lost) { return "lost " + std::to_string(lost) + "\n"; }

TEST(LineWriter, WritesLinesInTheirOrder) {
  const Pipe pipe;
  LineWriter writer(pipe.writer(), "lines", {.gap = gap});
  writer.put("one\n");
  writer.put("two\n");
  EXPECT_TRUE(writer.drain(kPatience));
  EXPECT_EQ(pipe.read_until("two\n"), "one\ntwo\n");
  EXPECT_EQ(writer.lost(), 0U);
}

TEST(LineWriter, NeverWaitsForWhomeverReads) {
  const Pipe pipe;
  LineWriter writer(pipe.writer(), "lines", {.gap = gap});
  const std::string line(1000, 'x');
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 2000; ++i) {  // 2 MB: more than the pipe and the bound take
    writer.put(line + "\n");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kPatience / 2);
  EXPECT_FALSE(writer.drain(std::chrono::milliseconds(10)));
  EXPECT_GT(writer.lost(), 1000U);
}

TEST(LineWriter, SaysHowManyLinesAreMissingAndGoesOn) {
  const Pipe pipe;
  LineWriter writer(pipe.writer(), "lines", {.bound = 100, .gap = gap});
  const std::string block(65536, '.');
  writer.put("first\n");
  ASSERT_TRUE(writer.drain(kPatience));
  // Fills the pipe but for what "first" takes, so that the writer's thread hangs in the next line.
  ASSERT_EQ(fcntl(pipe.writer(), F_SETFL, O_NONBLOCK), 0);
  while (write(pipe.writer(), block.data(), 1) == 1) {
  }
  for (int i = 0; i < 20; ++i) {
    writer.put("a line of twenty...\n");
  }
  EXPECT_GT(writer.lost(), 0U);
  const std::uint64_t lost = writer.lost();
  EXPECT_TRUE(pipe.read_until("first\n").starts_with("first\n"));
  // The writer may have met the full pipe once more in between: then two lines say it.
  std::uint64_t said = 0;
  while (said < lost) {
    said += std::stoull(pipe.read_until_end_of("lost "));
  }
  EXPECT_EQ(said, lost);
  writer.put("last\n");
  EXPECT_EQ(pipe.read_until("last\n"), "last\n");
}

TEST(LineWriter, TellsOnceWhyItCannotWrite) {
  Pipe pipe;
  Recorder<int> reasons;
  LineWriter writer(pipe.writer(), "lines", {.gap = gap, .on_failure = [&](int reason) { reasons.add(reason); }});
  pipe.close_reader();
  writer.put("one\n");
  EXPECT_EQ(reasons.wait_for(1), std::vector<int>{EPIPE});
  writer.put("two\n");
  EXPECT_TRUE(writer.drain(kPatience));
  EXPECT_EQ(reasons.wait_for(1), std::vector<int>{EPIPE});
}

TEST(LineWriter, EndsWhileAWriteHangs) {
  const Pipe pipe;
  {
    LineWriter writer(pipe.writer(), "lines", {.gap = gap});
    writer.put(std::string(200'000, 'x') + "\n");
    writer.put("never\n");
  }
  SUCCEED();  // the destructor has come back
}

TEST(WriteIfTaken, WritesNothingToAFullPipe) {
  const Pipe pipe;
  write_if_taken(pipe.writer(), "taken\n");
  EXPECT_EQ(pipe.read_until("taken\n"), "taken\n");
  ASSERT_EQ(fcntl(pipe.writer(), F_SETFL, O_NONBLOCK), 0);
  while (write(pipe.writer(), "x", 1) == 1) {
  }
  ASSERT_EQ(fcntl(pipe.writer(), F_SETFL, 0), 0);
  write_if_taken(pipe.writer(), "not taken\n");  // comes back
}

}  // namespace
}  // namespace refhost::test
