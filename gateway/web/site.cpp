#include "gateway/web/site.h"

#include <algorithm>
#include <array>

#include "gateway/web/commands.h"
#include "gateway/web/metrics.h"
#include "gateway/web/page.h"
#include "version.h"

namespace web {
namespace {

constexpr const char* kCookie = "achost_session";

// "door.local" of "door.local:8443", "[::1]" of "[::1]:8080".
std::string_view without_port(std::string_view host) {
  const auto colon = host.rfind(':');
  const auto bracket = host.rfind(']');
  const bool has_port = colon != host.npos && (bracket == host.npos || bracket < colon);
  return has_port ? host.substr(0, colon) : host;
}

std::string secret_of(const Request& request) {
  constexpr std::string_view kBearer = "Bearer ";
  const auto authorization = view_of(request[http::field::authorization]);
  if (authorization.starts_with(kBearer)) {
    return std::string(authorization.substr(kBearer.size()));
  }
  std::string_view rest = view_of(request[http::field::cookie]);
  while (!rest.empty()) {
    const std::string_view one = rest.substr(0, rest.find(';'));
    rest.remove_prefix(std::min(rest.size(), one.size() + 1));
    const auto name = one.substr(std::min(one.find_first_not_of(' '), one.size()));
    if (name.starts_with(std::string(kCookie) + "=")) {
      return std::string(name.substr(std::string_view(kCookie).size() + 1));
    }
  }
  return "";
}

std::string cookie(const std::string& secret, Seconds life, bool is_safe) {
  return std::string(kCookie) + "=" + secret + "; Path=/; Max-Age=" + std::to_string(life) +
         "; HttpOnly; SameSite=Strict" + (is_safe ? "; Secure" : "");
}

Response session_answer(std::optional<Role> role) {
  return json_answer({{"role", role.has_value() ? Json(name_of(*role)) : Json(nullptr)}, {"version", UHF_VERSION}});
}

Json object_in(const Request& request) {
  Json body = gateway::parsed(request.body());
  return body.is_object() ? std::move(body) : Json::object();
}

std::string text_in(const Json& object, const char* field) {
  const auto found = object.find(field);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

std::optional<Response> refused_by_role(Role least, const Visitor& visitor) {
  if (!visitor.role.has_value()) {
    return refusal(http::status::unauthorized, "nobody is logged in here: `achost-web link` on the door lets you in");
  }
  if (*visitor.role < least) {
    return refusal(http::status::forbidden, std::string("this session may not: it is for ") + name_of(*visitor.role) +
                                                ", and this for " + name_of(least));
  }
  return std::nullopt;
}

}  // namespace

Site::Site(net::io_context& context, Access& access, Live& live, Traffic& traffic, Field& field,
           gateway::Daemon& daemon, std::vector<std::string> names, gateway::RateLimit limit)
    : access_(access),
      live_(live),
      traffic_(traffic),
      field_(field),
      daemon_(daemon),
      figures_(context, daemon, "figures"),
      names_(std::move(names)),
      limit_(std::move(limit)),
      routes_(routes()) {}

std::vector<Route> Site::routes() {
  using Visitors = const Visitor&;
  using Requests = const Request&;
  const auto csv = [](Requests, Visitors) {
    return Passing{.talk = {.request = {{"command", "user_export"}, {"format", "csv"}}},
                   .type = "text/csv; charset=utf-8",
                   .file = "people.csv"};
  };
  const auto recording = [](Requests, Visitors) {
    return Passing{.talk = {.request = {{"command", "recording"}}}, .type = "text/plain", .file = "door.uhfrec"};
  };
  std::vector<Route> all = {
      {.verb = http::verb::get,
       .path = "/api/session",
       .answer = [](Requests, Visitors visitor) -> net::awaitable<Response> {
         co_return session_answer(visitor.role);
       }},
      {.verb = http::verb::post,
       .path = "/api/session",
       .answer = [this](Requests request, Visitors visitor) { return enter(request, visitor); }},
      {.verb = http::verb::delete_,
       .path = "/api/session",
       .least = Role::metrics,
       .answer = [this](Requests, Visitors visitor) { return leave(visitor); }},
      {.verb = http::verb::get,
       .path = "/api/status",
       .least = Role::view,
       .answer = [this](Requests, Visitors) { return status(); }},
      {.verb = http::verb::get, .path = "/api/events", .least = Role::view, .show = &live_},
      {.verb = http::verb::get, .path = "/api/traffic", .least = Role::view, .show = &traffic_},
      {.verb = http::verb::get, .path = "/api/field", .least = Role::view, .show = &field_},
      {.verb = http::verb::get, .path = "/api/recording", .least = Role::view, .pass = recording},
      {.verb = http::verb::get, .path = "/api/people", .least = Role::view, .pass = csv},
      {.verb = http::verb::post,
       .path = "/api/people",
       .least = Role::admin,
       .answer = [this](Requests request, Visitors visitor) { return take_people(request, visitor, "user_import"); },
       .takes_upload = true},
      {.verb = http::verb::post,
       .path = "/api/people/plan",
       .least = Role::admin,
       .answer = [this](Requests request, Visitors visitor) { return take_people(request, visitor, "user_plan"); },
       .takes_upload = true},
      {.verb = http::verb::post,
       .path = "/api/enrollment",
       .least = Role::admin,
       .pass = [this](Requests request, Visitors visitor) { return enrollment(request, visitor); }},
      {.verb = http::verb::post,
       .path = "/api/command",
       .least = Role::view,
       .answer = [this](Requests request, Visitors visitor) { return command(request, visitor); }},
      {.verb = http::verb::get,
       .path = "/metrics",
       .least = Role::metrics,
       .answer = [this](Requests request, Visitors) { return metrics(request); }},
  };
  for (const Part& part : page()) {
    all.push_back({.verb = http::verb::get,
                   .path = part.path,
                   .answer = [&part](Requests, Visitors) -> net::awaitable<Response> { co_return page_answer(part); }});
  }
  return all;
}

// Another site may have a name that leads here: its pages then read what this one answers, unless the name counts.
std::optional<Response> Site::refused_by_host(const Request& request) const {
  const auto host = without_port(view_of(request[http::field::host]));
  if (request.count(http::field::host) == 1 && std::ranges::find(names_, host) != names_.end()) {
    return std::nullopt;
  }
  return refusal(http::status::misdirected_request,
                 "this is no name of the door: achost-web run --name NAME lets it count");
}

// Another site's page may send anything here, with the session's cookie; its browser says where it comes from.
std::optional<Response> Site::refused_by_origin(const Request& request, bool is_safe) const {
  const bool is_there = request.count(http::field::origin) != 0;
  const std::string own = (is_safe ? "https://" : "http://") + std::string(view_of(request[http::field::host]));
  const bool changes = request.method() != http::verb::get;
  if (is_there ? view_of(request[http::field::origin]) == own : !changes) {
    return std::nullopt;
  }
  return refusal(http::status::forbidden, is_there ? "another site may not ask for this"
                                                   : "a request that changes something needs \"Origin: " + own + "\"");
}

const Route* Site::find(const Request& request, std::optional<Response>& refused) const {
  const auto target = view_of(request.target());
  const auto path = target.substr(0, target.find('?'));
  bool is_known = false;
  for (const Route& route : routes_) {
    if (route.path == path) {
      is_known = true;
      if (route.verb == request.method()) {
        return &route;
      }
    }
  }
  refused = is_known ? refusal(http::status::method_not_allowed, "this cannot be done there")
                     : refusal(http::status::not_found, "there is nothing there");
  return nullptr;
}

Site::Admission Site::admit(const Request& request, const std::string& address, bool is_safe) {
  Admission admission;
  Visitor& visitor = admission.visitor;
  visitor = {address, is_safe, secret_of(request), {}};
  visitor.role = access_.role_of_secret(visitor.secret, now());
  // Who has a session does not wait for others at the same address.
  if (!limit_.take(visitor.role.has_value() ? visitor.secret : address, gateway::RateLimit::Time::clock::now())) {
    admission.refused = refusal(http::status::too_many_requests, "too many requests: wait a second");
    admission.refused->set(http::field::retry_after, "1");
    admission.refused->keep_alive(false);
    return admission;
  }
  if (!(admission.refused = refused_by_host(request)) && !(admission.refused = refused_by_origin(request, is_safe))) {
    admission.route = find(request, admission.refused);
    if (admission.route != nullptr) {
      admission.refused =
          admission.route->least.has_value() ? refused_by_role(*admission.route->least, visitor) : std::nullopt;
    }
  }
  if (!admission.refused.has_value() && admission.route->takes_upload) {
    if (!upload_.expired()) {
      admission.refused = refusal(http::status::service_unavailable, "another import is on its way: try again");
    }
    upload_ = admission.upload = std::make_shared<int>();
  }
  return admission;
}

bool Site::may_look(const Visitor& visitor) {
  const auto role = access_.role_of_secret(visitor.secret, now());
  return role.has_value() && *role >= Role::view;
}

Response Site::answer_of_failure() {
  try {
    throw;
  } catch (const gateway::NoDaemon& failure) {
    return refusal(http::status::service_unavailable, failure.what());
  } catch (const gateway::Refused& failure) {
    return json_answer({{"error", failure.what()}, {"status", failure.status()}}, http::status::unprocessable_entity);
  } catch (const std::exception& failure) {
    return refusal(http::status::internal_server_error, failure.what());
  }
}

net::awaitable<Response> Site::answer(const Admission& admission, const Request& request) {
  Response response;
  try {
    response = co_await admission.route->answer(request, admission.visitor);
  } catch (const std::exception&) {
    response = answer_of_failure();
  }
  co_return response;
}

net::awaitable<Response> Site::enter(const Request& request, const Visitor& visitor) {
  const auto entered = access_.enter(text_in(object_in(request), "link"), now());
  if (entered.has_value()) {
    Response response = session_answer(entered->role);
    response.set(http::field::set_cookie, cookie(entered->secret, entered->until - now(), visitor.is_safe));
    co_return response;
  }
  co_return refusal(http::status::unauthorized,
                    "this link has been used, or is too old: `achost-web link` on the door makes another");
}

net::awaitable<Response> Site::leave(const Visitor& visitor) {
  access_.leave(visitor.secret);
  Response response = session_answer({});
  response.set(http::field::set_cookie, cookie("", 0, visitor.is_safe));
  co_return response;
}

net::awaitable<Response> Site::status() {
  const auto snapshot = co_await live_.status();
  if (!snapshot->answer.has_value()) {
    co_return refusal(http::status::service_unavailable, snapshot->error);
  }
  co_return json_answer(*snapshot->answer);
}

net::awaitable<Response> Site::metrics(const Request& request) {
  const auto snapshot = co_await figures_.get();
  const auto form = metrics_form(view_of(request[http::field::accept]));
  co_return web::answer(http::status::ok, content_type(form), metrics_text(*snapshot, form));
}

net::awaitable<Response> Site::command(const Request& request, const Visitor& visitor) {
  Json wanted = object_in(request);
  const auto known = command_of(text_in(wanted, "command"));
  if (!known.has_value()) {
    co_return refusal(http::status::bad_request, "there is no such command here: there are " + commands_text());
  }
  if (auto refused = refused_by_role(known->least, visitor)) {
    co_return std::move(*refused);
  }
  wanted = on_behalf(visitor, std::move(wanted));
  const Json answer = co_await daemon_.ask(wanted, known->patience);
  co_return json_answer(answer);
}

// The journal keeps who it was.
Json Site::on_behalf(const Visitor& visitor, Json request) {
  const std::string name = access_.name_of_secret(visitor.secret);
  request["on_behalf_of"] = (name.empty() ? "somebody" : name) + " at " + visitor.address;
  return request;
}

// A table of people: what would become of whom, or what has. A screen has no use for all of a long list.
net::awaitable<Response> Site::take_people(const Request& request, const Visitor& visitor, const char* command) {
  static constexpr std::size_t kMostText = std::size_t{16} * 1024;
  const auto target = view_of(request.target());
  gateway::Daemon::Talk talk{.request = on_behalf(visitor, {{"command", command}}), .bytes = request.body()};
  for (const char* option : {"replace", "move"}) {
    talk.request[option] = target.find(std::string(option) + "=1") != target.npos;
  }
  std::string text;
  const gateway::Daemon::Take take = [&text](std::string piece) -> net::awaitable<bool> {
    text += piece.substr(0, kMostText - std::min<std::size_t>(kMostText, text.size()));
    co_return true;
  };
  gateway::Hangup hangup;
  Json answer = co_await daemon_.talk(talk, take, hangup);
  answer["plan"] = text.substr(0, text.rfind('\n') + 1);
  co_return json_answer(answer);
}

// The daemon waits for a card as long as it is set to, or until he has gone.
Passing Site::enrollment(const Request& request, const Visitor& visitor) {
  Json wanted = {{"command", "enroll"}, {"wait", true}};
  if (const Json body = object_in(request); body.contains("user")) {
    wanted["user"] = body.at("user");
  }
  return {.talk = {.request = on_behalf(visitor, std::move(wanted)), .patience = std::nullopt}};
}

}  // namespace web
