// A door that runs, an achost, and has the reader's port.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "cli/line_socket.h"
#include "line/terminal.h"

namespace uhfctl {

// A connection to a door's control socket. One thread uses it.
class Connection {
 public:
  // How long a door may take for an answer.
  static constexpr std::chrono::seconds kPatience{5};

  // Throws std::system_error.
  explicit Connection(const std::filesystem::path& state);

  pid_t process() const;  // at the other end
  int socket() const { return socket_.get(); }

  // The answer to a request. Throws Failure: kNoAnswer when none comes in time, and with the door's status and text
  // when it refuses.
  nlohmann::json ask(const nlohmann::json& request);

  // The next line of those that follow; nothing when none comes in time. Throws Failure kFailed at the end.
  std::optional<nlohmann::json> next(std::chrono::milliseconds time);

 private:
  line::Descriptor socket_;
  std::unique_ptr<achost::LineReader> lines_;
};

class Door {
 public:
  // The door that has that port, if one has. holder: the process that has the port, or 0 when that is not known;
  // otherwise: what is wrong with the port when none is found. Throws Failure when there is one that cannot be asked,
  // or does not share its reader.
  static std::optional<Door> with(const std::string& port, pid_t holder, const std::string& otherwise);

  // "achost (process 123)".
  const std::string& name() const { return name_; }

  // Throws Failure when the door's reader was lent, or not there, when the door was found.
  void check_reader() const;

  // Throws Failure.
  Connection connect() const;

 private:
  Door(std::filesystem::path state, std::string name, nlohmann::json health);

  static std::optional<Door> at(const std::filesystem::path& state, const std::string& port, pid_t holder);

  std::filesystem::path state_;  // its directory
  std::string name_;
  nlohmann::json health_;
};

}  // namespace uhfctl
