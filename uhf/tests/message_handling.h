// Calling the plug-in's handlers, and what they sent.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "failure.h"
#include "second_host.h"

// A message in the hands of a handler.
struct Handled {
  std::unique_ptr<ac::Message> message;
  std::string failure;  // the text of the exception that left the handler; empty when none did

  bool marked() const { return second_host::is_handled(*message); }
};

// Calls a handler with a message of those fields.
inline Handled handle(void (*handler)(ac::Message*), const std::string& type, const second_host::Fields& fields = {}) {
  Handled result{second_host::make_message(type, fields), ""};
  result.failure = failure_of([&] { handler(result.message.get()); });
  return result;
}

// The types of all messages sent, in order.
inline std::vector<std::string> sentTypes() {
  std::vector<std::string> types;
  for (const auto& message : second_host::host().messages()) {
    types.push_back(message.type);
  }
  return types;
}
