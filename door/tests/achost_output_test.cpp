// achost whose output nobody reads.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <optional>
#include <thread>

#include "door/tests/run_fixture.h"

namespace achost::test {
namespace {

// A pipe that is full from the beginning: whoever writes to it without looking waits for ever.
class FullPipe {
 public:
  FullPipe() {
    EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0);
    while (write(ends_[1], "x", 1) == 1) {
    }
    EXPECT_EQ(fcntl(ends_[1], F_SETFL, 0), 0);
  }
  ~FullPipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;

  int writer() const { return ends_[1]; }

 private:
  std::array<int, 2> ends_{-1, -1};
};

bool wait_until(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

class AchostOutput : public AchostRun {
 protected:
  void TearDown() override {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }

  // With both outputs, or standard error alone, going to the full pipe.
  void start(std::vector<std::string> words, bool output_is_blocked) {
    words.insert(words.begin(), ACHOST);
    std::vector<char*> arguments;
    for (auto& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, full_.writer(), STDERR_FILENO);
    if (output_is_blocked) {
      posix_spawn_file_actions_adddup2(&actions, full_.writer(), STDOUT_FILENO);
    }
    ASSERT_EQ(posix_spawn(&pid_, ACHOST, &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
  }

  // Until somebody can ask it.
  bool runs() const {
    return wait_until([this] { return std::filesystem::exists(state() + "/control.sock"); });
  }

  // Its exit status, once it has ended.
  std::optional<int> ended() {
    int status = 0;
    if (!wait_until([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
      return std::nullopt;
    }
    pid_ = -1;
    return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
  }

  pid_t pid_ = -1;

 private:
  FullPipe full_;
};

TEST_F(AchostOutput, ThatNobodyTakesKeepsNobodyFromEndingIt) {
  start(simulated("good"), true);
  ASSERT_TRUE(runs());
  kill(pid_, SIGTERM);
  EXPECT_EQ(ended(), 0);
}

TEST_F(AchostOutput, ThatNobodyTakesKeepsTheWatchdogFromNothing) {
  start(simulated("silent", {"--watchdog-limit", "0.2"}), true);
  EXPECT_EQ(ended(), 7);
}

TEST_F(AchostOutput, ThatNobodyTakesKeepsNoLineFromSwitching) {
  start(simulated("good", {"--debug"}), true);
  ASSERT_TRUE(runs());
  ASSERT_EQ(achost({"gpio", "set", "3", "1", "--state", state()}).status, 0);
  EXPECT_TRUE(wait_until([this] {
    return achost({"gpio", "list", "--state", state()}).out.find("line 3 is 1\n") != std::string::npos;
  }));
}

TEST_F(AchostOutput, ThatSomebodyTakesIsWholeAtTheEnd) {
  Achost host(simulated("good"));
  const std::string first = host.next_line();
  EXPECT_NE(first, "");
  host.signal(SIGTERM);
  const auto result = host.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.out.find("the door opened 0 times\n"), std::string::npos) << result.out;
}

}  // namespace
}  // namespace achost::test
