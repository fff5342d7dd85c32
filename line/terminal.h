// A pseudo-terminal in place of the reader's port.
#pragma once

#include <memory>
#include <string>

namespace line {

// Owns a file descriptor and closes it once.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}  // a negative one is none
  Descriptor(Descriptor&& other) noexcept;
  Descriptor& operator=(Descriptor&& other) noexcept;
  ~Descriptor();

  int get() const { return fd_; }

 private:
  int fd_ = -1;
};

// Raw from the beginning, so that no byte that comes before whoever opens it has set it up is a character of a
// terminal, which ends the process. This object keeps both ends open: the line stays up when the client closes it.
class Terminal {
 public:
  // Throws std::system_error.
  Terminal();

  // For the client to open.
  const std::string& path() const { return path_; }

  // Our end; it does not block.
  int fd() const { return master_.get(); }

  // Makes it the controlling terminal of this process.
  void control() const;

  // Drop what the client has not read; the number of bytes.
  std::size_t drop_unread() const;

 private:
  Descriptor master_;
  std::string path_;
  Descriptor client_;
};

// To be kept, by a session's leader that has no controlling terminal, as a service manager starts it: a terminal that
// is that, and at which nothing happens. Otherwise the next one that anybody opens carelessly would be it, and a reader
// that hangs up or sends the wrong byte would send a signal. Null when there is no need, or no terminal to be had.
std::unique_ptr<Terminal> controlling_terminal();

// Raw, 115200 baud, 8 data bits, no parity, one stop bit.
void make_raw(int fd);

}  // namespace line
