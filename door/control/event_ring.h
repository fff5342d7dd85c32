// The latest messages of the bus, numbered, for whoever follows them.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "ac/message.h"

namespace achost {

// Keeps each message as the bytes that it has on the bus, in memory that is taken once: noting one makes no object and
// no text, whether anybody follows or not. Numbers rise by one from 1 on and are this run's. Any thread may call.
class EventRing {
 public:
  // One who comes in is about ten messages of 100 to 200 bytes: the latest 300 visitors or so, minutes of a busy door,
  // and more than a client's own backlog of 1 MiB of text would hold. The count bounds what is kept of short ones.
  static constexpr std::size_t kMostEvents = 4096;
  static constexpr std::size_t kMostBytes = std::size_t{512} * 1024;

  // A longer one has a number and is not kept, so that it does not drive out all others.
  static constexpr std::size_t kLongest = kMostBytes / 8;

  struct Event {
    std::int64_t number;
    std::chrono::sys_time<std::chrono::milliseconds> time;
    std::string_view type;
    std::string_view fields;  // for refhost::fields_of()
  };

  // Some events that follow one another, copied.
  class Part {
   public:
    Part() : bytes_(kLongest) {}

    std::int64_t first() const { return first_; }
    std::int64_t last() const { return last_; }  // before the first: there is none

    void for_each(const std::function<void(const Event&)>& see) const;

   private:
    friend class EventRing;
    std::int64_t first_ = 1;
    std::int64_t last_ = 0;
    std::vector<char> bytes_;
  };

  EventRing();

  // On the sender's thread: it waits for nobody longer than a part of kEnough bytes takes to be copied.
  void note(const ac::Message& message) noexcept;

  // Which run of the process it is: a text that no other has.
  const std::string& run() const { return run_; }

  // Of the latest; 0: there was none.
  std::int64_t newest() const;

  // The first of those behind a number that was given, once there is one, or after that time. The numbers between that
  // one and the first of the part are not there any more, also where the part has none.
  void take(std::int64_t after, Part& part, std::chrono::milliseconds longest);

 private:
  static constexpr std::size_t kEnough = std::size_t{16} * 1024;  // bytes at once, if the first is not longer

  // What stands before the type, which stands before the fields.
  struct Head {
    std::int64_t time;  // ms since 1970 UTC
    std::uint32_t type_size;
    std::uint32_t fields_size;
  };

  std::uint64_t begin_of(std::int64_t number) const;
  void put(const void* bytes, std::size_t size);
  void copy(std::uint64_t from, std::uint64_t to, char* place) const;

  const std::string run_;
  mutable std::mutex mutex_;  // guards all below
  std::condition_variable come_;
  int waiting_ = 0;  // for what comes
  std::int64_t oldest_ = 1;
  std::int64_t newest_ = 0;
  // Where each begins, by its number; it ends where the next begins, and has no bytes when it is not kept. Places count
  // on from the beginning of the run: that one of the memory is what is left over kMostBytes.
  std::array<std::uint64_t, kMostEvents> begins_{};
  std::uint64_t end_ = 0;    // of the newest
  std::vector<char> bytes_;  // touched at the beginning, so that memory does not grow with what happens
};

}  // namespace achost
