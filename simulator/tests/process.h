#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "uhfsim/descriptor.h"

namespace uhfsim::testing {

/// A program run as a second process with pipes for its standard streams; killed at the end if it still runs.
class Process {
 public:
  /// Starts the program; a failure fails the test. Its standard input is a pipe, or the given descriptor.
  Process(const std::string& program, std::vector<std::string> arguments, int input = -1);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void write(const std::string& text) const;
  void close_input() { input_ = Descriptor(); }
  /// Sends a signal; fails the test, and signals nothing, when the program has ended.
  void signal(int number);

  /// One line without its end, waiting up to twenty seconds; what there is when the stream ends or nothing comes.
  std::string read_line() { return line(output_.get()); }
  std::string read_error_line() { return line(errors_.get()); }

  /// All that is left of a stream that ends.
  std::string read_all() { return rest(output_.get()); }
  std::string read_all_errors() { return rest(errors_.get()); }

  /// Waits for its end: the exit status, or minus the number of the signal that ended it.
  int wait();

  /// Its number, while it runs.
  pid_t id() const { return pid_; }

  /// Whether it is still running now.
  bool running();

 private:
  static std::string line(int fd);
  static std::string rest(int fd);
  void ended(int status);

  Descriptor input_, output_, errors_;
  pid_t pid_ = -1;
  int status_ = 0;
};

}  // namespace uhfsim::testing
