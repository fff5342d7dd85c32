// Who is connected to the control socket.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace achost {

// A bounded number of places for clients, by their sockets. Any thread may call.
class ClientPlaces {
 public:
  // most: places for everyone; root has one more.
  explicit ClientPlaces(std::size_t most) : most_(most) {}

  // Give the client a place. When all are taken, whoever has waited longest without a request goes, with that farewell;
  // false when nobody waits.
  bool take(int socket, bool is_root, const std::string& farewell);

  // Whether the client may go on: it has not been sent away. From then on it does not wait.
  bool begin_request(int socket);

  void end_request(int socket);

  // Closes the socket, on the thread that serves it.
  void leave(int socket);

  // Shut every connection down and wait until all have left.
  void end_all();

 private:
  using Time = std::chrono::steady_clock::time_point;
  struct Client {
    std::optional<Time> waits_since;  // nothing during a request
    bool sent_away = false;
  };

  bool send_one_away(const std::string& farewell);

  const std::size_t most_;
  std::mutex mutex_;  // guards all below
  std::condition_variable gone_;
  std::map<int, Client> clients_;
  std::size_t staying_ = 0;  // of the clients, those not sent away
};

}  // namespace achost
