// What went over a line, with times and directions.
//
// A text file: the line "# uhf recording 1", then a line for each piece: seconds since the beginning, ">" (to the
// reader) or "<" (from it), and the bytes in hexadecimal. Lines that begin with "#" are notes.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cli/output_file.h"
#include "port.h"

namespace uhfctl {

struct Piece {
  std::chrono::microseconds at;
  Direction direction;
  std::vector<unsigned char> bytes;
};

class Recorder {
 public:
  // All throw achost::OutputError; the constructor also when the file is there already.
  explicit Recorder(const std::filesystem::path& file);

  // at: not before that of a piece before. The first begins the recording's time.
  void add(Clock::time_point at, Direction direction, std::span<const unsigned char> bytes);

  void close();

  int pieces() const { return pieces_; }

 private:
  achost::OutputFile out_;
  std::optional<Clock::time_point> begin_;
  int pieces_ = 0;
};

// Throws Failure kUsage that names the file and the line when it is no recording.
std::vector<Piece> read_recording(const std::filesystem::path& file);

// Whether the text begins as a recording does.
bool is_recording(const std::string& text);
std::vector<Piece> parse_recording(const std::string& text, const std::string& name);

// The bytes of hexadecimal digits; blanks, line ends, commas and "0x" between them are left out. Throws Failure kUsage.
std::vector<unsigned char> parse_hex(const std::string& text, const std::string& name);

}  // namespace uhfctl
