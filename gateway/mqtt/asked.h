// What somebody asks of the door over the broker, as the daemon is asked it.
#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "gateway/base/json.h"
#include "gateway/mqtt/broker.h"

namespace mqtt {

using gateway::Json;

inline constexpr const char* kReplay = "replay";        // the one that is the bridge's own
inline constexpr const char* kDrift = "desired_state";  // whose lines go with its answer

struct Asked {
  Json request;                          // for the control socket
  std::chrono::milliseconds patience{};  // how long the answer may take
  bool is_recording = false;             // the answer comes as lines
};

// It is not asked; what() is for whoever wanted it.
class NotAsked : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline constexpr std::size_t kLongestCommand = std::size_t{64} * 1024 - 1024;  // bytes of its payload
inline constexpr std::int64_t kOldestCommand = 30'000;                         // ms

// name: of its topic. now: ms since 1970. Throws NotAsked.
Asked asked_of(std::string_view name, const Message& message, std::int64_t now);

// What the payload has to tell an answer by; null when it has nothing, or is no JSON.
Json correlation_of(std::string_view payload);

// Where the answer goes: to the topic that was asked for, unless that is one of the door's own other than for answers,
// where it would be taken for something else.
std::string answer_topic(std::string_view door, std::string_view name, std::string_view response_topic);

}  // namespace mqtt
