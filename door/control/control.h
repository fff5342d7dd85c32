// Talking to a host that runs: one local socket, one JSON object a line.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ac/exception.h"
#include "door/control/roles.h"

namespace achost {

using Json = nlohmann::ordered_json;

// An object as it goes over the socket, with its newline. A text that a client sent may hold anything: what is no UTF-8
// is replaced.
std::string line_of(const Json& json);

// A field of a request.
struct ControlField {
  enum class Type { text, integer, flag, texts };

  std::string name;
  Type type = Type::text;
  bool required = true;
};

// Bytes that go with a request or an answer come in pieces of at most so many.
inline constexpr std::size_t kLongestPiece = std::size_t{128} * 1024;

// So often a command that waits for something else looks whether its client has gone.
inline constexpr std::chrono::milliseconds kLook{200};

// The other end of a connection, for a command that answers with more than one line, or gets more than one.
class ControlStream {
 public:
  virtual ~ControlStream() = default;

  // Send a line at once. False when the client has gone or does not read.
  virtual bool send(const Json& line) = 0;

  // The same with lines as line_of() makes them.
  virtual bool send_lines(const std::string& lines) = 0;

  // Send bytes that are no lines, before the answer. False as of send().
  virtual bool send_bytes(std::string_view bytes) = 0;

  // The next piece of the bytes that go with the request; empty at their end. Throws Failure when the client has gone
  // before, so that what it began is not done.
  virtual std::string receive_bytes() = 0;

  // Whether the client has gone, or the server ends.
  virtual bool is_over() = 0;

  // The connection itself, as another descriptor, for bytes that are no lines: {"ok": true} is sent before, and nothing
  // by the server after. The connection ends when the command returns and that descriptor is closed.
  virtual int hand_over() = 0;

  // What whoever asks may do; all, where he asks himself.
  virtual Role role() const { return Role::admin; }
};

// Something that a client may ask for.
struct ControlCommand {
  std::string name;
  std::vector<ControlField> fields;
  // Returns what the answer holds besides "ok": true. What it throws becomes the error. Called on a thread of the
  // connection's, so several at a time; it may use the stream before it returns. What it changes, and notes, is the
  // client's (MakerScope).
  std::function<Json(const Json& request, ControlStream& stream)> run;
  bool changes = false;      // what is stored; or it needs the state directory for itself
  bool takes_bytes = false;  // pieces of bytes follow the request, the last of them empty
};

// A request that is none; what() says what was found and what would be right.
class RequestError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The field that each request may have beside its command's own: for whom a gateway asks.
inline constexpr const char* kOnBehalfOf = "on_behalf_of";
inline constexpr std::size_t kLongestBehalf = 100;  // bytes

// The commands of a server. Constant once made.
class ControlTable {
 public:
  explicit ControlTable(std::vector<ControlCommand> commands) : commands_(std::move(commands)) {}

  // The command of a request whose fields are all as they should be. Throws RequestError.
  const ControlCommand& check(const Json& request) const;

  const std::vector<ControlCommand>& commands() const { return commands_; }

 private:
  std::vector<ControlCommand> commands_;
};

// How long a server waits for its clients.
struct ControlLimits {
  std::chrono::milliseconds patience = std::chrono::seconds(10);  // for a whole request, and for one who does not read
  std::chrono::milliseconds idle = std::chrono::seconds(60);      // for the next request
};

// Listens at DIRECTORY/control.sock: for this user, root and whose the directory is, who may do all, and for the groups
// of roles.h, should the machine have them. docs/control.md is for whoever writes a client.
//
// A client sends requests, {"command": NAME, FIELD: VALUE, ...}, a line each, and gets an answer to each in turn:
// {"ok": true, ...}, or {"ok": false, "status": N, "error": TEXT} with the exit status that a program should end with;
// of one that another role may ask it names that: "needs".
// A request that is none gets an error, and the connection goes on, unless it is longer than kLongestRequest or takes
// longer than the limit: then nobody can tell where the next one begins. A client that asks for nothing goes, at the
// limit or when another needs its place; so none keep others out but those that follow something, and root has a place
// of its own beside these.
//
// Bytes go as {"bytes": N}, with a newline, and N bytes. They come with a request whose command takes them until a
// piece of 0, and with an answer before its last line.
class ControlServer {
 public:
  static constexpr std::size_t kLongestRequest = 65536;  // bytes, with its newline
  static constexpr std::size_t kMostClients = 16;        // and one of root's

  // The directory is held by this process alone, so a socket that is there already is a dead one's. Throws
  // ac::ac_exception.
  // groups: the machine's file of groups, read for each client.
  ControlServer(const std::filesystem::path& directory, ControlTable table, ControlLimits limits = {},
                std::filesystem::path groups = kGroupsFile);

  // Closes all connections and removes the socket.
  ~ControlServer();

  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

  // Remove the socket, at the end of a process that destroys nothing. New clients find nobody.
  void unlink() noexcept;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Nobody listens there.
class NoHost : public ac::ac_exception {
 public:
  explicit NoHost(const std::filesystem::path& directory);
};

// It has closed the connection.
class HostGone : public ac::ac_exception {
 public:
  HostGone();
};

// A connection to the server of a state directory. For one thread.
class ControlClient {
 public:
  // How long a host takes for a request at most, unless that waits for a person or for the reader.
  static constexpr std::chrono::seconds kPatience{5};

  // Throws NoHost, or ac::ac_exception when the socket cannot be used.
  explicit ControlClient(const std::filesystem::path& directory);
  ~ControlClient();
  ControlClient(const ControlClient&) = delete;
  ControlClient& operator=(const ControlClient&) = delete;

  // Send a request.
  void send(const Json& request);

  // Send a piece of the bytes that go with it; an empty one is their end. False when the server does not want them: its
  // answer says why.
  bool send_bytes(std::string_view bytes);

  // The next line of the server. Throws HostGone, or ac::ac_exception when it says no JSON, or says nothing for that
  // long; then the exception names the process.
  Json receive(std::optional<std::chrono::milliseconds> patience = std::nullopt);

  // The bytes behind a line that says how many they are. Throws as receive() does.
  std::string receive_bytes(const Json& line, std::optional<std::chrono::milliseconds> patience = std::nullopt);

 private:
  void read_more(std::optional<std::chrono::milliseconds> patience);

  const std::filesystem::path directory_;
  int socket_;
  std::string pending_;
};

}  // namespace achost
