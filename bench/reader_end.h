// The reader's end of a line, and when what comes of its answers happened.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "uhfsim/pty_link.h"

constexpr std::chrono::milliseconds kProbeInterval{2};
constexpr std::size_t kCommandSize = 7;
constexpr std::size_t kNoticeSize = 24;

// Nanoseconds.
inline std::int64_t now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

// When something happened last. Set by the thread that it happens on; another waits for it.
class Moment {
 public:
  void come() {
    at_.store(now());
    at_.notify_all();
  }
  void reset() { at_ = 0; }
  std::int64_t wait() const {
    at_.wait(0);
    return at_;
  }

 private:
  std::atomic<std::int64_t> at_ = 0;
};

// Answers one command after the other with a tag each.
class ReaderEnd {
 public:
  const std::string& path() const { return link_.path(); }

  // Waits for a command and answers with the tag of that number; returns when the answer was sent.
  std::int64_t answer(int tag);

 private:
  uhfsim::PtyLink link_;
};
