// What a message, a reply, a queue and a plug-in are in this host.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "ac/message.h"
#include "ac/message_enqueuer.h"
#include "ac/message_listener.h"
#include "ac/plugin.h"

namespace example {

using Value = std::variant<int, std::int64_t, std::string>;
using Fields = std::vector<std::pair<std::string, Value>>;  // in the order added
using Listeners = std::vector<ac::MessageListener>;

// Told of each call of the plug-in that has an order worth seeing: "get_int uhf trig_gpio true". Any thread. Yours to
// define: this host prints it when asked to.
void called(const std::string& call);

// Call the listeners of the message's type, in their order, on this thread; then move the message into the queue that a
// handler has transferred it to, whose thread goes on with it. What a handler throws leaves it.
void deliver(const Listeners& listeners, std::unique_ptr<ac::Message> message);

}  // namespace example

// One thread at a time uses each of these: they have no lock but where one stands.

struct ac::MessageReply::Impl {
  std::optional<example::Fields> answer;
  static Impl& of(MessageReply& reply) { return *reply.impl_; }
};

struct ac::Message::Impl {
  std::string type;
  int argument = 0;
  ReplyCallback callback;
  example::Fields fields;
  MessageReply* reply = nullptr;  // the sender's, who waits
  bool handled = false;
  MessageEnqueuer* next_queue = nullptr;
  static Impl& of(Message& message) { return *message.impl_; }
  static const Impl& of(const Message& message) { return *message.impl_; }
};

struct ac::MessageEnqueuer::Impl {
  example::Listeners listeners;  // set before process(); read by its thread
  std::mutex mutex;              // guards waiting
  std::condition_variable filled;
  std::deque<std::unique_ptr<Message>> waiting;
  static Impl& of(MessageEnqueuer& queue) { return *queue.impl_; }
  static const Impl& of(const MessageEnqueuer& queue) { return *queue.impl_; }

  void put(std::unique_ptr<Message> message);                        // any thread
  std::unique_ptr<Message> take(std::chrono::milliseconds timeout);  // null when none comes in that time
};

struct ac::Plugin::Impl {
  std::string name;
  int (*run)() = nullptr;
  example::Listeners interested;
  static const Impl& of(const Plugin& plugin) { return *plugin.impl_; }
};
