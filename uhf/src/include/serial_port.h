// The serial line to the reader module: raw, 115200 baud, 8 data bits, no parity, one stop bit.
#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace ac::UHF {

// Open from its construction to its destruction; there is no reconnection. It holds no lock and nothing that changes:
// its users keep to one transaction at a time, on whichever thread. It knows nothing of frames.
//
// Every failure is an ac::ac_exception whose text ends in the system's reason. That of a failed read or write is always
// "Unknown error -1": the reason of the call's result, not of errno, as those who read these texts know them.
class SerialPort {
 public:
  // Opens and configures the device at path. timeout: how long receive() waits, in the line's own tenths of a second:
  // milliseconds / 100, cut to 8 bits:
  //
  //   0 to 99 ms    does not wait
  //   150 ms        waits 100 ms
  //   25500 ms      waits as long as can be
  //   25600 ms      does not wait
  //
  // Throws "Error opening Serial Port: <reason>", with nothing left open. That a device cannot be configured is not a
  // failure.
  SerialPort(const std::string& path, const std::chrono::milliseconds& timeout);

  // Closes the device; what that call returns does not matter.
  ~SerialPort();

  // The owner of one descriptor.
  SerialPort(const SerialPort&) = delete;
  SerialPort& operator=(const SerialPort&) = delete;

  // Writes all of data, at most 1024 bytes a system call, and blocks until the system has taken them; nothing for no
  // bytes. A write of a part goes on behind it, an interrupted one is a failure. Throws "Error while writing to serial
  // port: <reason>"; what was written before stays written, and the port stays usable.
  void send(const std::vector<unsigned char>& data) const;

  // One read: true and the bytes that are there (1 to 1024, in a vector of just that size), waiting for the first one;
  // false and no bytes when the time-out passed. Throws "Error while reading from serial port: <reason>".
  std::pair<bool, std::vector<unsigned char>> receive() const;

 private:
  // As given to the constructor.
  std::string path_;
  std::chrono::milliseconds timeout_;

  // The descriptor of the open device.
  int fd_ = 0;
};

}  // namespace ac::UHF
