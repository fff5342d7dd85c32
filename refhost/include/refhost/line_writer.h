// Output that never makes anybody wait.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace refhost {

// Writes lines to a descriptor, in order, on a thread of its own. What nobody takes is kept up to a bound; beyond that
// the newest line is dropped and counted, and once lines are taken again one of them says how many are missing. Any
// thread may call; no call waits for the output, but drain().
class LineWriter {
 public:
  static constexpr std::size_t kUsualBound = 256UL * 1024;  // bytes

  struct Options {
    std::size_t bound = kUsualBound;                       // of what waits, in bytes
    std::function<std::string(std::uint64_t lost)> gap;    // the line, with its newline, in place of so many lost ones
    std::function<void(int reason)> on_failure = nullptr;  // an errno; once, on the writer's thread; no line follows
  };

  // fd: not owned; not to be closed while a write to it may hang, which may outlive the writer. name: of the thread.
  LineWriter(int fd, std::string name, Options options);

  // What still waits is not written. Does not wait for a write that hangs: its thread ends after it.
  ~LineWriter();

  LineWriter(const LineWriter&) = delete;
  LineWriter& operator=(const LineWriter&) = delete;

  // Append text, which ends with a newline. Never throws: for lack of memory the line is lost, as at the bound.
  void put(std::string_view line) noexcept;

  // Wait until all is written; false when it is not after that time.
  bool drain(std::chrono::milliseconds longest);

  // How many lines were dropped since its making.
  std::uint64_t lost() const;

 private:
  struct State;
  std::shared_ptr<State> state_;  // the thread's too
};

// Write a line to a descriptor at once when it can be taken without waiting, else not at all: for a process that ends.
void write_if_taken(int fd, std::string_view line) noexcept;

}  // namespace refhost
