// The answering side of a message.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ac/message.h"

namespace refhost {

// An answer to a message, for its handler:
//
//   refhost::Answer(*message).add_int("value", 1).send();
//
// It may outlive the message and be sent later, on any thread: the sender waits until every recipient has let go of
// both the message and its answers. Used by one thread at a time.
class Answer {
 public:
  // An answer to that message, which must still be the handler's.
  explicit Answer(const ac::Message& message);
  ~Answer();
  Answer(Answer&&) noexcept;
  Answer& operator=(Answer&&) noexcept;

  // Append a field.
  Answer& add_int(const std::string& name, int value);
  Answer& add_int64(const std::string& name, std::int64_t value);
  Answer& add_string(const std::string& name, const std::string& value);

  // Hand the answer to the sender: wakes one that waits, calls the ReplyCallback of one that does not (here, on this
  // thread; what it throws leaves send()). Only the first answer to a message counts. False when it went to nobody:
  // answered before, the sender has given up, or it never asked.
  bool send();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
