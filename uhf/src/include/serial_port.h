// The serial line to the reader module: raw, 115200 baud, 8 data bits, no parity, one stop bit.
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace ac::UHF {

// Open from its construction to its destruction; there is no reconnection. It holds no lock and nothing that changes:
// its users keep to one transaction at a time. Every failure is an ac::ac_exception.
class SerialPort {
 public:
  // Opens and configures the device at path. timeout: how long receive() waits, in the line's own tenths of a second:
  // milliseconds / 100, cut to 8 bits (below 100 ms: it does not wait; 25600 ms wrap to 0). Throws "Error opening
  // Serial Port: <reason>".
  SerialPort(const std::string& path, const std::chrono::milliseconds& timeout);
  ~SerialPort();
  SerialPort(const SerialPort&) = delete;
  SerialPort& operator=(const SerialPort&) = delete;

  // Writes all of data, at most 1024 bytes a system call. Throws "Error while writing to serial port: <reason>"; what
  // was written before stays written, and the port stays usable.
  void send(const std::vector<unsigned char>& data) const;

  // One read: true and the bytes that are there (1 to 1024), waiting for the first one; false and no bytes when the
  // time-out passed. Throws "Error while reading from serial port: <reason>".
  std::pair<bool, std::vector<unsigned char>> receive() const;

 private:
  std::string path_;
  std::chrono::milliseconds timeout_;
  int fd_ = 0;
};

}  // namespace ac::UHF
