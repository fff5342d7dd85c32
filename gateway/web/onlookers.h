// Those who look on at something that goes on.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/web/http.h"

namespace web {

// One of them. What he has not taken waits, within a bound.
class Onlooker {
 public:
  // Bytes. Who is further behind gets these and is dropped, so that he comes back further on than he was.
  static constexpr std::size_t kMostWaiting = std::size_t{512} * 1024;

  explicit Onlooker(net::io_context& context);

  // What has come, once something has; empty after a while without anything. Nothing when it is over and
  // nothing waits any more.
  net::awaitable<std::optional<std::string>> next(std::chrono::milliseconds longest);

  void put(const std::string& text);
  void end();
  bool is_over() const { return is_over_; }

 private:
  net::steady_timer wake_;
  std::string waiting_;
  bool is_over_ = false;
};

// All of them. One thread uses it, that of the context.
class Onlookers {
 public:
  Onlookers(net::io_context& context, std::size_t most);

  // Null when there are too many. beginning: what he gets first.
  std::shared_ptr<Onlooker> add(const std::string& beginning = "");

  void leave(const std::shared_ptr<Onlooker>& onlooker) { all_.erase(onlooker); }
  bool empty() const { return all_.empty(); }
  void publish(const std::string& text);

  // Until somebody looks on.
  net::awaitable<void> wait_for_one();

 private:
  net::io_context& context_;
  const std::size_t most_;
  std::set<std::shared_ptr<Onlooker>> all_;
  net::steady_timer somebody_;  // cancelled when somebody comes
};

// What can be looked on at.
class Show {
 public:
  virtual ~Show() = default;

  // He gets what was behind that event first, where it is kept. Null when there are too many.
  virtual std::shared_ptr<Onlooker> look_on(std::string_view last_event) = 0;
  virtual void leave(const std::shared_ptr<Onlooker>& onlooker) = 0;

  // What stands before all that goes on.
  virtual net::awaitable<std::string> beginning() = 0;
};

}  // namespace web
