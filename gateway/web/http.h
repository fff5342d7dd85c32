// What goes over HTTP, as the other files name it.
#pragma once

// Boost's coroutines use std::exchange without it.
#include <utility>
// This comes behind.
#include <boost/asio/awaitable.hpp>
#include <boost/beast/http.hpp>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace web {

namespace net = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

using Json = nlohmann::ordered_json;
using Request = http::request<http::string_body>;
using Response = http::response<http::string_body>;

inline std::string_view view_of(boost::beast::string_view text) { return {text.data(), text.size()}; }
inline boost::beast::string_view boost_view_of(std::string_view text) { return {text.data(), text.size()}; }

// With the headers that all answers have: the page may load nothing from anywhere else, run no script of its own text,
// and stand in no frame.
Response answer(http::status status, std::string_view type, std::string body);
Response json_answer(const Json& json, http::status status = http::status::ok);

// {"error": TEXT}: what is wrong, and the way out.
Response refusal(http::status status, const std::string& text);

}  // namespace web
