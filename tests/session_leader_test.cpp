// achost as a service manager starts it: the leader of a session without a controlling terminal, which the next
// terminal that somebody opens may become, with its signals.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "door/tests/process.h"
#include "refhost/tests/support.h"
#include "uhfsim/simulated_reader.h"

using achost::test::Achost;
using testing::HasSubstr;

namespace {

namespace fs = std::filesystem;

// With the line, or with the port in the plug-in's own hands.
class SessionLeader : public testing::TestWithParam<const char*> {
 protected:
  SessionLeader() { plug_in(); }

  bool is_direct() const { return GetParam() == std::string("--direct"); }
  fs::path port() const { return directory_.path() / "reader"; }

  void plug_in() {
    reader_ = std::make_unique<uhfsim::SimulatedReader>(uhfsim::Options{.seed = 3});
    reader_->field().add({.epc = {0xE2, 0x00, 0x68, 0x0A, 0x12, 0x34}});
    fs::remove(port());
    fs::create_symlink(reader_->path(), port());
  }

  Achost start(const std::string& at) const {
    std::vector<std::string> words{
        ACHOST, "run", "--json", "--plugin", UHF_SO, "--state", directory_.path() / "state", "--port", at};
    if (is_direct()) {
      words.emplace_back("--direct");
    }
    return Achost(SETSID, words);
  }

  static bool wait_for(Achost& host, const std::string& what) {
    for (std::string line; !(line = host.next_line()).empty();) {
      if (line.find(what) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

  refhost::test::TemporaryDirectory directory_;
  std::unique_ptr<uhfsim::SimulatedReader> reader_;
};

// The device of a process's controlling terminal, 0 for none; and its session.
struct Session {
  dev_t terminal = 0;
  pid_t id = 0;
};

Session session_of(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  std::istringstream words(text.substr(text.rfind(')') + 1));
  std::string state;
  pid_t parent = 0;
  pid_t group = 0;
  Session session;
  unsigned terminal = 0;
  words >> state >> parent >> group >> session.id >> terminal;
  session.terminal = makedev((terminal >> 8U) & 0xFFFU, (terminal & 0xFFU) | ((terminal >> 12U) & 0xFFF00U));
  return session;
}

// The other end of a terminal that nobody has made raw, at which somebody types what ends programs.
class Typist {
 public:
  Typist() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    grantpt(master_);
    unlockpt(master_);
    path_ = ptsname(master_);
    client_ = open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    thread_ = std::thread([this] {
      while (!over_) {
        [[maybe_unused]] const auto count = write(master_, "\x03\x1C", 2);
        std::this_thread::yield();
      }
    });
  }
  ~Typist() {
    over_ = true;
    thread_.join();
    close(client_);
    close(master_);
  }

  const std::string& path() const { return path_; }

 private:
  const int master_;
  int client_ = -1;
  std::string path_;
  std::atomic<bool> over_ = false;
  std::thread thread_;
};

}  // namespace

TEST_P(SessionLeader, HasNoReaderAsItsControllingTerminal) {
  auto host = start(port());
  ASSERT_TRUE(wait_for(host, "identification"));
  const auto session = session_of(host.pid());
  ASSERT_EQ(session.id, host.pid()) << "it leads no session";
  EXPECT_NE(session.terminal, 0U);
  struct stat reader {};
  ASSERT_EQ(stat(reader_->path().c_str(), &reader), 0);
  EXPECT_NE(session.terminal, reader.st_rdev);
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_P(SessionLeader, IsNotEndedByWhatAReaderSends) {
  for (int i = 0; i < 5; ++i) {
    const Typist typist;
    auto host = start(typist.path());
    const auto result = host.wait();
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_THAT(result.err, HasSubstr("did not start"));
  }
}

TEST_P(SessionLeader, IsNotEndedByAHangUpButByWhatItMeans) {
  for (int i = 0; i < 5; ++i) {
    plug_in();
    auto host = start(port());
    ASSERT_TRUE(wait_for(host, "identification"));
    fs::remove(port());
    reader_.reset();
    if (is_direct()) {
      const auto result = host.wait();
      EXPECT_EQ(result.status, 8) << result.err;
    } else {
      EXPECT_TRUE(wait_for(host, "\"gone\""));
      plug_in();
      EXPECT_TRUE(wait_for(host, "\"answering\""));
      host.signal(SIGTERM);
      EXPECT_EQ(host.wait().status, 0);
    }
  }
}

// A program that the plug-in starts is not to hold the port, nor to read from it.
TEST_P(SessionLeader, OpensThePortForNoChild) {
  auto host = start(port());
  ASSERT_TRUE(wait_for(host, "identification"));
  int held = 0;
  int inherited = 0;
  const fs::path process = "/proc/" + std::to_string(host.pid());
  for (const auto& entry : fs::directory_iterator(process / "fd")) {
    if (std::error_code failure; fs::read_symlink(entry.path(), failure) != reader_->path()) {
      continue;
    }
    std::ifstream info(process / "fdinfo" / entry.path().filename());
    for (std::string line; std::getline(info, line);) {
      if (line.starts_with("flags:")) {
        ++held;
        inherited += (std::stol(line.substr(6), nullptr, 8) & O_CLOEXEC) == 0 ? 1 : 0;
      }
    }
  }
  EXPECT_GT(held, 0);
  // The plug-in's own descriptor is kept from children when they start.
  EXPECT_EQ(inherited, is_direct() ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Ways, SessionLeader, testing::Values("", "--direct"),
                         [](const auto& way) { return *way.param == 0 ? "Line" : "Direct"; });
