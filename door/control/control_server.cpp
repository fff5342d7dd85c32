#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>
#include <optional>
#include <system_error>
#include <thread>

#include "ac/util.h"
#include "cli/line_socket.h"
#include "door/base/failure.h"
#include "door/base/maker.h"
#include "door/control/client_places.h"
#include "door/control/control.h"
#include "door/control/roles.h"
#include "refhost/log.h"
#include "refhost/settings_schema.h"
#include "refhost/state_file.h"
#include "refhost/work.h"

namespace achost {
namespace {

constexpr const char* kSocketName = "control.sock";

Json error(int status, const std::string& text) { return {{"ok", false}, {"status", status}, {"error", text}}; }

// Of a connection that ends without anything done: the client may ask again on another.
Json farewell(const std::string& text) {
  auto line = error(kFailed, text);
  line["again"] = true;
  return line;
}

[[noreturn]] void fail(const std::filesystem::path& directory, const std::string& what, int reason) {
  throw ac::ac_exception(
      "cannot " + what + " the control socket in " + directory.string() + ": " + std::strerror(reason), true);
}

// Another role may ask for it.
class NotAllowed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

bool is_shortage(int reason) { return reason == EMFILE || reason == ENFILE || reason == ENOBUFS || reason == ENOMEM; }

// One client, on a thread of its own.
// Of what a client sends; what has a number that nothing holds is none either.
Json parsed(const std::string& line) {
  Json json = Json::parse(line, nullptr, false);
  if (json.is_discarded()) {
    throw RequestError("the request is no JSON");
  }
  return json;
}

class Connection : public ControlStream {
 public:
  Connection(int socket, const Peer& peer, const ControlTable& table, ControlLimits limits, ClientPlaces& places,
             const std::atomic<bool>& ending)
      : socket_(socket),
        maker_(maker_of(peer.uid)),
        role_(peer.role.value()),
        table_(table),
        limits_(limits),
        places_(places),
        ending_(ending),
        reader_(socket, ControlServer::kLongestRequest) {
    const auto patience = std::chrono::duration_cast<std::chrono::microseconds>(limits.patience).count();
    const timeval time{.tv_sec = static_cast<std::time_t>(patience / 1'000'000),
                       .tv_usec = static_cast<suseconds_t>(patience % 1'000'000)};
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
  }

  void serve() {
    std::string line;
    for (;;) {
      switch (reader_.next(line, limits_.patience, limits_.idle)) {
        case LineReader::Outcome::line:
          if (!places_.begin_request(socket_)) {
            return;
          }
          if (const Json result = answer(line); handed_over_ || !send(result) || awaits_bytes_) {
            return;  // of bytes that nobody has taken, no request can be told
          }
          places_.end_request(socket_);
          break;
        case LineReader::Outcome::too_long:
          send(error(kUsage, "a request has at most " + std::to_string(ControlServer::kLongestRequest) + " bytes"));
          return;
        case LineReader::Outcome::too_late:
          send(error(kUsage, "the request has no end: a newline ends it"));
          return;
        case LineReader::Outcome::idle:
          send(farewell("no request came for too long: connect again"));
          return;
        case LineReader::Outcome::end:
          return;
      }
    }
  }

  bool send(const Json& line) override { return send_lines(line_of(line)); }

  bool send_lines(const std::string& lines) override { return send_text(lines); }

  bool send_text(std::string_view text) {
    if (send_all(socket_, text)) {
      return true;
    }
    if (errno == EAGAIN) {
      refhost::log::warning("a client of the control socket does not read what it has asked for: its connection ends");
    }
    return false;
  }

  bool send_bytes(std::string_view bytes) override {
    bool sent = true;
    for (; sent && !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kLongestPiece))) {
      const auto piece = bytes.substr(0, kLongestPiece);
      sent = send({{"bytes", piece.size()}}) && send_text(piece);
    }
    return sent;
  }

  std::string receive_bytes() override {
    std::string bytes;
    if (awaits_bytes_) {
      const auto outcome = next_piece(bytes);
      if (outcome != LineReader::Outcome::line) {
        throw Failure(kFailed, outcome == LineReader::Outcome::end ? "the client has gone: nothing is changed"
                                                                   : "the client says nothing: nothing is changed");
      }
      awaits_bytes_ = !bytes.empty();
    }
    return bytes;
  }

