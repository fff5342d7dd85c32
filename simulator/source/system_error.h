#pragma once

#include <cerrno>
#include <system_error>

namespace uhfsim {

/// The result of a system call, if it is no failure; otherwise throws std::system_error with errno and what was tried.
template <class Result>
Result checked(Result result, const char* tried) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), tried);
  return result;
}

/// The same for calls that put the client off: nothing was done when the call was interrupted or would have blocked.
template <class Result>
Result checked_or_nothing(Result result, const char* tried) {
  if (result < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
  return checked(result, tried);
}

}  // namespace uhfsim
