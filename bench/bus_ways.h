// Ways from one thread to another, for the same content: an identification with its five fields.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// What is sent. The receiver reads all of it.
struct Identification {
  int identifier_id;
  std::int64_t value;
  std::int64_t device_id;
  int readings_count;
  std::string uuid;
};

class Way {
 public:
  virtual ~Way() = default;

  // Makes a message of it and sends that.
  virtual void send(const Identification& identification) = 0;

  // What the receiver does with what it has read, on its thread; set before the first send().
  std::function<void(const Identification&)> received;
};

// The host's bus.
std::unique_ptr<Way> bus();

// A queue of the standard library's, the best there is that waits without burning a core: taken as a whole, and
// notified only when it was empty.
std::unique_ptr<Way> plain_queue();

// ZeroMQ's pair inside a process.
std::unique_ptr<Way> zero_mq();
