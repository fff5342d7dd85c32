#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>

#include "ac/util.h"
#include "door/control/control.h"
#include "door/control/line_socket.h"
#include "refhost/log.h"
#include "refhost/settings_schema.h"

namespace achost {
namespace {

constexpr const char* kSocketName = "control.sock";

// Exit statuses of a program whose request failed.
constexpr int kFailed = 1;
constexpr int kWrong = 2;

// A text that a client sent may hold anything: what is no UTF-8 is replaced.
std::string line_of(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"; }

Json error(int status, const std::string& text) { return {{"ok", false}, {"status", status}, {"error", text}}; }

[[noreturn]] void fail(const std::filesystem::path& directory, const std::string& what, int reason) {
  throw ac::ac_exception(
      "cannot " + what + " the control socket in " + directory.string() + ": " + std::strerror(reason), true);
}

bool is_trusted(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && (peer.uid == geteuid() || peer.uid == 0);
}

// One client, on a thread of its own.
class Connection : public ControlStream {
 public:
  Connection(int socket, const ControlTable& table, const std::atomic<bool>& ending)
      : socket_(socket), table_(table), ending_(ending) {
    const timeval patience{.tv_sec = ControlServer::kPatience.count(), .tv_usec = 0};
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  }

  void serve() {
    LineReader reader(socket_, ControlServer::kLongestRequest);
    std::string line;
    for (;;) {
      switch (reader.next(line, ControlServer::kPatience)) {
        case LineReader::Outcome::line:
          if (!send(answer(line))) {
            return;
          }
          break;
        case LineReader::Outcome::too_long:
          send(error(kWrong, "a request has at most " + std::to_string(ControlServer::kLongestRequest) + " bytes"));
          return;
        case LineReader::Outcome::too_late:
          send(error(kWrong, "the request has no end: a newline ends it"));
          return;
        case LineReader::Outcome::end:
          return;
      }
    }
  }

  bool send(const Json& line) override { return send_all(socket_, line_of(line)); }

  bool is_over() override {
    pollfd watched{socket_, POLLRDHUP, 0};
    return ending_ || (poll(&watched, 1, 0) > 0 && (watched.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0);
  }

 private:
  Json answer(const std::string& line) {
    try {
      const Json request = Json::parse(line);
      Json result = {{"ok", true}};
      result.update(table_.check(request).run(request, *this));
      return result;
    } catch (const Json::parse_error&) {
      return error(kWrong, "the request is no JSON");
    } catch (const RequestError& failure) {
      return error(kWrong, failure.what());
    } catch (const refhost::SettingError& failure) {
      return error(kWrong, failure.what());
    } catch (const std::exception& failure) {
      return error(kFailed, failure.what());
    }
  }

  const int socket_;  // the server's
  const ControlTable& table_;
  const std::atomic<bool>& ending_;
};

}  // namespace

struct ControlServer::Impl {
  Impl(const std::filesystem::path& directory, ControlTable the_table)
      : place(directory, kSocketName), table(std::move(the_table)) {}

  void listen(const std::filesystem::path& directory) {
    listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    wake = eventfd(0, EFD_CLOEXEC);
    if (listener < 0 || wake < 0) {
      fail(directory, "make", errno);
    }
    place.unlink();
    if (const int reason = place.bind(listener); reason != 0) {
      fail(directory, "bind", reason);
    }
    if (const int reason = place.make_private(); reason != 0) {
      fail(directory, "protect", reason);
    }
    if (::listen(listener, static_cast<int>(kMostClients)) != 0) {
      fail(directory, "listen at", errno);
    }
  }

  // The body of the accepting thread.
  void accept_all() {
    ac::util::set_thread_name("control", pthread_self());
    std::array<pollfd, 2> watched = {{{listener, POLLIN, 0}, {wake, POLLIN, 0}}};
    while (!ending) {
      if (poll(watched.data(), watched.size(), -1) > 0 && (watched[0].revents & POLLIN) != 0) {
        take(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
      }
    }
  }

  // On the accepting thread.
  void take(int socket) {
    if (socket < 0) {
      return;
    }
    std::unique_lock lock(mutex);
    const bool full = clients.size() >= kMostClients;
    if (full || !is_trusted(socket)) {
      lock.unlock();
      send_all(socket, line_of(error(kFailed, full ? "too many clients: at most " + std::to_string(kMostClients)
                                                   : "another user's host")));
      close(socket);
      return;
    }
    clients.insert(socket);
    std::thread([this, socket] { serve(socket); }).detach();
  }

  // The body of a client's thread. It is detached, so that nothing of it is left when its client has gone.
  void serve(int socket) {
    ac::util::set_thread_name("control_client", pthread_self());
    Connection(socket, table, ending).serve();
    const std::lock_guard lock(mutex);
    close(socket);
    clients.erase(socket);
    gone.notify_all();  // with the lock held: the server may be destroyed as soon as it is free
  }

  void end_clients() {
    std::unique_lock lock(mutex);
    for (const int socket : clients) {
      shutdown(socket, SHUT_RDWR);
    }
    gone.wait(lock, [this] { return clients.empty(); });
  }

  const SocketPlace place;
  const ControlTable table;
  std::atomic<bool> ending = false;
  int listener = -1;
  int wake = -1;
  std::thread thread;  // accepts
  std::mutex mutex;    // guards clients
  std::condition_variable gone;
  std::set<int> clients;  // their sockets; each is closed by its thread
};

ControlServer::ControlServer(const std::filesystem::path& directory, ControlTable table)
    : impl_(std::make_unique<Impl>(directory, std::move(table))) {
  impl_->listen(directory);
  impl_->thread = std::thread([impl = impl_.get()] { impl->accept_all(); });
}

ControlServer::~ControlServer() {
  unlink();
  impl_->ending = true;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(impl_->wake, &one, sizeof one);
  impl_->thread.join();
  impl_->end_clients();
  close(impl_->listener);
  close(impl_->wake);
}

void ControlServer::unlink() noexcept { impl_->place.unlink(); }

}  // namespace achost
