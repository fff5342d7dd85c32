// The bus: one thread delivers every message. The process ends without destroying anything, as the threads do not stop.
#include <cstdio>
#include <exception>
#include <thread>

#include "ac/post_office.h"
#include "host.h"

namespace example {
namespace {

Answers answers;              // complete before the bus starts
Listeners listeners;          // likewise; read by the delivery thread
ac::MessageEnqueuer waiting;  // a queue alone: nobody listens there

void give_answer(ac::Message& message, ac::MessageReply& reply) {
  if (const auto found = answers.find(message.type()); found != answers.end()) {
    ac::MessageReply::Impl::of(reply).answer = found->second(message);
  }
}

// A handler that throws loses its message and nothing else.
void deliver_one(std::unique_ptr<ac::Message> message) {
  const std::string type = message->type();
  try {
    if (const auto callback = ac::Message::Impl::of(*message).callback) {
      ac::MessageReply reply;
      give_answer(*message, reply);
      callback(reply);
    }
    deliver(listeners, std::move(message));
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "a handler of \"%s\" failed: %s\n", type.c_str(), failure.what());
  } catch (...) {
    std::fprintf(stderr, "a handler of \"%s\" failed\n", type.c_str());
  }
}

}  // namespace

void send(const std::string& type, const Fields& fields) {
  auto message = std::make_unique<ac::Message>(type);
  ac::Message::Impl::of(*message).fields = fields;
  ac::PostOffice::send_message(std::move(message));
}

void start_bus(Listeners all_listeners, Answers all_answers) {
  listeners = std::move(all_listeners);
  answers = std::move(all_answers);
  std::thread([] {
    auto& queue = ac::MessageEnqueuer::Impl::of(waiting);
    for (;;) {
      if (auto message = queue.take(std::chrono::hours(1)); message != nullptr) {
        deliver_one(std::move(message));
      }
    }
  }).detach();
}

}  // namespace example

namespace ac {

void PostOffice::send_message(std::unique_ptr<Message> message) {
  MessageEnqueuer::Impl::of(example::waiting).put(std::move(message));
}

// This host answers by itself, so the sender waits for nobody: a handler may ask from inside, too.
void PostOffice::send_message_sync(std::unique_ptr<Message> message) {
  if (auto* const reply = Message::Impl::of(*message).reply; reply != nullptr) {
    example::give_answer(*message, *reply);
    Message::Impl::of(*message).reply = nullptr;  // it lives no longer than this call
  }
  send_message(std::move(message));
}

}  // namespace ac
