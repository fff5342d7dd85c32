// Makes the door what is desired of it.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "gateway/base/daemon.h"
#include "gateway/mqtt/broker.h"
#include "gateway/mqtt/document.h"

namespace mqtt {

// Fetches the parts that it lacks one by one, keeps them on the disk, and gives the daemon the document: the difference
// where the daemon has the revision whose parts are here, the whole one else. One thread uses it, that of the context.
class Desired {
 public:
  // A difference of more is no advantage, and would have to be kept in memory.
  static constexpr std::size_t kLargestDifference = std::size_t{1} << 20;  // bytes of the parts that differ

  struct Needs {
    net::io_context& context;
    gateway::Daemon& daemon;
    Broker& broker;
    std::string door;
    std::filesystem::path directory;              // for the parts
    std::function<void(const std::string&)> say;  // a line for a person
    // What the daemon has refused is tried again after that: its disk may have been full.
    std::chrono::milliseconds after_refusal = std::chrono::minutes(5);
  };

  explicit Desired(Needs needs);

  // For ever.
  net::awaitable<void> run();

  void broker_is_up();

  // The door may be another than it was: what is desired of it is compared again.
  void look_again();

  // What has come at desired, or at a part of it.
  void take_manifest(std::string_view payload);
  void take_part(std::string_view hash, std::string_view payload);

 private:
  net::awaitable<void> fulfil(const Manifest manifest);
  net::awaitable<void> fetch(const std::string& hash);
  net::awaitable<bool> apply_difference(const Manifest& manifest);
  net::awaitable<void> apply_whole(const Manifest& manifest);
  net::awaitable<Json> give(const Json& request, const std::function<bool(std::string&)>& next);
  std::optional<std::string> difference_to(const Manifest& manifest) const;
  std::string part(const std::string& hash) const;
  bool has(const std::string& hash) const;
  void forget_others(const Manifest& manifest) const;
  void answer(const Json& what);

  const Needs needs_;
  std::optional<Manifest> newest_;  // that has come
  std::optional<Manifest> wanted_;  // the newest; nothing when it has been dealt with
  std::chrono::steady_clock::time_point again_at_ =
      std::chrono::steady_clock::time_point::max();  // the newest is wanted
  std::optional<Manifest> applied_;                  // whose parts are here
  std::string fetched_hash_;                         // the part that is awaited
  std::optional<std::string> fetched_;
  net::steady_timer wake_;
};

}  // namespace mqtt
