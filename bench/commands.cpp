#include "commands.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "table.h"

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
    throw std::runtime_error(words[0] + " " + words[1] + " " + words[2] + " failed");
  }
  posix_spawn_file_actions_destroy(&actions);
}

namespace {

constexpr int kTurnsOfACommand = 3;

// All fields of all rows, and nothing done with them.
std::size_t walk(const std::filesystem::path& file, const char* question) {
  const SQLite::Database database(file, SQLite::OPEN_READONLY);
  SQLite::Statement query(database, question);
  std::size_t size = 0;
  while (query.executeStep()) {
    for (int i = 0; i < query.getColumnCount(); ++i) {
      size += static_cast<std::size_t>(query.getColumn(i).getBytes());
    }
  }
  return size;
}

}  // namespace

void compare(std::vector<Command> commands, const std::filesystem::path& file, const std::string& what,
             const char* question) {
  std::vector<double> bare;
  for (int i = 0; i < kTurnsOfACommand; ++i) {
    bare.push_back(milliseconds([&] { walk(file, question); }));
    for (auto& command : commands) {
      command.times.push_back(milliseconds([&] { run(command.words); }));
    }
  }
  for (const auto& command : commands) {
    print_row(command.what, number(median(command.times)) + " ms", ratio_of(command.times, bare));
  }
  print_row("bare SQLite: " + what, number(median(bare)) + " ms");
}
