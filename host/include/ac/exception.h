// The host's exception type.
#pragma once

#include <exception>
#include <string>

namespace ac {

// A failure with a text. It crosses the boundary between host and plug-in by type, so it is the one class that is
// complete in its header. May be thrown and caught on any thread.
class ac_exception : public std::exception {
 public:
  // text: what went wrong, returned by what(). flag: the host's business; plug-ins pass true.
  ac_exception(const std::string& text, bool flag) : text_(text), flag_(flag) {}

  // The text given at construction; valid as long as the exception.
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
  [[maybe_unused]] bool flag_;
};

}  // namespace ac
