// What is served: which request gets in, and what it gets.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/web/access.h"
#include "gateway/web/live.h"
#include "gateway/web/rate_limit.h"

namespace web {

// Whose request it is.
struct Visitor {
  std::string address;   // where it comes from
  bool is_safe = false;  // over TLS
  std::string secret;    // the session's, or a key; may be anything
  std::optional<Role> role;
};

// What can be asked for.
struct Route {
  http::verb verb;
  std::string_view path;
  std::optional<Role> least;                                                       // nothing: anybody
  std::function<net::awaitable<Response>(const Request&, const Visitor&)> answer;  // null: the live events
};

// One thread uses it, that of the context.
class Site {
 public:
  static constexpr std::size_t kLongestBody = 16 * 1024;

  // So many at once, so many a second: a page with its parts is half a dozen, a person who works on it one or two.
  static constexpr double kRequestsAtOnce = 100;
  static constexpr double kRequestsPerSecond = 20;

  // names: of this machine, as a browser's address line has them.
  Site(net::io_context& context, Access& access, Live& live, Daemon& daemon, std::vector<std::string> names,
       RateLimit limit = {kRequestsAtOnce, kRequestsPerSecond});

  // What a request may have: its route, or the answer that refuses it.
  struct Admission {
    const Route* route = nullptr;
    std::optional<Response> refused;
    Visitor visitor;
  };
  Admission admit(const Request& request, const std::string& address, bool is_safe);

  net::awaitable<Response> answer(const Admission& admission, const Request& request);

  // Whether he still may have the live events.
  bool may_look(const Visitor& visitor);

  Live& live() { return live_; }

 private:
  std::optional<Response> refused_by_host(const Request& request) const;
  std::optional<Response> refused_by_origin(const Request& request, bool is_safe) const;
  const Route* find(const Request& request, std::optional<Response>& refused) const;
  std::vector<Route> routes();

  net::awaitable<Response> enter(const Request& request, const Visitor& visitor);
  net::awaitable<Response> leave(const Visitor& visitor);
  net::awaitable<Response> status();
  net::awaitable<Response> metrics(const Request& request);
  net::awaitable<Response> command(const Request& request, const Visitor& visitor);

  Access& access_;
  Live& live_;
  Daemon& daemon_;
  Latest figures_;
  const std::vector<std::string> names_;
  RateLimit limit_;  // of requests, by session or address
  const std::vector<Route> routes_;
};

}  // namespace web
