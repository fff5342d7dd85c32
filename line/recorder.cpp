#include "line/recorder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <thread>

namespace line {

struct Recorder::Head {
  Clock::time_point at;
  std::uint32_t count = 0;  // bytes behind the head
  Kind kind = Kind::note;

  static constexpr std::size_t kSize = sizeof(std::int64_t) + sizeof(std::uint32_t) + 1;

  void to(std::uint8_t* bytes) const {
    const std::int64_t time = at.time_since_epoch().count();
    std::memcpy(bytes, &time, sizeof time);
    std::memcpy(bytes + sizeof time, &count, sizeof count);
    bytes[kSize - 1] = static_cast<std::uint8_t>(kind);
  }

  static Head from(const std::uint8_t* bytes) {
    std::int64_t time = 0;
    Head head;
    std::memcpy(&time, bytes, sizeof time);
    std::memcpy(&head.count, bytes + sizeof time, sizeof head.count);
    head.at = Clock::time_point(Clock::duration(time));
    head.kind = static_cast<Kind>(bytes[kSize - 1]);
    return head;
  }
};

Recorder::Recorder(std::size_t size) : size_(size), storage_(std::make_unique_for_overwrite<std::uint8_t[]>(size)) {}

void Recorder::add(Direction direction, ByteView bytes, Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  put(direction == Direction::to_reader ? Kind::to_reader : Kind::from_reader, now, bytes.data(), bytes.size());
}

void Recorder::note(std::string_view text, Clock::time_point now) {
  // Whoever wants to leave waits for no recording: a thread that hangs may hold the lock.
  constexpr int kTries = 20;
  constexpr std::chrono::microseconds kPause{50};
  for (int i = 0; i < kTries; ++i) {
    if (const std::unique_lock lock(mutex_, std::try_to_lock); lock.owns_lock()) {
      put_note(text, now);
      return;
    }
    std::this_thread::sleep_for(kPause);
  }
  is_note_missing_ = true;
}

void Recorder::put_note(std::string_view text, Clock::time_point now) {
  if (is_note_missing_.exchange(false)) {
    put(Kind::note, now, kNotesMissing.data(), kNotesMissing.size());
  }
  put(Kind::note, now, text.data(), text.size());
}

void Recorder::put(Kind kind, Clock::time_point now, const void* bytes, std::size_t count) {
  count = std::min(count, size_ / 4);
  while (used_ + Head::kSize + count > size_) {
    drop_oldest();
  }
  std::uint8_t head[Head::kSize];
  Head{.at = now, .count = static_cast<std::uint32_t>(count), .kind = kind}.to(head);
  copy_in(head, sizeof head);
  copy_in(bytes, count);
}

void Recorder::drop_oldest() {
  std::uint8_t bytes[Head::kSize];
  copy_out(first_, bytes, sizeof bytes);
  const std::size_t gone = Head::kSize + Head::from(bytes).count;
  first_ = (first_ + gone) % size_;
  used_ -= gone;
}

void Recorder::copy_in(const void* bytes, std::size_t count) {
  if (count == 0) {
    return;
  }
  const std::size_t to = (first_ + used_) % size_;
  const std::size_t before_end = std::min(count, size_ - to);
  std::memcpy(storage_.get() + to, bytes, before_end);
  if (before_end < count) {
    std::memcpy(storage_.get(), static_cast<const std::uint8_t*>(bytes) + before_end, count - before_end);
  }
  used_ += count;
}

void Recorder::copy_out(std::size_t from, void* bytes, std::size_t count) const {
  if (count == 0) {
    return;  // and bytes may be null
  }
  const std::size_t before_end = std::min(count, size_ - from);
  std::memcpy(bytes, storage_.get() + from, before_end);
  if (before_end < count) {
    std::memcpy(static_cast<std::uint8_t*>(bytes) + before_end, storage_.get(), count - before_end);
  }
}

namespace {

// The local time with microseconds and zone, and the time since the machine's start.
std::string beginning(Clock::time_point at) {
  using std::chrono::microseconds;
  const auto ago = std::chrono::duration_cast<microseconds>(Clock::now() - at);
  const auto wall = std::chrono::floor<microseconds>(std::chrono::system_clock::now() - ago);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(wall);
  const std::time_t time = std::chrono::system_clock::to_time_t(seconds);
  std::tm parts{};
  localtime_r(&time, &parts);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
  const long zone = parts.tm_gmtoff / 60;
  char text[96];
  std::snprintf(text, sizeof text, "%s.%06d%c%02ld:%02ld %.6f", date, static_cast<int>((wall - seconds).count()),
                zone < 0 ? '-' : '+', std::labs(zone) / 60, std::labs(zone) % 60,
                std::chrono::duration<double>(at.time_since_epoch()).count());
  return text;
}

void append_hex(std::string& text, ByteView bytes) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte / 16];
    text += kDigits[byte % 16];
  }
}

}  // namespace

Bytes Recorder::oldest_first() const {
  const std::lock_guard lock(mutex_);
  Bytes all(used_);
  copy_out(first_, all.data(), all.size());
  return all;
}

// Made from a copy, so that the line waits no longer than that takes.
std::string Recorder::text(std::size_t latest) const {
  const Bytes all = oldest_first();
  std::string text(kRecording);
  text += '\n';
  std::optional<Clock::time_point> begin;
  for (std::size_t done = 0; done < all.size();) {
    const Head head = Head::from(all.data() + done);
    const ByteView bytes = ByteView(all).subspan(done + Head::kSize, head.count);
    done += Head::kSize + head.count;
    if (all.size() - done + Head::kSize + head.count > latest) {
      continue;
    }
    if (!begin.has_value()) {
      begin = head.at;
      text += "# begins " + beginning(head.at) + "\n";
    }
    char time[32];
    std::snprintf(time, sizeof time, "%.6f", std::chrono::duration<double>(head.at - *begin).count());
    if (head.kind == Kind::note) {
      text.append("# ").append(time).append(" ").append(bytes.begin(), bytes.end());
    } else {
      text.append(time).append(head.kind == Kind::to_reader ? " > " : " < ");
      append_hex(text, bytes);
    }
    text += '\n';
  }
  return text;
}

}  // namespace line
