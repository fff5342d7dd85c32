#include "recording.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "failure.h"
#include "uhfsim/text.h"

namespace uhfctl {

namespace {

constexpr const char* kFirstLine = "# uhf recording 1";
constexpr double kLongest = 1e9;  // seconds, which every clock can count

int digit_of(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const auto lower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

Piece parse_line(const std::string& line, const std::string& where) {
  std::istringstream words(line);
  double at = -1;
  std::string direction;
  std::string digits;
  words >> at >> direction;
  std::getline(words, digits);
  if (at < 0 || (direction != "<" && direction != ">")) {
    throw Failure(kUsage, where + ": expected SECONDS, < or >, and bytes in hexadecimal");
  }
  if (at > kLongest) {
    throw Failure(kUsage, where + ": a recording is no longer than 1000000000 seconds");
  }
  return {.at = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::duration<double>(at)),
          .direction = direction == ">" ? Direction::to_reader : Direction::from_reader,
          .bytes = parse_hex(digits, where)};
}

}  // namespace

Recorder::Recorder(const std::filesystem::path& file) : out_(file, achost::OutputFile::Form::growing) {
  out_.write(std::string(kFirstLine) + '\n');
}

void Recorder::add(Clock::time_point at, Direction direction, std::span<const unsigned char> bytes) {
  begin_ = begin_.value_or(at);
  char time[32];
  std::snprintf(time, sizeof time, "%.6f", std::chrono::duration<double>(at - *begin_).count());
  out_.write(time + std::string(direction == Direction::to_reader ? " > " : " < ") + uhfsim::hex_of(bytes) + '\n');
  ++pieces_;
}

void Recorder::close() { out_.close(); }

bool is_recording(const std::string& text) { return text.starts_with(kFirstLine); }

std::vector<Piece> parse_recording(const std::string& text, const std::string& name) {
  if (!is_recording(text)) {
    throw Failure(kUsage, name + " is no recording: its first line is not \"" + kFirstLine + "\"");
  }
  std::vector<Piece> pieces;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    if (!line.empty() && line.front() != '#') {
      pieces.push_back(parse_line(line, name + ":" + std::to_string(number)));
    }
  }
  return pieces;
}

std::vector<Piece> read_recording(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  if (!in) {
    throw Failure(kUsage, file.string() + " cannot be read: " + std::strerror(errno));
  }
  return parse_recording(text.str(), file.string());
}

std::vector<unsigned char> parse_hex(const std::string& text, const std::string& name) {
  std::vector<unsigned char> bytes;
  int high = -1;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (high < 0 && (std::isspace(static_cast<unsigned char>(c)) != 0 || c == ',' || c == ':')) {
      continue;
    }
    if (high < 0 && c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
      ++i;
      continue;
    }
    const int digit = digit_of(c);
    if (digit < 0) {
      throw Failure(kUsage, name + ": \"" + std::string(1, c) + "\" is no hexadecimal digit");
    }
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<unsigned char>(high * 16 + digit));
      high = -1;
    }
  }
  if (high >= 0) {
    throw Failure(kUsage, name + ": an odd number of hexadecimal digits");
  }
  return bytes;
}

}  // namespace uhfctl
