// What is served: which request gets in, and what it gets.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/base/rate_limit.h"
#include "gateway/web/access.h"
#include "gateway/web/field.h"
#include "gateway/web/live.h"
#include "gateway/web/traffic.h"

namespace web {

// Whose request it is.
struct Visitor {
  std::string address;   // where it comes from
  bool is_safe = false;  // over TLS
  std::string secret;    // the session's, or a key; may be anything
  std::optional<Role> role;
};

// What the daemon says, handed on as it comes.
struct Passing {
  gateway::Daemon::Talk talk;
  std::string type = {};  // of what comes before the answer
  std::string file = {};  // it is to be kept under that name; empty: the answer is all that is wanted
};

// What can be asked for: one of the three.
struct Route {
  http::verb verb;
  std::string_view path;
  std::optional<Role> least = {};  // nothing: anybody
  std::function<net::awaitable<Response>(const Request&, const Visitor&)> answer = {};
  std::function<Passing(const Request&, const Visitor&)> pass = {};
  Show* show = nullptr;       // events, as long as he stays
  bool takes_upload = false;  // its request may be long
};

// One thread uses it, that of the context.
class Site {
 public:
  static constexpr std::size_t kLongestBody = 16 * 1024;
  static constexpr std::size_t kLongestUpload = std::size_t{16} << 20;  // 100,000 people with cards are 10 MB at most

  // So many at once, so many a second: a page with its parts is half a dozen, a person who works on it one or two.
  static constexpr double kRequestsAtOnce = 100;
  static constexpr double kRequestsPerSecond = 20;

  // names: of this machine, as a browser's address line has them.
  Site(net::io_context& context, Access& access, Live& live, Traffic& traffic, Field& field, gateway::Daemon& daemon,
       std::vector<std::string> names, gateway::RateLimit limit = {kRequestsAtOnce, kRequestsPerSecond});

  // What a request may have: its route, or the answer that refuses it.
  struct Admission {
    const Route* route = nullptr;
    std::optional<Response> refused;
    Visitor visitor;
    std::shared_ptr<void> upload = {};  // the place of a long request: there is one
  };
  Admission admit(const Request& request, const std::string& address, bool is_safe);

  net::awaitable<Response> answer(const Admission& admission, const Request& request);

  gateway::Daemon& daemon() { return daemon_; }

  // For what has been thrown, within its handler.
  static Response answer_of_failure();

  // Whether he still may have the live events.
  bool may_look(const Visitor& visitor);

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
  net::awaitable<Response> take_people(const Request& request, const Visitor& visitor, const char* command);
  Passing enrollment(const Request& request, const Visitor& visitor);
  Json on_behalf(const Visitor& visitor, Json request);

  Access& access_;
  Live& live_;
  Traffic& traffic_;
  Field& field_;
  gateway::Daemon& daemon_;
  Latest figures_;
  const std::vector<std::string> names_;
  gateway::RateLimit limit_;  // of requests, by session or address
  std::weak_ptr<void> upload_;
  const std::vector<Route> routes_;
};

}  // namespace web
