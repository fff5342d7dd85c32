// Records that outlive the process, in memory.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace achost {

// A ring of records in a mapped file. The file lies where files are memory (tmpfs), so that no store to it waits for a
// disk, and what a record's writer had put is there when it was killed the instant after. Its room is taken when it is
// made: it cannot run out later.
//
// One thread puts at a time, and one takes; they need no lock between them.
class Spool {
 public:
  // Open the file, which is this user's and nobody else's, or make it. What is no spool is made anew, and is_damaged()
  // then. Throws std::system_error, with no file left behind that was not there.
  Spool(const std::filesystem::path& file, std::size_t size);

  // In the process's own memory, where no file can be had: it goes with the process.
  explicit Spool(std::size_t size);

  // The file stays.
  ~Spool();
  Spool(const Spool&) = delete;
  Spool& operator=(const Spool&) = delete;

  // Empty: it is in the process's own memory.
  const std::filesystem::path& file() const { return file_; }

  // What was found when it was opened is not all that was put.
  bool is_damaged() const { return is_damaged_; }

  // Whole or not at all, also when the process is killed meanwhile. False: there is no room.
  bool put(std::string_view record);

  // For one record of that size; for who puts.
  bool has_room(std::size_t size) const;

  bool is_empty() const;

  // Hand up to so many records to a function, oldest first; they stay. Returns the place behind them.
  std::uint64_t look(std::size_t most, const std::function<void(std::string_view)>& take);

  // They have been dealt with up to that place.
  void drop_to(std::uint64_t place);

  // Remove the file.
  void remove();

 private:
  struct Header;

  void map(int fd, std::size_t size);
  void begin_anew();
  bool is_sound() const;
  void copy_in(std::uint64_t place, const void* data, std::size_t size);
  void copy_out(std::uint64_t place, void* data, std::size_t size) const;

  std::filesystem::path file_;
  std::size_t ring_size_ = 0;
  bool is_damaged_ = false;
  Header* header_ = nullptr;  // of the mapping; its positions are atomic
  char* ring_ = nullptr;      // behind it
};

// Where the spool of that name may lie, the best first: directories of this user's for what lives while the machine
// runs, shared memory, at last the state directory.
std::vector<std::filesystem::path> spool_files(const std::filesystem::path& state, const std::string& name);

}  // namespace achost
