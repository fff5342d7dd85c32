#include "gateway/web/http.h"

#include <array>

namespace web {
namespace {

constexpr std::array<std::pair<const char*, const char*>, 6> kHeaders = {{
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; base-uri 'none'; "
     "form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
}};

}  // namespace

Response answer(http::status status, std::string_view type, std::string body) {
  Response response(status, 11);
  for (const auto& [name, value] : kHeaders) {
    response.set(name, value);
  }
  response.set(http::field::content_type, boost_view_of(type));
  response.body() = std::move(body);
  return response;
}

Response json_answer(const Json& json, http::status status) {
  return answer(status, "application/json", json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

Response refusal(http::status status, const std::string& text) { return json_answer({{"error", text}}, status); }

}  // namespace web
