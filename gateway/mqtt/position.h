// How far the broker has acknowledged the journal, kept across ends of this process and of the machine.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>

namespace mqtt {

// A place in a journal: everything up to that number is behind it.
struct Position {
  std::string journal;  // which one; empty before the first
  std::int64_t number = 0;

  bool operator==(const Position&) const = default;
};

// What is under way, in the order of its numbers, and the position before the first of it. Acknowledgements may come in
// any order.
class Acknowledgements {
 public:
  using Handle = std::uint64_t;

  // From there on; what is under way is forgotten.
  void begin_at(const Position& position);

  Handle send(const Position& position);
  void take(Handle handle);

  const Position& reached() const { return reached_; }
  std::size_t under_way() const { return waiting_.size(); }

 private:
  struct One {
    Position position;
    bool is_taken = false;
  };

  Position reached_;
  std::deque<One> waiting_;
  Handle first_ = 0;  // of waiting_
};

// A small file that is whole after any crash. It is written at most each second or each kMostBehind entries: after a
// crash these come twice, known by their numbers.
class PositionFile {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr std::int64_t kMostBehind = 512;

  // Throws std::runtime_error when the file is there and holds no position.
  explicit PositionFile(std::filesystem::path path);

  const Position& stored() const { return stored_; }

  // Throws std::runtime_error when it cannot be written.
  void keep(const Position& position, Time now);
  void keep_now(const Position& position);

 private:
  const std::filesystem::path path_;
  Position stored_;
  Time written_{};
};

}  // namespace mqtt
