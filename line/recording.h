// What a recording says: the text that Recorder::text() writes, and uhfctl.
#pragma once

#include <chrono>
#include <istream>
#include <optional>
#include <stdexcept>
#include <string>

#include "line/bytes.h"
#include "line/recorder.h"

namespace line {

// A line of a recording.
struct Recorded {
  std::chrono::microseconds at{0};       // since the recording's beginning
  std::optional<Direction> direction{};  // of the bytes; nothing: it is a note
  Bytes bytes{};
  std::string note{};
};

// When a recording began.
struct Beginning {
  std::chrono::sys_time<std::chrono::microseconds> wall;
  bool is_exact = false;                             // else to the second
  std::optional<std::chrono::microseconds> clock{};  // since the machine's start
};

// Names the line that is wrong, and the way out.
class RecordingError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Reads a recording line by line; it holds one of them. Every operation throws RecordingError.
class RecordingReader {
 public:
  static constexpr std::chrono::seconds kLongest{1'000'000'000};
  static constexpr std::size_t kLongestLine = 8U << 20U;  // bytes; four times what the recorder writes

  // name: of the file, for the errors.
  RecordingReader(std::istream& in, std::string name);

  // The next piece or note; nothing at the end. Comments are left out.
  std::optional<Recorded> next();

  // As far as what was read so far says; a recording has it before its first piece, or not at all.
  const std::optional<Beginning>& beginning() const { return beginning_; }

 private:
  bool next_line();
  std::optional<Recorded> comment();
  Recorded piece() const;
  [[noreturn]] void refuse(const std::string& why) const;

  std::istream& in_;
  const std::string name_;
  std::string line_;
  std::size_t number_ = 0;  // of the line
  std::optional<Beginning> beginning_;
};

}  // namespace line
