#include "line/recording.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <string_view>
#include <utility>

namespace line {
namespace {

using std::chrono::microseconds;

constexpr std::string_view kBlanks = " \t\r";

// The next word, taken out of the text.
std::string_view take_word(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const auto word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return word;
}

// Seconds; nothing when it is no number. Longer ones than a recording is are kept as they are, to be refused.
std::optional<double> seconds_of(std::string_view word) {
  double seconds = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), seconds);
  const bool is_number = error == std::errc() && end == word.data() + word.size() && std::isfinite(seconds);
  return is_number && seconds >= 0 ? std::optional(seconds) : std::nullopt;
}

microseconds duration_of(double seconds) { return microseconds(std::llround(seconds * 1e6)); }

bool is_too_long(double seconds) { return seconds > std::chrono::duration<double>(RecordingReader::kLongest).count(); }

int digit_of(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// "2026-01-31T08:02:11.204567+01:00" or "...:11Z".
std::optional<Beginning> beginning_of(std::string_view words) {
  const std::string time(take_word(words));
  std::tm parts{};
  const char* rest = strptime(time.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
  if (rest == nullptr) {
    return std::nullopt;
  }
  double fraction = 0;
  const char* const end = time.c_str() + time.size();
  const bool is_exact = *rest == '.';
  if (is_exact) {
    rest = std::from_chars(rest, end, fraction, std::chars_format::fixed).ptr;
  }
  int hours = 0;
  int minutes = 0;
  const bool is_east = *rest == '+';
  if (*rest == '+' || *rest == '-') {
    const auto after_hours = std::from_chars(rest + 1, end, hours).ptr;
    minutes = after_hours < end && *after_hours == ':' ? 0 : -1;
    if (minutes < 0 || std::from_chars(after_hours + 1, end, minutes).ptr != end || hours > 24 || minutes > 60) {
      return std::nullopt;
    }
  } else if (std::string_view(rest, end) != "Z") {
    return std::nullopt;
  }
  const long zone = (hours * 60L + minutes) * 60 * (is_east ? 1 : -1);
  Beginning beginning{.wall = std::chrono::sys_time<microseconds>(std::chrono::seconds(timegm(&parts) - zone)),
                      .is_exact = is_exact};
  beginning.wall += duration_of(fraction);
  if (const auto clock = seconds_of(take_word(words)); clock.has_value() && !is_too_long(*clock)) {
    beginning.clock = duration_of(*clock);
  }
  return beginning;
}

}  // namespace

RecordingReader::RecordingReader(std::istream& in, std::string name) : in_(in), name_(std::move(name)) {
  if (!next_line() || !line_.starts_with(kRecording)) {
    throw RecordingError(name_ + " is no recording: its first line is not \"" + std::string(kRecording) +
                         "\"; `achost recording save` and `uhfctl record` make one");
  }
}

std::optional<Recorded> RecordingReader::next() {
  while (next_line()) {
    if (line_.find_first_not_of(kBlanks) == std::string::npos) {
      continue;
    }
    if (line_.front() != '#') {
      return piece();
    }
    if (auto note = comment()) {
      return note;
    }
  }
  return std::nullopt;
}

// A line that has no end is a part of one: nobody knows what is missing.
bool RecordingReader::next_line() {
  line_.clear();
  std::streambuf& bytes = *in_.rdbuf();
  for (int c = bytes.sbumpc(); c != '\n'; c = bytes.sbumpc()) {
    if (c == std::char_traits<char>::eof()) {
      ++number_;
      if (!line_.empty() && number_ > 1) {
        throw RecordingError(name_ + ":" + std::to_string(number_) +
                             ": the file is cut off within this line; `head -n " + std::to_string(number_ - 1) +
                             "` gives what is whole");
      }
      return !line_.empty();
    }
    if (line_.size() == kLongestLine) {
      ++number_;
      refuse("a line has no more than " + std::to_string(kLongestLine) + " bytes");
    }
    line_ += static_cast<char>(c);
  }
  ++number_;
  return true;
}

// A note has its time in front.
std::optional<Recorded> RecordingReader::comment() {
  std::string_view words = std::string_view(line_).substr(1);
  const auto word = take_word(words);
  if (word == "begins" && !beginning_.has_value()) {
    beginning_ = beginning_of(words);
    return std::nullopt;
  }
  const auto at = seconds_of(word);
  if (!at.has_value() || is_too_long(*at)) {
    return std::nullopt;
  }
  words.remove_prefix(std::min<std::size_t>(words.size(), 1));
  return Recorded{.at = duration_of(*at), .note = std::string(words)};
}

Recorded RecordingReader::piece() const {
  std::string_view words = line_;
  const auto at = seconds_of(take_word(words));
  const auto direction = take_word(words);
  if (!at.has_value() || (direction != "<" && direction != ">")) {
    refuse("expected SECONDS, < or >, and bytes in hexadecimal");
  }
  if (is_too_long(*at)) {
    refuse("a recording is no longer than " + std::to_string(kLongest.count()) + " seconds");
  }
  Recorded result{.at = duration_of(*at),
                  .direction = direction == ">" ? Direction::to_reader : Direction::from_reader};
  result.bytes.reserve(words.size() / 2);
  for (auto digits = take_word(words); !digits.empty(); digits = take_word(words)) {
    for (std::size_t i = 0; i < digits.size(); i += 2) {
      const int high = digit_of(digits[i]);
      const int low = i + 1 < digits.size() ? digit_of(digits[i + 1]) : -1;
      if (high < 0 || low < 0) {
        refuse("expected SECONDS, < or >, and bytes in hexadecimal");
      }
      result.bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
    }
  }
  return result;
}

void RecordingReader::refuse(const std::string& why) const {
  const auto number = std::to_string(number_);
  throw RecordingError(name_ + ":" + number + ": " + why + "; `sed " + number +
                       "d` gives the recording without this line");
}

}  // namespace line
