// What stands behind ac::Message and ac::MessageReply in this host.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "ac/message.h"
#include "bus/fields.h"
#include "bus/message_type.h"
#include "bus/reply_slot.h"
#include "bus/ticket.h"

// Small, as a queue full of them goes through two processors' caches.
struct ac::Message::Impl final {
  // What few messages have.
  struct Rare {
    std::string name;  // set when nobody had listened to the type by the time the message was made
    ac::ReplyCallback callback;
    // Set by the sender, taken over by the bus when the message is sent synchronously; never copied to a recipient.
    ac::MessageReply* reply = nullptr;
    // Null when nobody waits for an answer.
    std::shared_ptr<refhost::ReplySlot> right_to_answer;
    // Where the delivery moves the message once its handlers have returned; null when it stays.
    ac::MessageEnqueuer* next_queue = nullptr;
    // This recipient's, of a message that is followed; null when it is not.
    std::unique_ptr<refhost::Ticket> ticket;
  };

  refhost::MessageType* type = nullptr;  // null when nobody had listened to it by then
  std::unique_ptr<Rare> existing_rare;   // null until rare() is called
  int argument = 0;
  refhost::Fields fields;

  static Impl& of(const ac::Message& message) { return *message.impl_; }

  const std::string& name() const { return type != nullptr ? type->name : existing_rare->name; }

  // To be written.
  Rare& rare() {
    if (existing_rare == nullptr) {
      existing_rare = std::make_unique<Rare>();
    }
    return *existing_rare;
  }

  refhost::Ticket* ticket() const { return existing_rare == nullptr ? nullptr : existing_rare->ticket.get(); }

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
