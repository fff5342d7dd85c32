#include "held_host.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace held {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

bool comes_true(const std::function<bool()>& condition) {
  const auto deadline = steady_clock::now() + refhost::test::kPatience;
  while (!condition()) {
    if (steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

FullPipe::FullPipe() {
  EXPECT_EQ(pipe2(ends_.data(), O_NONBLOCK), 0);
  while (write(ends_[1], "x", 1) == 1) {
  }
  EXPECT_EQ(fcntl(ends_[1], F_SETFL, 0), 0);
}

FullPipe::~FullPipe() {
  close(ends_[0]);
  close(ends_[1]);
}

namespace {

// Of a thread that is stopped: whether it is in a call of the kernel, but for those of the allocator.
bool is_in_a_call(pid_t thread) {
  long call = -1;
  std::ifstream("/proc/" + std::to_string(thread) + "/syscall") >> call;
  const std::array allocator = {long{SYS_mmap}, long{SYS_munmap}, long{SYS_madvise}, long{SYS_mprotect}, long{SYS_brk}};
  return call >= 0 && std::ranges::find(allocator, call) == allocator.end();
}

}  // namespace

// What holds a thread up in earnest is a call of the kernel. Between two instructions of its own it may have a lock
// that it lets go a moment later, as the allocator's: it goes on then, and is stopped again.
StoppedThread::StoppedThread(pid_t thread) : thread_(thread) {
  EXPECT_EQ(ptrace(PTRACE_SEIZE, thread, nullptr, nullptr), 0);
  EXPECT_TRUE(comes_true([thread] {
    EXPECT_EQ(ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr), 0);
    int status = 0;
    EXPECT_EQ(waitpid(thread, &status, __WALL), thread);
    EXPECT_TRUE(WIFSTOPPED(status));
    if (is_in_a_call(thread)) {
      return true;
    }
    EXPECT_EQ(ptrace(PTRACE_CONT, thread, nullptr, nullptr), 0);
    return false;
  }));
}

StoppedThread::~StoppedThread() {
  if (thread_ > 0) {
    ptrace(PTRACE_DETACH, thread_, nullptr, nullptr);
  }
}

// A process does not end before its threads' ends are taken note of.
void StoppedThread::await_end() {
  EXPECT_TRUE(comes_true([this] {
    int status = 0;
    return waitpid(thread_, &status, __WALL | WNOHANG) == thread_ && !WIFSTOPPED(status);
  }));
  thread_ = -1;
}

HeldHost::HeldHost() {
  const std::string file = directory_.path() / "hold_ups";
  const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0 || ftruncate(fd, sizeof(HoldUps)) != 0) {
    throw std::runtime_error("cannot make " + file);
  }
  void* const memory = mmap(nullptr, sizeof(HoldUps), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (memory == MAP_FAILED) {
    throw std::runtime_error("cannot share " + file);
  }
  hold_ups_ = static_cast<HoldUps*>(memory);
}

HeldHost::~HeldHost() {
  host_.reset();
  munmap(hold_ups_, sizeof(HoldUps));
}

void HeldHost::start(const std::vector<std::string>& options, const std::string& redirection) {
  const std::string script = R"(LD_PRELOAD="$1" HOLD_UPS="$2"; export LD_PRELOAD HOLD_UPS; shift 2; exec "$@" )";
  std::vector<std::string> words = {"-c", script + redirection, "sh", HOLD_UPS_SO, directory_.path() / "hold_ups"};
  words.insert(words.end(), {ACHOST, "run", "--plugin", UHF_SO, "--state", state(), "--json", "--simulate",
                             "--interactive", "--set", "host.away_time=0"});
  words.insert(words.end(), options.begin(), options.end());
  host_.emplace("/bin/sh", std::move(words));
  ASSERT_TRUE(comes_true([this] {
    try {
      return !ask({{"command", "status"}}).at("plugin").is_null();
    } catch (const ac::ac_exception&) {  // nobody listens yet
      return false;
    }
  }));
}

void HeldHost::stall_disk(const std::string& path) {
  hold_ups_->path.fill('\0');
  path.copy(hold_ups_->path.data(), hold_ups_->path.size() - 1);
  hold_ups_->disk = true;
}

std::vector<std::pair<pid_t, std::string>> HeldHost::threads() const {
  std::vector<std::pair<pid_t, std::string>> found;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(host_->pid()) + "/task")) {
    std::ifstream comm(task.path() / "comm");
    std::string name;
    std::getline(comm, name);
    found.emplace_back(std::stoi(task.path().filename()), name);
  }
  std::ranges::sort(found);
  return found;
}

achost::Json HeldHost::ask(const achost::Json& request) const {
  achost::ControlClient client(state());
  client.send(request);
  return client.receive(refhost::test::kPatience);
}

}  // namespace held
