// Rows before an answer: a line of JSON each, or packed.
#pragma once

#include <string>

#include "door/control/control.h"

namespace achost {

// The field by which a request asks for packed rows. They are the command line's own, for millions of rows on one
// machine, and change with it; whoever does not ask gets lines.
inline const ControlField kForm{"form", ControlField::Type::text, false};

inline bool wants_packed(const Json& request) {
  const auto form = request.value(kForm.name, "json");
  if (form != "json" && form != "packed") {
    throw RequestError("\"form\" is json or packed");
  }
  return form == "packed";
}

// Sends lines, many at a time.
class RowLines {
 public:
  // The stream outlives it.
  explicit RowLines(ControlStream& stream) : stream_(stream) {}

  void add(const Json& line) {
    waiting_ += line_of(line);
    if (waiting_.size() >= kLongestPiece) {
      flush();
    }
  }

  // Send what waits; false when the client has gone or does not read.
  bool flush() {
    is_read_ = is_read_ && (waiting_.empty() || stream_.send_lines(waiting_));
    waiting_.clear();
    return is_read_;
  }

 private:
  ControlStream& stream_;
  std::string waiting_;
  bool is_read_ = true;
};

}  // namespace achost
