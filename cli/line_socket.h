// Lines over a stream socket.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace achost {

// The address of a socket in a directory, however long the directory's path is: the name goes through the open
// directory, since a socket's address has room for 107 bytes only. Throws std::system_error.
class SocketPlace {
 public:
  SocketPlace(const std::filesystem::path& directory, const std::string& name);
  ~SocketPlace();
  SocketPlace(const SocketPlace&) = delete;
  SocketPlace& operator=(const SocketPlace&) = delete;

  // bind(2) or connect(2); 0 or the errno.
  int bind(int socket) const;
  int connect(int socket) const;
  void unlink() const noexcept;

  // 0 or the errno.
  int set_mode(mode_t mode) const;

 private:
  std::string path() const;

  int directory_;
  std::string name_;
};

// Send all of the text; false when the peer has gone or takes longer than the socket's SO_SNDTIMEO.
bool send_all(int socket, std::string_view text);

// Cuts what arrives into lines.
class LineReader {
 public:
  enum class Outcome { line, end, too_long, too_late, idle };

  // longest: bytes of a line, with its newline.
  LineReader(int socket, std::size_t longest) : socket_(socket), longest_(longest) {}

  // Wait for the next line, into `line` without its newline. A line that has begun must end within `patience`; it must
  // begin within `idle`, where that is given.
  Outcome next(std::string& line, std::chrono::milliseconds patience,
               std::optional<std::chrono::milliseconds> idle = std::nullopt);

  // Wait for so many bytes, whatever they are, in place of a line. Each part of them must come within `patience`.
  Outcome next_bytes(std::string& bytes, std::size_t count, std::chrono::milliseconds patience);

 private:
  bool take(std::string& line);

  int socket_;
  std::size_t longest_;
  std::string pending_;
};

}  // namespace achost
