#include "door/tests/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

extern char** environ;

namespace achost::test {
namespace {

std::string read_rest(int fd) {
  std::string text;
  std::array<char, 4096> buffer{};
  for (ssize_t length = 0; (length = read(fd, buffer.data(), buffer.size())) > 0;) {
    text.append(buffer.data(), static_cast<std::size_t>(length));
  }
  return text;
}

pid_t spawn(const std::string& program, std::vector<std::string> arguments, int output, int errors) {
  arguments.insert(arguments.begin(), program);
  std::vector<char*> argv;
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  pid_t pid = -1;
  const int failure = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    throw std::runtime_error("cannot start " + program);
  }
  return pid;
}

// The end to read, and the one to write.
std::array<int, 2> open_output(Output output) {
  std::array<int, 2> ends{};
  if (output == Output::pipe ? pipe2(ends.data(), O_CLOEXEC) != 0
                             : openpty(ends.data(), &ends[1], nullptr, nullptr, nullptr) != 0) {
    throw std::runtime_error("no pipe or terminal");
  }
  for (const int end : ends) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
  }
  return ends;
}

}  // namespace

Achost::Achost(const std::string& program, std::vector<std::string> arguments, Output output)
    : errors_(memfd_create("errors", MFD_CLOEXEC)) {
  const auto ends = open_output(output);
  output_ = ends[0];
  pid_ = spawn(program, std::move(arguments), ends[1], errors_);
  close(ends[1]);
}

Achost::~Achost() {
  if (pid_ > 0) {
    signal(SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close_output();
  close(errors_);
}

std::string Achost::next_line() {
  std::array<char, 4096> buffer{};
  for (;;) {
    pending_.erase(0, pending_.find_first_not_of('\n'));
    if (pending_.find('\n') != std::string::npos) {
      break;
    }
    const ssize_t length = read(output_, buffer.data(), buffer.size());
    if (length <= 0) {
      return "";
    }
    pending_.append(buffer.data(), static_cast<std::size_t>(length));
  }
  const auto end = pending_.find('\n');
  std::string line = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return line;
}

void Achost::close_output() {
  if (output_ >= 0) {
    close(std::exchange(output_, -1));
  }
}

void Achost::signal(int number) const {
  ASSERT_GT(pid_, 0) << "no process to signal";  // -1 would be every process there is
  kill(pid_, number);
}

Result Achost::wait() {
  Result result;
  result.out = std::move(pending_);
  if (output_ >= 0) {
    result.out += read_rest(output_);
  }
  int status = 0;
  waitpid(std::exchange(pid_, -1), &status, 0);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  lseek(errors_, 0, SEEK_SET);
  result.err = read_rest(errors_);
  EXPECT_EQ(result.err.find("Sanitizer"), std::string::npos) << result.err;
  return result;
}

Result achost(std::vector<std::string> arguments) { return Achost(std::move(arguments)).wait(); }

Result run_program(const std::string& program, std::vector<std::string> arguments) {
  return Achost(program, std::move(arguments)).wait();
}

}  // namespace achost::test
