#include "process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <array>
#include <csignal>

namespace uhfsim::testing {

namespace {

struct Pipe {
  Descriptor read, write;
};

Pipe make_pipe() {
  std::array<int, 2> ends{-1, -1};
  EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

// The next byte, or false when the stream has ended or nothing comes for twenty seconds.
bool next(int fd, char& c) {
  pollfd awaited{fd, POLLIN, 0};
  return poll(&awaited, 1, 20'000) == 1 && read(fd, &c, 1) == 1;
}

}  // namespace

Process::Process(const std::string& program, std::vector<std::string> arguments, int input) {
  arguments.insert(arguments.begin(), program);
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  Pipe in = make_pipe(), out = make_pipe(), err = make_pipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input < 0 ? in.read.get() : input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out.write.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.write.get(), STDERR_FILENO);
  EXPECT_EQ(posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ), 0) << program;
  posix_spawn_file_actions_destroy(&actions);
  input_ = std::move(in.write);
  output_ = std::move(out.read);
  errors_ = std::move(err.read);
}

Process::~Process() {
  if (!running()) return;
  kill(pid_, SIGKILL);
  wait();
}

void Process::write(const std::string& text) const {
  EXPECT_EQ(::write(input_.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void Process::signal(int number) {
  // Never kill() without a child of our own: 0 and -1 stand for whole groups of processes.
  ASSERT_TRUE(running()) << "the program has ended by itself, with status " << status_;
  EXPECT_EQ(kill(pid_, number), 0);
}

int Process::wait() {
  int status = 0;
  if (pid_ > 0 && waitpid(pid_, &status, 0) == pid_) ended(status);
  return status_;
}

bool Process::running() {
  int status = 0;
  if (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == pid_) ended(status);
  return pid_ > 0;
}

void Process::ended(int status) {
  pid_ = -1;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string Process::line(int fd) {
  std::string text;
  for (char c = 0; next(fd, c) && c != '\n';) text += c;
  return text;
}

std::string Process::rest(int fd) {
  std::string text;
  for (char c = 0; next(fd, c);) text += c;
  return text;
}

}  // namespace uhfsim::testing
