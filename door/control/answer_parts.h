// Answers that come in parts, so that nothing is held for one who takes his time.
#pragma once

#include "door/control/control.h"

namespace achost {

// A part ends with the row that makes it as long: it is to lie in the socket as a whole, so that nobody waits for a
// client that is busy with the one before.
inline constexpr std::size_t kEnoughForAPart = kLongestPiece / 2;

// The request for what is behind an answer with "after" and "to".
inline Json request_behind(const Json& request, const Json& answer) {
  Json next = request;
  next.erase("last");
  next["after"] = answer.at("after");
  next["to"] = answer.at("to");
  return next;
}

// The number in a field of a request, where it is given.
inline std::optional<std::int64_t> number_in(const Json& request, const char* field) {
  return request.contains(field) ? std::optional(request[field].get<std::int64_t>()) : std::nullopt;
}

}  // namespace achost
