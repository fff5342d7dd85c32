#include "door/run/start_anew.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace achost {
namespace {

// A plug-in's descriptors stay open in what it starts: its port would be in use by the very process that opens it
// again.
void let_go_descriptors() {
  std::error_code unknown;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", unknown)) {
    if (const int fd = std::stoi(entry.path().filename()); fd > STDERR_FILENO) {
      fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
  }
}

}  // namespace

void start_anew() {
  let_go_descriptors();
  std::vector<std::string> words;
  std::ifstream line("/proc/self/cmdline", std::ios::binary);
  for (std::string word; std::getline(line, word, '\0');) {
    words.push_back(word);
  }
  std::vector<char*> arguments;
  for (auto& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  // By its name, which the process then has; a program that was replaced meanwhile has none any more.
  constexpr const char* kSelf = "/proc/self/exe";
  std::error_code unknown;
  const auto program = std::filesystem::read_symlink(kSelf, unknown);
  execv(program.c_str(), arguments.data());
  execv(kSelf, arguments.data());
}

}  // namespace achost
