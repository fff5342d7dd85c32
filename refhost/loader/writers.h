// Who else can change what stands at a path.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace refhost {

// A descriptor that closes itself.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  int release();

  // A path that leads to what is open here, and to nothing else.
  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_ = -1;
};

// Besides root and this process' user, everyone who can write somewhere: "user 1000", "group 1000" or "everyone", each
// with the first place where.
using Writers = std::map<std::string, std::string>;

// What a path has led to.
struct Reached {
  Descriptor file;  // opened with O_PATH
  Writers writers;  // of the file, or of a directory or symbolic link on the way to it
};

// Walk a path that begins with "/" to its end. Each directory and symbolic link is opened once, looked at, and gone on
// from: whoever changes the way meanwhile is among those who could, or cannot change where it leads. Throws
// std::system_error.
Reached walk(const std::filesystem::path& path);

}  // namespace refhost
