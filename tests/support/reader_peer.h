// The reader's end of a serial line, in the hands of a test: the master of a real pseudo-terminal.
#pragma once

#include <string>
#include <vector>

class ReaderPeer {
 public:
  ReaderPeer();
  ~ReaderPeer();
  ReaderPeer(const ReaderPeer&) = delete;
  ReaderPeer& operator=(const ReaderPeer&) = delete;

  // The device that the driver opens.
  const std::string& path() const { return path_; }

  // Puts bytes on the line; the driver's next reads get them. To be called once the driver has opened the device.
  void write(const std::vector<unsigned char>& bytes);

  // Waits until the driver has read all that was written; false when it does not within 10 s.
  bool wait_until_read() const;

  // What the driver has sent; waits up to 10 s until it is count bytes.
  std::vector<unsigned char> read(std::size_t count);

  // Whether nothing from the driver waits to be read.
  bool is_quiet() const;

  // Hangs the line up.
  void hang_up();

 private:
  int master_;
  int slave_;  // open as long as the peer, so that the line is up before the driver opens it
  std::string path_;
};
