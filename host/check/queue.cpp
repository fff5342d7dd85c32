// Chapter 3: the plug-in's own queue, and the thread that drains it.
#include <algorithm>
#include <atomic>
#include <memory>
#include <stdexcept>

#include "desk.h"
#include "examination.h"
#include "fields.h"
#include "queue_thread.h"
#include "report.h"
#include "waiting.h"

namespace hostcheck {
namespace {

using Clock = QueueThread::Clock;

void transfer_to_queue(ac::Message* message) {
  message->set_handled();
  message->transfer(&plugin_queue());
}

// Before the queue is drained.
void examine_early_transfer(const std::shared_ptr<Seen<std::string>>& seen) {
  const auto transferred = std::make_shared<Seen<int>>();
  delivery().on(Type::transferred, transfer_to_queue);
  delivery().on(Type::kept, [transferred](ac::Message*) { transferred->add(0); });
  queue().on(Type::transferred,
             [seen](ac::Message* message) { seen->add(difference_in(*message, Type::transferred)); });
  send(with_known_fields(Type::transferred));
  send(numbered(Type::kept, 0));  // when it arrives, the one before is in the queue
  transferred->wait_for(1);
}

void examine_transfer() {
  report().examine({"3.1", "3.2", "3.12"});
  const auto seen = std::make_shared<Seen<std::string>>();
  examine_early_transfer(seen);
  QueueThread::instance().start();
  const bool early_one_came = seen->wait_for(1);
  send(with_known_fields(Type::transferred));
  const std::size_t expected = early_one_came ? 2 : 1;
  if (!seen->wait_for(expected)) {
    report().found("3.1", "a message that was transferred did not reach the queue's handler");
    throw CannotGoOn("transferred messages do not reach the queue");
  }
  if (!early_one_came) {
    report().found("3.12", "a message that was transferred before process() was called did not come");
  }
  if (const auto difference = seen->all().back(); !difference.empty()) {
    report().found("3.1", difference + " of the queue");
  }
}

// A host that is too early has time to be so.
void examine_when_it_runs() {
  constexpr std::size_t kTries = 5;
  report().examine({"3.3"});
  const auto seen = std::make_shared<Seen<bool>>();
  const auto has_left = std::make_shared<std::atomic<bool>>(false);
  delivery().on(Type::transferred, [has_left](ac::Message* message) {
    *has_left = false;
    transfer_to_queue(message);
    Gate().pass(kTemptation);
    *has_left = true;
  });
  queue().on(Type::transferred, [=](ac::Message*) { seen->add(*has_left); });
  for (std::size_t tries = 1; tries <= kTries; ++tries) {
    send(numbered(Type::transferred, 0));
    seen->wait_for(tries);
  }
  if (std::ranges::count(seen->all(), false) != 0) {
    report().found("3.3", "the queue's handler ran before the one that had transferred the message had returned");
  }
}

struct Handled {
  int number;
  Clock::time_point at;
};

// The queue always has a next message meanwhile.
void examine_busy_queue() {
  constexpr std::size_t kMany = 200;
  constexpr std::chrono::milliseconds kEach(2);
  report().examine({"3.4", "3.7"});
  const auto seen = std::make_shared<Seen<Handled>>();
  const auto gate = std::make_shared<Gate>();
  const auto transferred = std::make_shared<Seen<int>>();
  delivery().on(Type::transferred, [transferred](ac::Message* message) {
    transfer_to_queue(message);
    transferred->add(0);
  });
  queue().on(Type::transferred, [=](ac::Message* message) {
    gate->pass();
    seen->add({number_of(*message), Clock::now()});
    Gate().pass(kEach);
  });
  for (std::size_t number = 0; number < kMany; ++number) {
    send(numbered(Type::transferred, static_cast<int>(number)));
  }
  transferred->wait_for(kMany);
  gate->open();
  seen->wait_for(kMany);
  const auto handled = seen->all();
  if (handled.size() != kMany) {
    report().found("3.1",
                   "of " + std::to_string(kMany) + " transferred messages " + std::to_string(handled.size()) + " came");
    return;
  }
  if (!std::ranges::is_sorted(handled, {}, &Handled::number)) {
    report().found("3.4", std::to_string(kMany) + " transferred messages came in another order");
  }
  const auto ticks = QueueThread::instance().ticks();
  if (std::ranges::none_of(ticks, [&](const QueueThread::Tick& tick) {
        return tick.at > handled.front().at && tick.at < handled.back().at;
      })) {
    report().found("3.7", "on_timeout was not called while " + std::to_string(kMany) +
                              " messages were handled, each of " + std::to_string(kEach.count()) + " ms");
  }
}

void examine_failing_handler_of_queue() {
  report().examine({"3.8"});
  const auto seen = std::make_shared<Seen<int>>();
  delivery().on(Type::transferred, transfer_to_queue);
  queue().on(Type::transferred, [seen](ac::Message* message) {
    seen->add(number_of(*message));
    switch (number_of(*message)) {
      case 0:
        throw std::runtime_error("thrown by the check, to see where it goes");
      default:
        break;
    }
  });
  send(numbered(Type::transferred, 0));
  send(numbered(Type::transferred, 1));
  if (!seen->wait_for(2)) {
    report().found("3.8", "after a handler of the queue had thrown, the next message did not reach it");
  }
}

// Ten in a row, with nothing in the queue: no sooner than half of their time, so that one that was late counts for
// nothing.
void examine_timeouts() {
  constexpr std::size_t kTicks = 10;
  report().examine({"3.6"});
  auto& thread = QueueThread::instance();
  const auto begun = Clock::now();
  const std::size_t before = thread.ticks().size();
  const bool came = thread.wait_for_ticks(before + kTicks);
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
  const auto told = std::to_string(thread.ticks().size() - before) + " times in " + std::to_string(took.count()) +
                    " ms, with a timeout of " + std::to_string(QueueThread::kTimeout.count()) + " ms";
  if (!came || took < kTicks * QueueThread::kTimeout / 2) {
    report().found("3.6", "on_timeout was called " + told);
  }
}

void examine_thread_of_queue() {
  report().examine({"3.2", "3.11"});
  const auto seen = std::make_shared<Seen<long>>();
  delivery().on(Type::kept, [](ac::Message*) {});
  queue().on(Type::kept, [](ac::Message*) {
    report().found("3.11", "a message that no handler had transferred reached the handler of the queue");
  });
  delivery().on(Type::transferred, transfer_to_queue);
  queue().on(Type::transferred, [seen](ac::Message*) { seen->add(thread_id()); });
  send(numbered(Type::kept, 0));
  send(numbered(Type::transferred, 0));
  seen->wait_for(1);
  const long expected = QueueThread::instance().id();
  const auto told = [&](const std::string& what, long thread) {
    if (thread != expected) {
      report().found("3.2",
                     what + " ran on thread " + std::to_string(thread) + ", process() on " + std::to_string(expected));
    }
  };
  for (const long thread : seen->all()) {
    told("a handler of the queue", thread);
  }
  for (const auto& tick : QueueThread::instance().ticks()) {
    told("on_timeout", tick.thread);
  }
}

// The last thing that is done with the queue.
void examine_end_of_process() {
  report().examine({"3.9", "3.10"});
  if (!QueueThread::instance().end().has_value()) {
    report().found("3.10", "an exception of on_timeout did not leave process()");
  }
}

}  // namespace

void examine_queue() {
  examine_transfer();
  examine_when_it_runs();
  examine_busy_queue();
  examine_failing_handler_of_queue();
  examine_timeouts();
  examine_thread_of_queue();
  examine_end_of_process();
}

}  // namespace hostcheck
