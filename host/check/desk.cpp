#include "desk.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <utility>
#include <vector>

#include "ac/post_office.h"
#include "report.h"

namespace hostcheck {
namespace {

thread_local bool sending = false;

struct Sending {
  bool before = std::exchange(sending, true);
  ~Sending() { sending = before; }
};

}  // namespace

Desk& delivery() {
  static Desk& desk = *new Desk;
  return desk;
}

Desk& queue() {
  static Desk& desk = *new Desk;
  return desk;
}

void Desk::on(Type type, Handler handler) {
  const std::lock_guard lock(mutex_);
  places_.at(static_cast<std::size_t>(type)).handler = std::make_shared<const Handler>(std::move(handler));
}

void Desk::watch(std::function<void(Type)> watcher) { watcher_ = std::move(watcher); }

void Desk::handle(Type type, ac::Message* message) {
  auto& place = places_.at(static_cast<std::size_t>(type));
  const long earlier = place.thread.exchange(thread_id());
  if (place.inside.fetch_add(1) > 0 && earlier != thread_id()) {
    report().found("2.3", "two handlers of \"" + name_of(type) + "\" ran at once, threads " + std::to_string(earlier) +
                              " and " + std::to_string(thread_id()));
  }
  struct Leaving {
    std::atomic<int>& inside;
    ~Leaving() { --inside; }
  } const leaving{place.inside};
  watcher_(type);
  std::unique_lock lock(mutex_);
  const auto handler = place.handler;
  lock.unlock();
  if (handler != nullptr && *handler) {
    (*handler)(message);
  }
}

// The memory stays, so that a host that looks there again is told of, and does not crash.
void Desk::register_with(const Take& take) {
  auto& listeners = *new std::vector<ac::MessageListener>;
  for (std::size_t i = 0; i < kTypes.size(); ++i) {
    listeners.push_back({kTypes[i], [this, type = static_cast<Type>(i)](ac::Message* m) { handle(type, m); }, true});
  }
  take(listeners.data(), listeners.size());
  for (std::size_t i = 0; i < kTypes.size(); ++i) {
    listeners[i].handler = [this, type = static_cast<Type>(i)](ac::Message* message) {
      on_uncopied_();
      handle(type, message);
    };
  }
}

std::unique_ptr<ac::Message> numbered(Type type, int number) {
  auto message = std::make_unique<ac::Message>(name_of(type));
  message->add_int("number", number);
  return message;
}

int number_of(const ac::Message& message) {
  int number = -1;
  message.get_int("number", &number);
  return number;
}

void send(std::unique_ptr<ac::Message> message) {
  const Sending now;
  ac::PostOffice::send_message(std::move(message));
}

void send_sync(std::unique_ptr<ac::Message> message) {
  const Sending now;
  ac::PostOffice::send_message_sync(std::move(message));
}

bool is_sending() { return sending; }

long thread_id() { return syscall(SYS_gettid); }

}  // namespace hostcheck
