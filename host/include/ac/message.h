// A message of the host's bus and the reply to one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace ac {

class MessageEnqueuer;

// The answer to a message. The sender owns it; the host fills it in while the message is delivered.
class MessageReply {
 public:
  struct Impl;

  // An empty reply: replied() is false, there are no fields. On any thread.
  MessageReply();
  ~MessageReply();
  MessageReply(const MessageReply&) = delete;
  MessageReply& operator=(const MessageReply&) = delete;

  // True once somebody answered. To be called by the thread that owns the reply, once the synchronous send has
  // returned, or inside the callback. Never fails.
  bool replied() const;

  // Read a field of the answer: true and *value set when a field of that name and type is there; false and *value
  // untouched otherwise. value must not be null. To be called as replied(); fails in no other way.
  bool get_int(std::string name, int* value) const;
  bool get_int64(std::string name, std::int64_t* value) const;
  bool get_string(std::string name, std::string* value) const;

 private:
  std::unique_ptr<Impl> impl_;
};

// Called with the answer to a message that was sent without waiting, on a thread of the host, with no lock of the
// host's held. The reply lives as long as the call. What it throws is logged by the host and goes no further.
using ReplyCallback = std::function<void(const MessageReply&)>;

// A typed message with named fields, which keep the order in which they were added. One thread at a time uses it: its
// builder until it is sent, then the handler that the host passes it to. So no operation takes a lock; none fails but
// for lack of memory.
class Message {
 public:
  struct Impl;

  // type: the message's name. argument: a number for the host, 0 by default. callback: called with the answer, may be
  // empty.
  Message(const std::string& type, int argument = 0, ReplyCallback callback = nullptr);
  ~Message();
  Message(const Message&) = delete;
  Message& operator=(const Message&) = delete;

  // Append a field. A name that is there already is there twice, and the first of the type asked for is found. Before
  // it is sent.
  void add_int(const std::string& name, int value);
  void add_int64(const std::string& name, std::int64_t value);
  void add_string(const std::string& name, const std::string& value);

  // Read a field: true and *value set when a field of that name and type is there; false and *value untouched
  // otherwise. value must not be null.
  bool get_int(std::string name, int* value) const;
  bool get_int64(std::string name, std::int64_t* value) const;
  bool get_string(std::string name, std::string* value) const;

  // The name given at construction; valid as long as the message.
  const std::string& type() const;

  // Where the answer goes. reply is not owned and must outlive the synchronous send. Before it is sent.
  void set_reply(MessageReply* reply);

  // Tell the host that the message found its handler. To be called from a handler, on its thread.
  void set_handled();

  // Hand the message, with its ownership, over to a queue; the caller does not touch it afterwards. queue is not
  // owned and outlives the message. To be called from a handler, on the delivery thread; the queue's handlers run once
  // that handler has returned.
  void transfer(MessageEnqueuer* queue);

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace ac
