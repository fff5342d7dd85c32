#include "door/control/client_places.h"

#include <sys/socket.h>
#include <unistd.h>

namespace achost {

bool ClientPlaces::take(int socket, bool is_root, const std::string& farewell) {
  const std::lock_guard lock(mutex_);
  const bool has_room = staying_ < most_ || send_one_away(farewell) || (is_root && staying_ == most_);
  if (has_room) {
    clients_[socket] = {.waits_since = std::chrono::steady_clock::now()};
    ++staying_;
  }
  return has_room;
}

// With the mutex held. Its own thread sees the end of the connection and leaves.
bool ClientPlaces::send_one_away(const std::string& farewell) {
  auto longest = clients_.end();
  for (auto it = clients_.begin(); it != clients_.end(); ++it) {
    const auto& [waits_since, sent_away] = it->second;
    if (!sent_away && waits_since.has_value() &&
        (longest == clients_.end() || waits_since < longest->second.waits_since)) {
      longest = it;
    }
  }
  if (longest == clients_.end()) {
    return false;
  }
  longest->second.sent_away = true;
  --staying_;
  send(longest->first, farewell.data(), farewell.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  shutdown(longest->first, SHUT_RDWR);
  return true;
}

bool ClientPlaces::begin_request(int socket) {
  const std::lock_guard lock(mutex_);
  auto& client = clients_.at(socket);
  client.waits_since.reset();
  return !client.sent_away;
}

void ClientPlaces::end_request(int socket) {
  const std::lock_guard lock(mutex_);
  clients_.at(socket).waits_since = std::chrono::steady_clock::now();
}

void ClientPlaces::leave(int socket) {
  const std::lock_guard lock(mutex_);
  close(socket);
  staying_ -= clients_.at(socket).sent_away ? 0 : 1;
  clients_.erase(socket);
  gone_.notify_all();  // with the lock held: this may be destroyed as soon as it is free
}

void ClientPlaces::end_all() {
  std::unique_lock lock(mutex_);
  for (const auto& [socket, client] : clients_) {
    shutdown(socket, SHUT_RDWR);
  }
  gone_.wait(lock, [this] { return clients_.empty(); });
}

}  // namespace achost
