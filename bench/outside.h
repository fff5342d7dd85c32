// achost as a process of its own at a reader's line, for benches that look at it from outside.
#pragma once

#include <poll.h>
#include <sys/types.h>

#include <array>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "uhfsim/field.h"
#include "uhfsim/pty_link.h"
#include "uhfsim/reader.h"

// A reader that is done with a command as soon as it has it.
class Reader {
 public:
  explicit Reader(int tags) { set_tags(tags); }

  // So many tags in its field from now on.
  void set_tags(int tags);

  const std::string& path() const { return link_.path(); }

  pollfd line() const { return {.fd = link_.fd(), .events = POLLIN, .revents = 0}; }

  // Answers what has come; true when that was an inventory.
  bool answer();

  // Bytes of the answer to an inventory.
  std::size_t answer_size();

 private:
  uhfsim::PtyLink link_;
  uhfsim::Field field_;
  uhfsim::Reader engine_{field_, {}};
};

// Answers on both lines until the time is over.
void serve(Reader& first, Reader& second, std::chrono::steady_clock::time_point until);

constexpr std::array<unsigned char, 7> kInventoryCommand{0x7F, 0x00, 0x22, 0x00, 0x00, 0x22, 0x7E};

// Another process on the reader's line, until the object's end.
class Process {
 public:
  // achost, polling every 10 ms, with what it prints thrown away.
  Process(const std::string& program, const std::string& state, const std::string& port,
          const std::vector<std::string>& options = {});
  // A program with its arguments, with what it prints thrown away.
  explicit Process(std::vector<std::string> words);
  // A copy of this one that does that work, which never returns.
  explicit Process(void (*work)(const std::string& port, std::size_t answer_size), const std::string& port,
                   std::size_t answer_size);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Seconds of a core so far.
  double cpu() const;

  // The same for its threads that live, by name.
  std::map<std::string, double> cpu_of_threads() const;

  // kB.
  double resident_memory() const;

 private:
  pid_t id_ = 0;
};
