// Seeing whether the disk below the stores answers.
#pragma once

#include <array>
#include <chrono>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace refhost {

// The file of a store that is in use. It is known to the process's StoreTable while it lives.
class StoreWatch {
 public:
  using Clock = std::chrono::steady_clock;

  explicit StoreWatch(std::filesystem::path file);
  ~StoreWatch();
  StoreWatch(const StoreWatch&) = delete;
  StoreWatch& operator=(const StoreWatch&) = delete;

  // For the time of a block that needs the disk; one at a time, as the store's own lock sees to.
  class Use {
   public:
    // what: for a person, "an audit record"; it outlives the use.
    Use(StoreWatch& watch, const char* what);

    // Unless it failed, what failed before is over.
    ~Use();

    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    // It comes to nothing, for that reason; a failure that stands until a use of the file ends well.
    void fail(const std::string& reason);

   private:
    StoreWatch& watch_;
    bool failed_ = false;
  };

 private:
  friend class StoreTable;

  const std::filesystem::path file_;
  std::mutex mutex_;  // guards everything below
  std::optional<Clock::time_point> since_;
  const char* what_ = "";
  std::string failure_;
};

// All stores of the process. The time is a parameter. Any thread may call.
class StoreTable {
 public:
  using Clock = StoreWatch::Clock;

  // Without memory of its own, for who ends the process because of it.
  struct Stall {
    std::array<char, 256> file;  // its path, or the end of it
    const char* what;
    std::chrono::milliseconds length;
  };

  // The one that each StoreWatch joins. Never destroyed.
  static StoreTable& instance();

  // The use of a file that has lasted for longest, if any has lasted longer than the patience.
  std::optional<Stall> longest_stall(Clock::time_point now, std::chrono::milliseconds patience);

  // One line for a person: each file whose disk has not answered for longer than the patience or whose last use has
  // failed, with the way out. It stays the same while they do; empty when all is well.
  std::string trouble(Clock::time_point now, std::chrono::milliseconds patience);

 private:
  friend class StoreWatch;

  std::mutex mutex_;  // guards all_; taken before a watch's
  std::vector<StoreWatch*> all_;
};

}  // namespace refhost