  int hand_over() override {
    const int descriptor = fcntl(socket_, F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0) {
      throw std::system_error(errno, std::generic_category(), "no descriptor is left for the connection");
    }
    handed_over_ = true;
    send({{"ok", true}});
    return descriptor;
  }

  Role role() const override { return role_; }

  bool is_over() override {
    pollfd watched{socket_, POLLRDHUP, 0};
    return ending_ || (poll(&watched, 1, 0) > 0 && (watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0);
  }

 private:
  // Into an empty text, which stays empty when it is the last.
  LineReader::Outcome next_piece(std::string& bytes) {
    std::string line;
    if (const auto outcome = reader_.next(line, limits_.patience, limits_.patience);
        outcome != LineReader::Outcome::line) {
      return outcome;
    }
    const Json header = parsed(line);
    if (!header.is_object() || !header.contains("bytes") || !header["bytes"].is_number_unsigned() ||
        header["bytes"] > kLongestPiece) {
      throw RequestError("bytes come in pieces, {\"bytes\": N} before each, of at most " +
                         std::to_string(kLongestPiece));
    }
    return reader_.next_bytes(bytes, header["bytes"], limits_.patience);
  }

  Json run(const Json& request) {
    const ControlCommand& command = table_.check(request);
    awaits_bytes_ = command.takes_bytes;
    if (role_ < role_for(command.name)) {
      throw NotAllowed("\"" + command.name + "\" is for the group " + std::string(kAdminGroup) + ": you may look");
    }
    const MakerScope scope(maker_for(request));
    return command.run(request, *this);
  }

  // Whoever may do all is believed that he asks for another.
  Maker maker_for(const Json& request) const {
    Maker maker = maker_;
    if (request.contains(kOnBehalfOf)) {
      if (role_ != Role::admin) {
        throw NotAllowed("\"" + std::string(kOnBehalfOf) + "\" is believed of the group " + std::string(kAdminGroup) +
                         " alone");
      }
      maker.behalf = request[kOnBehalfOf];
    }
    return maker;
  }

  Json answer(const std::string& line) {
    try {
      Json result = {{"ok", true}};
      result.update(run(parsed(line)));
      return result;
    } catch (const RequestError& failure) {
      return error(kUsage, failure.what());
    } catch (const NotAllowed& failure) {
      auto refusal = error(kFailed, failure.what());
      refusal["needs"] = name_of(Role::admin);
      return refusal;
    } catch (const refhost::SettingError& failure) {
      return error(kUsage, failure.what());
    } catch (const Failure& failure) {
      return error(failure.status(), failure.what());
    } catch (const std::exception& failure) {
      return error(kFailed, failure.what());
    }
  }

  const int socket_;   // the server's
  const Maker maker_;  // the client
  const Role role_;    // his
  const ControlTable& table_;
  const ControlLimits limits_;
  ClientPlaces& places_;
  const std::atomic<bool>& ending_;
  LineReader reader_;
  bool handed_over_ = false;
  bool awaits_bytes_ = false;  // those of the request under way have not come to their end
};

}  // namespace

struct ControlServer::Impl {
  Impl(std::filesystem::path the_directory, ControlTable the_table, ControlLimits the_limits,
       std::filesystem::path the_groups)
      : directory(std::move(the_directory)),
        groups(std::move(the_groups)),
        place(directory, kSocketName),
        table(std::move(the_table)),
        limits(the_limits) {}

  void listen() {
    listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    wake = eventfd(0, EFD_CLOEXEC);
    keep_spare();
    if (listener < 0 || wake < 0) {
      fail(directory, "make", errno);
    }
    place.unlink();
    if (const int reason = place.bind(listener); reason != 0) {
      fail(directory, "bind", reason);
    }
    set_mode(0600);
    refhost::give_to_directorys_owner(directory / kSocketName);
    if (role_groups(groups).exist()) {  // then who comes is looked at, and told when he may not
      set_mode(0666);
    }
    if (::listen(listener, static_cast<int>(kMostClients)) != 0) {
      fail(directory, "listen at", errno);
    }
  }

  void set_mode(mode_t mode) const {
    if (const int reason = place.set_mode(mode); reason != 0) {
      fail(directory, "protect", reason);
    }
  }

  // Whether a client waits to be accepted.
  bool is_asked() const {
    pollfd watched{listener, POLLIN, 0};
    return poll(&watched, 1, 0) == 1;
  }

