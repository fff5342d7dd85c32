#include "door/run/start_anew.h"

#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace achost {

void start_anew() {
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
