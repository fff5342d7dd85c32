#include "door.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include "failure.h"

namespace uhfctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* kSocketName = "control.sock";
constexpr std::size_t kLongestLine = 1U << 20U;

line::Descriptor connected(const fs::path& state) {
  line::Descriptor descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  // Of a door that hangs the socket may be full.
  const timeval patience{.tv_sec = Connection::kPatience.count(), .tv_usec = 0};
  setsockopt(descriptor.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (const int reason = achost::SocketPlace(state, kSocketName).connect(descriptor.get()); reason != 0) {
    throw std::system_error(reason, std::generic_category(), state.string());
  }
  return descriptor;
}

std::string name_of(pid_t process) { return "achost (process " + std::to_string(process) + ")"; }

bool is_same_device(const std::string& one, const std::string& other) {
  struct stat a {};
  struct stat b {};
  return stat(one.c_str(), &a) == 0 && stat(other.c_str(), &b) == 0 && S_ISCHR(a.st_mode) && a.st_rdev == b.st_rdev;
}

bool is_called_achost(const fs::path& process) {
  std::string name;
  std::getline(std::ifstream(process / "comm"), name);
  return name == "achost";
}

// The directories that the process has open in which there is a control socket: it listens there, wherever its command
// line or its environment put that.
void add_states_of(const fs::path& process, std::vector<fs::path>& states) {
  std::error_code failure;
  for (fs::directory_iterator entry(process / "fd", failure), end; !failure && entry != end; entry.increment(failure)) {
    std::error_code ignored;
    if (fs::is_directory(entry->path(), ignored) && fs::is_socket(entry->path() / kSocketName, ignored)) {
      states.push_back(entry->path());
    }
  }
}

// Where doors keep their control sockets: those that run as far as they can be looked into, then the usual places.
std::vector<fs::path> places() {
  std::vector<fs::path> states;
  std::error_code failure;
  for (fs::directory_iterator entry("/proc", failure), end; !failure && entry != end; entry.increment(failure)) {
    if (is_called_achost(entry->path())) {
      add_states_of(entry->path(), states);
    }
  }
  if (const char* const asked = std::getenv("ACHOST_STATE"); asked != nullptr && *asked != '\0') {
    states.emplace_back(asked);
  }
  states.emplace_back("/var/lib/achost");
  const char* const state_home = std::getenv("XDG_STATE_HOME");
  const char* const home = std::getenv("HOME");
  if (state_home != nullptr && *state_home == '/') {
    states.push_back(fs::path(state_home) / "achost");
  } else if (home != nullptr && *home == '/') {
    states.push_back(fs::path(home) / ".local/state/achost");
  }
  return states;
}

[[noreturn]] void not_permitted(const std::string& otherwise) {
  throw Failure(kPortBusy,
                otherwise +
                    "; if that is the achost of this machine, only its user, root and its group may have its "
                    "reader: sudo uhfctl ...");
}

}  // namespace

Connection::Connection(const fs::path& state)
    : socket_(connected(state)), lines_(std::make_unique<achost::LineReader>(socket_.get(), kLongestLine)) {}

pid_t Connection::process() const {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
}

nlohmann::json Connection::ask(const nlohmann::json& request) {
  achost::send_all(socket_.get(), request.dump() + "\n");  // a door that has closed has said why before
  const auto answer = next(kPatience);
  if (!answer.has_value()) {
    throw Failure(kNoAnswer, name_of(process()) + " has the reader, and does not answer within " +
                                 std::to_string(kPatience.count()) + " s: it hangs or is stopped");
  }
  if (!answer->value("ok", true)) {
    const int status = std::clamp<int>(answer->value("status", 1), kFailed, kDamaged);
    throw Failure(static_cast<Status>(status), name_of(process()) + ": " + answer->value("error", "refused"));
  }
  return *answer;
}

std::optional<nlohmann::json> Connection::next(std::chrono::milliseconds time) {
  std::string line;
  switch (lines_->next(line, kPatience, time)) {
    case achost::LineReader::Outcome::line:
      return nlohmann::json::parse(line);
    case achost::LineReader::Outcome::idle:
      return std::nullopt;
    default:
      throw Failure(kFailed, name_of(process()) + " has ended, or its connection: begin anew");
  }
}

Door::Door(fs::path state, std::string name, nlohmann::json health)
    : state_(std::move(state)), name_(std::move(name)), health_(std::move(health)) {}

void Door::check_reader() const {
  const auto state = health_.value("state", "");
  const auto cause = health_.value("cause", "");
  if (state == "lent") {
    throw Failure(kPortBusy, name_ + " has the reader, which is " + cause + " already: wait until that ends");
  }
  if (state == "gone") {
    throw Failure(kNoReader, cause + "; " + health_.value("way_out", ""));
  }
}

Connection Door::connect() const {
  try {
    return Connection(state_);
  } catch (const std::system_error& failure) {
    throw Failure(kFailed, name_ + " cannot be reached: " + failure.code().message());
  }
}

std::optional<Door> Door::at(const fs::path& state, const std::string& port, pid_t holder) {
  Connection connection(state);
  const auto process = connection.process();
  if (holder != 0 && process != holder) {
    return std::nullopt;
  }
  auto health = connection.ask({{"command", "health"}});
  if (holder != 0 && health.value("state", "") == "direct") {
    throw Failure(kPortBusy, name_of(process) + " has the port " + port +
                                 " for its plug-in alone, as it was started with --direct: stop it first");
  }
  return is_same_device(health.value("port", ""), port)
             ? std::optional(Door(state, name_of(process), std::move(health)))
             : std::nullopt;
}

std::optional<Door> Door::with(const std::string& port, pid_t holder, const std::string& otherwise) {
  bool permitted = true;
  for (const auto& state : places()) {
    try {
      if (auto found = at(state, port, holder)) {
        return found;
      }
    } catch (const std::system_error& failure) {  // nobody listens there, or not for us
      permitted = permitted && failure.code() != std::errc::permission_denied;
    } catch (const Failure&) {
      if (holder != 0) {
        throw;
      }
    }
  }
  // A holder that is known can be looked into, so that it is no door of somebody else's.
  if (!permitted && holder == 0) {
    not_permitted(otherwise);
  }
  return std::nullopt;
}

}  // namespace uhfctl
