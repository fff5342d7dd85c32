#include "commands.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

void run(std::vector<std::string> words) {
  std::vector<char*> arguments;
  std::ranges::transform(words, std::back_inserter(arguments), [](std::string& word) { return word.data(); });
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t id = 0;
  int status = 0;
  if (posix_spawn(&id, arguments.front(), &actions, nullptr, arguments.data(), environ) != 0 ||
      waitpid(id, &status, 0) != id || status != 0) {
    throw std::runtime_error(words[0] + " " + words[1] + " failed");
  }
  posix_spawn_file_actions_destroy(&actions);
}
