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

// achost with these arguments. Standard output is a pipe, standard error a file. A process that a test leaves behind is
// killed.
class Achost {
 public:
  explicit Achost(std::vector<std::string> arguments) : Achost(ACHOST, std::move(arguments)) {}
  Achost(const std::string& program, std::vector<std::string> arguments);  // by its absolute path
  ~Achost();
  Achost(const Achost&) = delete;
  Achost& operator=(const Achost&) = delete;

  pid_t pid() const { return pid_; }

  // Wait for the next line on standard output, without its newline; empty at its end.
  std::string next_line();

  // Stop reading standard output.
  void close_output();

  void signal(int number) const;

  // Wait for its end; the output that next_line() has not taken.
  Result wait();

 private:
  pid_t pid_ = -1;
  int output_ = -1;  // our end of the pipe
  int errors_ = -1;  // the file
  std::string pending_;
};

// Run achost, or another program, to its end.
Result achost(std::vector<std::string> arguments);
Result run_program(const std::string& program, std::vector<std::string> arguments);

}  // namespace achost::test
