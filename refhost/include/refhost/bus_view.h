// Looking at the bus from outside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "ac/message.h"

namespace refhost {

// A queue of a subscriber or of a plug-in.
struct QueueState {
  std::string name;
  std::size_t waiting = 0;    // messages, besides those that its thread has taken and is handling
  std::size_t bound = 0;      // of them
  std::uint64_t dropped = 0;  // messages that found it full, since it was made
};

// Every queue of the process, in the order of their making. Any thread may call.
std::vector<QueueState> queue_states();

// The fields of a message, in their order.
nlohmann::ordered_json fields_of(const ac::Message& message);

// The same as bytes that can be kept without a look at each: valid as long as the message, and read by this process
// alone.
std::string_view field_bytes(const ac::Message& message);
nlohmann::ordered_json fields_of(std::string_view bytes);

// "identifier_new_card value=33 uuid=...": the type and the fields in their order, control characters escaped.
std::string line_of(const ac::Message& message);

// Sees every message that is sent, while it lives.
class BusTap {
 public:
  // see: called for each message on the sender's thread, so it is to be quick; it must not send.
  explicit BusTap(std::function<void(const ac::Message&)> see);

  // When it returns, the function is not called any more.
  ~BusTap();

  BusTap(const BusTap&) = delete;
  BusTap& operator=(const BusTap&) = delete;

 private:
  std::unique_ptr<std::function<void(const ac::Message&)>> see_;
};

}  // namespace refhost
