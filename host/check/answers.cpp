// Chapter 4: questions, and their answers.
#include <atomic>
#include <memory>
#include <stdexcept>
#include <vector>

#include "ac/config.h"
#include "ac/config_util.h"
#include "desk.h"
#include "examination.h"
#include "report.h"
#include "waiting.h"

namespace hostcheck {
namespace {

constexpr const char* kQuestion = "gpio_current_state";

// A reply that stays, so that a late answer is found and does no harm.
struct Kept {
  ac::MessageReply reply;
  std::atomic<bool> has_returned{false};
  std::atomic<bool> was_replied{false};
};

// Any thread adds.
Seen<std::shared_ptr<Kept>>& all_kept() {
  static auto& kept = *new Seen<std::shared_ptr<Kept>>;
  return kept;
}

std::unique_ptr<ac::Message> question(ac::ReplyCallback callback = nullptr) {
  auto message = std::make_unique<ac::Message>(kQuestion, 0, std::move(callback));
  message->add_int("gpio", ac::config_util::get_int("uhf", "trig_gpio", false));
  return message;
}

void ask(std::unique_ptr<ac::Message> message, const std::shared_ptr<Kept>& kept) {
  message->set_reply(&kept->reply);
  send_sync(std::move(message));
  kept->was_replied = kept->reply.replied();
  kept->has_returned = true;
  all_kept().add(kept);
}

bool has_value(const ac::MessageReply& reply) {
  int value = -1;
  return reply.replied() && reply.get_int("value", &value) && value >= 0;
}

// Whether there are answers to examine.
bool examine_answer() {
  report().examine({"4.1", "4.2"});
  const auto kept = std::make_shared<Kept>();
  const auto asking = outcome_of([kept] { ask(question(), kept); });
  if (!asking.is_well()) {
    report().found("4.2", "send_message_sync() " + words_of(asking));
  } else if (kept->was_replied && has_value(kept->reply)) {
    return true;
  } else if (kept->was_replied) {
    report().found("4.1", "the answer has no int \"value\"");
  } else {
    // An answer that comes later is another mistake than none.
    Gate().pass(10 * kTemptation);
    const bool came_late = kept->reply.replied();
    came_late ? report().found("4.2", "the answer came after send_message_sync() had returned")
              : report().found("4.1", "nobody answered");
  }
  return false;
}

void leave_answers_out() {
  for (const ClauseId clause : {ClauseId("4.3"), ClauseId("4.6"), ClauseId("4.7"), ClauseId("4.8")}) {
    report().leave_out(clause, "the simplest question was not answered");
  }
}

void examine_asking_from_inside() {
  report().examine({"4.3"});
  const auto kept = std::make_shared<Kept>();
  const auto seen = std::make_shared<Seen<bool>>();
  delivery().on(Type::ask, [=](ac::Message*) {
    ask(question(), kept);
    seen->add(has_value(kept->reply));
  });
  send(numbered(Type::ask, 0));
  if (!seen->wait_for(1)) {
    report().found("4.3", "send_message_sync() inside a handler did not return within some seconds");
    require_delivery();
  } else if (!seen->all().front()) {
    report().found("4.3", "a question inside a handler was not answered");
  }
}

// Nobody listens to the one; a handler takes the other, and has no answer.
void examine_silence() {
  report().examine({"4.4"});
  delivery().on(Type::kept, [](ac::Message*) {});
  for (const std::string& type : {std::string(kNobodys), name_of(Type::kept)}) {
    const auto kept = std::make_shared<Kept>();
    const auto asking = outcome_of([=] { ask(std::make_unique<ac::Message>(type), kept); });
    if (!asking.is_well()) {
      report().found("4.4", "send_message_sync() of \"" + type + "\", which nobody answers, " + words_of(asking));
    } else if (kept->was_replied) {
      report().found("4.4", "\"" + type + "\", which nobody answers, was replied");
    }
  }
}

void examine_callback() {
  report().examine({"4.6", "4.7"});
  const auto answered = std::make_shared<Seen<bool>>();
  const auto done = std::make_shared<Seen<bool>>();
  send(question([=](const ac::MessageReply& reply) {
    answered->add(has_value(reply));
    const auto kept = std::make_shared<Kept>();
    send(std::make_unique<ac::Message>(kNobodys));
    ask(question(), kept);
    done->add(true);
  }));
  if (!answered->wait_for(1) || !answered->all().front()) {
    report().found("4.6", answered->count() == 0 ? "the callback was not called" : "the callback got no answer");
  } else if (!done->wait_for(1)) {
    report().found("4.7", "a callback that sends and asks did not return within some seconds");
    require_delivery();
  } else {
    Gate().pass(kTemptation);
    if (answered->count() > 1) {
      report().found("4.6", "the callback was called " + std::to_string(answered->count()) + " times");
    }
  }
}

void examine_failing_callback() {
  report().examine({"4.8"});
  const auto called = std::make_shared<Seen<int>>();
  send(question([called](const ac::MessageReply&) {
    called->add(0);
    throw std::runtime_error("thrown by the check, to see where it goes");
  }));
  called->wait_for(1);
  const auto kept = std::make_shared<Kept>();
  const auto asking = outcome_of([kept] { ask(question(), kept); });
  const auto next = std::make_shared<Seen<int>>();
  send(question([next](const ac::MessageReply&) { next->add(0); }));
  if (called->count() != 0 && (!asking.is_well() || !next->wait_for(1))) {
    report().found("4.8", "after a callback had thrown, the next question was not answered");
    require_delivery();
  }
}

void examine_without_reply() {
  report().examine({"4.9"});
  if (const auto asking = outcome_of([] { send_sync(question()); }); !asking.is_well()) {
    report().found("4.9", "send_message_sync() without a reply " + words_of(asking));
  }
}

void examine_late_answers() {
  report().examine({"4.5"});
  Gate().pass(5 * kTemptation);
  for (const auto& kept : all_kept().all()) {
    if (kept->reply.replied() != kept->was_replied) {
      report().found("4.5", "a reply was written to after send_message_sync() had returned");
    }
  }
}

}  // namespace

void examine_answers() {
  if (examine_answer()) {
    examine_asking_from_inside();
    examine_callback();
    examine_failing_callback();
  } else {
    leave_answers_out();
  }
  examine_silence();
  examine_without_reply();
  examine_late_answers();
}

}  // namespace hostcheck
