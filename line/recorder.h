// What went over the line and over the bus lately.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "line/bytes.h"

namespace line {

enum class Direction : std::uint8_t { to_reader, from_reader };

// What a recording begins with.
inline constexpr std::string_view kRecording = "# uhf recording 1";

// Notes of a recording that whoever reads it has to understand.
inline constexpr std::string_view kNotesMissing = "notes are missing here";
inline constexpr std::string_view kLent = "the line is lent to ";
inline constexpr std::string_view kReturned = "the line comes back from ";

// The last few megabytes of it; what is older goes. Any thread may call.
class Recorder {
 public:
  static constexpr std::size_t kUsualSize = 4U << 20U;  // bytes, of which each piece takes 13 beside its own

  explicit Recorder(std::size_t size = kUsualSize);

  void add(Direction direction, ByteView bytes, Clock::time_point now = Clock::now());

  // One line of text about what happened beside the line. It is left out when the recording is in use for more than
  // some milliseconds, and then kNotesMissing stands where the next one does.
  void note(std::string_view text, Clock::time_point now = Clock::now());

  // All of it as a recording: a text file that begins "# uhf recording 1", then "# begins" with the wall time of its
  // first piece and the seconds from the machine's start until then, then a line for each piece: seconds since the
  // beginning, ">" (to the reader) or "<" (from it), and the bytes in hexadecimal; or "#", the seconds, and a note.
  std::string text() const { return text(size_); }

  // The same of the latest pieces alone, so many bytes of memory at most.
  std::string text(std::size_t latest) const;

 private:
  enum class Kind : std::uint8_t { to_reader, from_reader, note };
  struct Head;

  // With the lock held.
  void put_note(std::string_view text, Clock::time_point now);
  void put(Kind kind, Clock::time_point now, const void* bytes, std::size_t count);
  void drop_oldest();
  void copy_in(const void* bytes, std::size_t count);
  void copy_out(std::size_t from, void* bytes, std::size_t count) const;
  Bytes oldest_first() const;

  const std::size_t size_;
  std::atomic<bool> is_note_missing_ = false;
  mutable std::mutex mutex_;                       // guards all below
  const std::unique_ptr<std::uint8_t[]> storage_;  // used round and round; takes memory as far as it was written
  std::size_t first_ = 0;                          // of the oldest piece
  std::size_t used_ = 0;                           // bytes
};

}  // namespace line
