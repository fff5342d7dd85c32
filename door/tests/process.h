// Programs run as processes of their own.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace achost::test {

struct Result {
  int status = -1;  // exit status; -1 when a signal ended it
  std::string out;
  std::string err;
};

enum class Output { pipe, terminal };

// achost with these arguments. Standard output is a pipe, or a pseudo-terminal, standard error a file. A process that a
// test leaves behind is killed.
class Achost {
 public:
  explicit Achost(std::vector<std::string> arguments, Output output = Output::pipe)
      : Achost(ACHOST, std::move(arguments), output) {}
  Achost(const std::string& program, std::vector<std::string> arguments, Output output = Output::pipe);  // absolute
  ~Achost();
  Achost(const Achost&) = delete;
  Achost& operator=(const Achost&) = delete;

  pid_t pid() const { return pid_; }

  // Wait for the next line on standard output that is not empty, without its newline; empty at its end.
  std::string next_line();

  // Stop reading standard output.
  void close_output();

  void signal(int number) const;

  // Wait for its end; the output that next_line() has not taken.
  Result wait();

 private:
  pid_t pid_ = -1;
  int output_ = -1;  // our end of the pipe or the terminal
  int errors_ = -1;  // the file
  std::string pending_;
};

// Run achost, or another program, to its end.
Result achost(std::vector<std::string> arguments);
Result run_program(const std::string& program, std::vector<std::string> arguments);

}  // namespace achost::test