  void keep_spare() { spare = open("/dev/null", O_RDONLY | O_CLOEXEC); }

  // The body of the accepting thread.
  void accept_all() {
    ac::util::set_thread_name("control", pthread_self());
    std::array<pollfd, 2> watched = {{{listener, POLLIN, 0}, {wake, POLLIN, 0}}};
    while (!ending) {
      if (poll(watched.data(), watched.size(), -1) <= 0 || (watched[0].revents & POLLIN) == 0) {
        continue;
      }
      const refhost::Work::Step step(*work);
      if (const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); socket >= 0) {
        told_of_shortage = false;
        try {
          welcome(socket);
        } catch (const std::bad_alloc&) {
          close(socket);
        }
      } else if (const int reason = errno; is_shortage(reason)) {
        turn_away(std::strerror(reason));
      }
    }
  }

  static void refuse(int socket, const std::string& reason) {
    send_all(socket, line_of(error(kFailed, reason)));
    close(socket);
  }

  void welcome(int socket) {
    static const std::string kFarewell = line_of(farewell("others needed this place: connect again"));
    const auto peer = peer_at(socket, directory, role_groups(groups));
    if (!peer.has_value() || !peer->role.has_value()) {
      refuse(socket, "another user's host: its user and root may ask, and the groups " + std::string(kAdminGroup) +
                         " and " + std::string(kViewGroup));
    } else if (!places.take(socket, peer->uid == 0, kFarewell)) {
      refuse(socket, "too many clients: at most " + std::to_string(kMostClients));
    } else {
      start_serving(socket, *peer);
    }
  }

  void start_serving(int socket, const Peer& peer) {
    try {
      std::thread([this, socket, peer] { serve(socket, peer); }).detach();
    } catch (const std::system_error& failure) {
      send_all(socket, line_of(error(kFailed, std::string("no thread is left for a client: ") + failure.what())));
      places.leave(socket);
    } catch (const std::bad_alloc&) {
      places.leave(socket);
    }
  }

  // A client waits that cannot be accepted. It would be reported again and again at once: it gets the descriptor that
  // was kept for this, to be told.
  void turn_away(const char* reason) {
    if (!std::exchange(told_of_shortage, true)) {
      refhost::log::warning(std::string("clients of the control socket are turned away: ") + reason);
    }
    if (spare >= 0) {
      close(spare);
    }
    const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) {
      refuse(socket, std::string("the host can take no client: ") + reason);
    }
    keep_spare();
    if (socket < 0) {
      constexpr int kPauseMs = 200;
      pollfd end{wake, POLLIN, 0};
      poll(&end, 1, kPauseMs);
    }
  }

  // The body of a client's thread. It is detached, so that nothing of it is left when its client has gone.
  void serve(int socket, const Peer& peer) {
    ac::util::set_thread_name("control_client", pthread_self());
    try {
      Connection(socket, peer, table, limits, places, ending).serve();
    } catch (const std::bad_alloc&) {  // the client may come again
    }
    places.leave(socket);
  }

  const std::filesystem::path directory;
  const std::filesystem::path groups;
  const SocketPlace place;
  const ControlTable table;
  const ControlLimits limits;
  std::atomic<bool> ending = false;
  int listener = -1;
  int wake = -1;
  int spare = -1;                     // the accepting thread's, once that runs
  bool told_of_shortage = false;      // the accepting thread's
  std::optional<refhost::Work> work;  // a client that is accepted is a step; the accepting thread's
  std::thread thread;                 // accepts
  ClientPlaces places{kMostClients};
};

ControlServer::ControlServer(const std::filesystem::path& directory, ControlTable table, ControlLimits limits,
                             std::filesystem::path groups)
    : impl_(std::make_unique<Impl>(directory, std::move(table), limits, std::move(groups))) {
  impl_->listen();
  impl_->work.emplace("control", 1, [impl = impl_.get()] { return impl->is_asked(); });
  impl_->thread = std::thread([impl = impl_.get()] { impl->accept_all(); });
}

ControlServer::~ControlServer() {
  unlink();
  impl_->ending = true;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(impl_->wake, &one, sizeof one);
  impl_->thread.join();
  impl_->places.end_all();
  close(impl_->listener);
  close(impl_->wake);
  if (impl_->spare >= 0) {
    close(impl_->spare);
  }
}

void ControlServer::unlink() noexcept { impl_->place.unlink(); }

}  // namespace achost
