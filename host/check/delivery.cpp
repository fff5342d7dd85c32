// Chapter 2: how messages reach handlers.
#include <memory>
#include <stdexcept>
#include <thread>

#include "ac/config.h"
#include "ac/exception.h"
#include "ac/util.h"
#include "ac/vexlog.h"
#include "ac/watchdog.h"
#include "desk.h"
#include "examination.h"
#include "fields.h"
#include "report.h"
#include "waiting.h"

namespace hostcheck {
namespace {

// Without this there is nothing to examine.
void examine_arrival() {
  report().examine({"2.1", "2.2"});
  const auto seen = std::make_shared<Seen<std::string>>();
  delivery().on(Type::arrival, [seen](ac::Message* message) { seen->add(difference_in(*message, Type::arrival)); });
  send(with_known_fields(Type::arrival));
  if (!seen->wait_for(1)) {
    report().found("2.1", "a message of type \"" + name_of(Type::arrival) + "\" did not reach its handler");
    throw CannotGoOn("messages do not reach handlers");
  }
  if (const auto difference = seen->all().front(); !difference.empty()) {
    report().found("2.1", difference);
  }
}

void examine_order() {
  constexpr int kMany = 500;
  report().examine({"2.4", "2.8"});
  const auto seen = std::make_shared<Seen<int>>();
  delivery().on(Type::order, [seen](ac::Message* message) {
    if (number_of(*message) == 0) {
      Gate().pass(kTemptation);  // so that the others wait, or pass it
    }
    seen->add(number_of(*message));
  });
  for (int number = 0; number < kMany; ++number) {
    send(numbered(Type::order, number));
  }
  seen->wait_for(kMany);
  int last = -1;
  for (const int number : seen->all()) {
    if (number <= last) {
      report().found(
          "2.4", "message " + std::to_string(number) + " of one sender came after its message " + std::to_string(last));
      return;
    }
    last = number;
  }
  if (const auto came = static_cast<int>(seen->count()); came < kMany) {
    report().found("2.8", std::to_string(kMany - came) + " of " + std::to_string(kMany) + " messages did not come");
  }
}

// A second call has time to come while the first one waits.
void examine_one_at_a_time() {
  constexpr std::size_t kCalls = 10;
  report().examine({"2.3"});
  const auto seen = std::make_shared<Seen<int>>();
  delivery().on(Type::pair, [seen](ac::Message* message) {
    Gate().pass(kTemptation / 2);
    seen->add(number_of(*message));
  });
  for (std::size_t call = 0; call < kCalls; ++call) {
    send(numbered(Type::pair, static_cast<int>(call)));
  }
  seen->wait_for(kCalls);
}

// What another thread of the plug-in's may do while a handler runs.
void use_host() {
  std::string value;
  ac::config::get_param("uhf", "operation_mode", value, false);
  ac::watchdog::keep_alive(kAlive);
  ac::vexlog::debug("beside a handler", "hostcheck", "use_host", 1);
  ac::util::identifier::generate_new_uuid();
}

void examine_slow_handler() {
  constexpr std::size_t kMeanwhile = 100;
  report().examine({"2.5", "2.8", "2.9"});
  const auto seen = std::make_shared<Seen<int>>();
  const auto inside = std::make_shared<Seen<int>>();
  const auto gate = std::make_shared<Gate>();
  delivery().on(Type::slow, [=](ac::Message* message) {
    inside->add(0);
    gate->pass();
    seen->add(number_of(*message));
  });
  send(numbered(Type::slow, 0));
  inside->wait_for(1);
  const auto sending = outcome_of([] {
    for (std::size_t number = 1; number <= kMeanwhile; ++number) {
      send(numbered(Type::slow, static_cast<int>(number)));
    }
  });
  if (!sending.is_well()) {
    report().found("2.5", "send_message() beside a handler that takes its time " + words_of(sending));
  }
  if (const auto using_it = outcome_of(use_host); !using_it.is_well()) {
    report().found(
        "2.9", "a setting, the watchdog, the log or a uuid beside a handler that takes its time " + words_of(using_it));
  }
  gate->open();
  if (!seen->wait_for(kMeanwhile + 1)) {
    report().found("2.8", "of " + std::to_string(kMeanwhile + 1) + " messages, one of which took its time, " +
                              std::to_string(seen->count()) + " were handled");
  }
}

void examine_failing_handler() {
  report().examine({"2.6"});
  const auto seen = std::make_shared<Seen<int>>();
  delivery().on(Type::failing, [seen](ac::Message* message) {
    seen->add(number_of(*message));
    switch (number_of(*message)) {
      case 0:
        throw std::runtime_error("thrown by the check, to see where it goes");
      case 1:
        throw ac::ac_exception("thrown by the check, to see where it goes", true);
      case 2:
        throw 3;
      default:
        break;
    }
  });
  for (const int number : {0, 1, 2, 3}) {
    send(numbered(Type::failing, number));
    if (!seen->wait_for(static_cast<std::size_t>(number) + 1)) {
      report().found("2.6", "after a handler had thrown, the next message did not reach it");
      require_delivery();
      return;
    }
  }
}

void examine_sending_from_inside() {
  report().examine({"2.7"});
  const auto seen = std::make_shared<Seen<int>>();
  delivery().on(Type::inner, [seen](ac::Message* message) { seen->add(number_of(*message)); });
  delivery().on(Type::outer, [](ac::Message*) { send(numbered(Type::inner, 1)); });
  send(numbered(Type::outer, 0));
  if (!seen->wait_for(1)) {
    report().found("2.7", "a message that a handler sent did not reach its handler");
    require_delivery();
  }
}

// A token that goes with its message tells when that is gone.
std::weak_ptr<int> send_with_token(const std::string& type) {
  const auto token = std::make_shared<int>();
  send(std::make_unique<ac::Message>(type, 0, [token](const ac::MessageReply&) {}));
  return token;
}

bool is_gone(const std::weak_ptr<int>& token) {
  const auto limit = std::chrono::steady_clock::now() + kPatience;
  while (!token.expired() && std::chrono::steady_clock::now() < limit) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return token.expired();
}

void examine_life() {
  report().examine({"2.10", "2.11", "2.12"});
  const auto failure = thrown_by([] { send(std::make_unique<ac::Message>(kNobodys)); });
  if (failure.has_value()) {
    report().found("2.10", "send_message() of a message that nobody listens to threw: " + *failure);
  } else if (!is_gone(send_with_token(kNobodys))) {
    report().found("2.11", "a message that nobody listens to was never destroyed");
  }
  const auto seen = std::make_shared<Seen<std::string>>();
  delivery().on(Type::life, [seen](ac::Message* message) {
    Gate().pass(kTemptation);  // somebody could destroy it
    seen->add(message->type());
  });
  const auto token = send_with_token(name_of(Type::life));
  if (!seen->wait_for(1) || seen->all().front() != name_of(Type::life)) {
    report().found("2.12", "a message was another one at the end of its handler");
  } else if (!is_gone(token)) {
    report().found("2.11", "a message was not destroyed after its handler had returned");
  }
}

}  // namespace

void require_delivery() {
  const auto seen = std::make_shared<Seen<int>>();
  delivery().on(Type::probe, [seen](ac::Message*) { seen->add(0); });
  if (!outcome_of([] { send(numbered(Type::probe, 0)); }).is_well() || !seen->wait_for(1)) {
    throw CannotGoOn("messages do not reach handlers any more");
  }
}

void examine_delivery() {
  examine_arrival();
  examine_order();
  examine_one_at_a_time();
  examine_slow_handler();
  examine_failing_handler();
  examine_sending_from_inside();
  examine_life();
}

}  // namespace hostcheck
