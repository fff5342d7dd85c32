// What every command that talks to a reader takes.
#pragma once

#include <chrono>
#include <string>

namespace uhfctl {

struct Common {
  std::string command;  // its name, for others who are told who asks
  std::string port;
  int timeout = 1000;  // ms
  bool json = false;

  std::chrono::milliseconds patience() const { return std::chrono::milliseconds(timeout); }
};

}  // namespace uhfctl
