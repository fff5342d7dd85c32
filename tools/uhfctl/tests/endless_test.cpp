// A reader that does not stop sending.
#include <poll.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "recording.h"
#include "run.h"
#include "uhfsim/pty_link.h"

namespace uhfctl::testing {
namespace {

using ::testing::HasSubstr;
using namespace std::chrono_literals;

// Answers some commands as a reader with a tag does, and the next with bytes without end.
class EndlessReader {
 public:
  explicit EndlessReader(int answers) : answers_(answers), thread_([this] { run(); }) {}
  ~EndlessReader() {
    stop_ = true;
    thread_.join();
  }
  EndlessReader(const EndlessReader&) = delete;
  EndlessReader& operator=(const EndlessReader&) = delete;

  const std::string& path() const { return link_.path(); }
  bool floods() const { return floods_; }

 private:
  void run() {
    const auto power = parse_hex("7F01B700020A28EC7E", "test");
    const auto tag = parse_hex("7F02220007C80800ABCD951D257E", "test");
    const std::vector<unsigned char> header{0x7F};  // which the driver waits for the end of
    const std::vector<unsigned char> flood(1024, 0x41);
    while (!stop_) {
      pollfd line{.fd = link_.fd(), .events = POLLIN, .revents = 0};
      ::poll(&line, 1, 1);
      const auto command = link_.read();
      if (!command.empty()) {
        floods_ = answers_-- <= 0;
        link_.write(floods_ ? header : command[2] == 0xB7 ? power : tag);
      }
      if (floods_) {
        link_.write(flood);
      }
    }
  }

  uhfsim::PtyLink link_;
  int answers_;  // of its own thread
  std::atomic<bool> stop_ = false;
  std::atomic<bool> floods_ = false;
  std::thread thread_;  // last: it uses all above
};

class Endless : public WithReader, public ::testing::WithParamInterface<std::vector<std::string>> {
 protected:
  // How long the command may take beyond what it was told: an answer and a question, each cut off.
  static constexpr auto kLongest = 10s;
};

TEST_P(Endless, ReaderHoldsNoCommandUp) {
  const EndlessReader endless(0);
  auto words = GetParam();
  for (auto& word : words) {
    word = word.starts_with("@") ? file(word.substr(1)) : word;
  }
  words.insert(words.begin(), {"--port", endless.path(), "--timeout", "500"});
  const auto begin = std::chrono::steady_clock::now();
  const auto [status, out, err] = run(words);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, kLongest);
  EXPECT_THAT(status, ::testing::AnyOf(3, 4)) << out << err;
  EXPECT_THAT(out + err, ::testing::AnyOf(HasSubstr("does not end its answer"), HasSubstr("bytes come without end")));
}

INSTANTIATE_TEST_SUITE_P(Each, Endless,
                         ::testing::Values(std::vector<std::string>{"info"}, std::vector<std::string>{"power", "get"},
                                           std::vector<std::string>{"power", "set", "2000"},
                                           std::vector<std::string>{"region", "set", "KOREA"},
                                           std::vector<std::string>{"channels", "set", "0-3"},
                                           std::vector<std::string>{"sensitivity", "get"},
                                           std::vector<std::string>{"inventory", "--seconds", "1"},
                                           std::vector<std::string>{"record", "@r", "--seconds", "1"},
                                           std::vector<std::string>{"survey", "--power", "2000:3000:100", "--out",
                                                                    "@s.html"},
                                           std::vector<std::string>{"doctor"}),
                         [](const auto& test) { return test.param.front() + std::to_string(test.index); });

// What is under way when the flood begins ends when it is told to, with what it has.
TEST_F(Endless, ReaderHoldsNoCtrlCUp) {
  EndlessReader endless(50);
  uhfsim::testing::Process process(UHFCTL, {"--port", endless.path(), "inventory", "--seconds", "0"});
  while (!endless.floods()) {
    usleep(1000);
  }
  const auto begin = std::chrono::steady_clock::now();
  process.signal(SIGINT);
  EXPECT_THAT(process.read_all(), HasSubstr("ABCD"));
  EXPECT_EQ(process.wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
}

TEST_F(Endless, ReaderHoldsNoCtrlCUpInAQuestion) {
  EndlessReader endless(0);
  uhfsim::testing::Process process(UHFCTL, {"--port", endless.path(), "--timeout", "25500", "inventory"});
  while (!endless.floods()) {
    usleep(1000);
  }
  const auto begin = std::chrono::steady_clock::now();
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 4);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
}

TEST_F(Endless, ReaderHoldsNoSecondsUp) {
  EndlessReader endless(50);
  const auto begin = std::chrono::steady_clock::now();
  const auto [status, out, err] = run({"--port", endless.path(), "--timeout", "100", "inventory", "--seconds", "1"});
  EXPECT_THAT(out, HasSubstr("ABCD"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

TEST_F(Endless, SilenceHoldsNoCtrlCUp) {
  reader.faults().set("silence", 1);
  uhfsim::testing::Process process(UHFCTL, {"--port", reader.path(), "--timeout", "25500", "doctor"});
  while (reader.counters().commands == 0) {
    usleep(1000);
  }
  const auto begin = std::chrono::steady_clock::now();
  process.signal(SIGINT);
  process.wait();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

}  // namespace
}  // namespace uhfctl::testing
