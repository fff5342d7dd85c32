// What stands behind ac::Message and ac::MessageReply in this host.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "ac/message.h"
#include "bus/fields.h"
#include "bus/reply_slot.h"

struct ac::Message::Impl final {
  std::string type;
  int argument = 0;
  std::unique_ptr<ac::ReplyCallback> callback;  // null when there is none
  // Set by the sender, taken over by the bus when the message is sent synchronously; never copied to a recipient.
  ac::MessageReply* reply = nullptr;
  // Null when nobody waits for an answer.
  std::shared_ptr<refhost::ReplySlot> right_to_answer;
  // Where the delivery moves the message once its handlers have returned; null when it stays.
  ac::MessageEnqueuer* next_queue = nullptr;
  refhost::Fields fields;

  static Impl& of(const ac::Message& message) { return *message.impl_; }

  // What one recipient gets: type, argument, fields and the right to answer.
  static std::unique_ptr<ac::Message> copy(const ac::Message& message);
};

struct ac::MessageReply::Impl {
  bool replied = false;
  refhost::Fields fields;

  void fill(const refhost::Fields& answer) {
    fields = answer;
    replied = true;
  }

  static Impl& of(ac::MessageReply& reply) { return *reply.impl_; }
};
