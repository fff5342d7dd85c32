// Chapter 9, its first half: many messages.
#include <array>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "desk.h"
#include "examination.h"
#include "report.h"
#include "waiting.h"

namespace hostcheck {
namespace {

constexpr int kSenders = 4;
constexpr int kEach = 25'000;
constexpr int kMostWaiting = 250;  // of one sender
constexpr int kFlood = 50'000;
constexpr std::chrono::seconds kLongestLoad(30);

// What has arrived of four senders' messages. Any thread.
class Arrivals {
 public:
  // As the handler sees it.
  void add(int sender, int number) {
    const std::lock_guard lock(mutex_);
    auto& expected = next_.at(static_cast<std::size_t>(sender));
    if (number != expected && disorder_.empty()) {
      disorder_ = "message " + std::to_string(number) + " of sender " + std::to_string(sender) + " came in place of " +
                  std::to_string(expected);
    }
    expected = number + 1;
    changed_.notify_all();
  }

  // Until the sender may send that one; false when nothing moves any more.
  bool wait_for_room(int sender, int number) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] {
      return number - next_.at(static_cast<std::size_t>(sender)) < kMostWaiting || !disorder_.empty();
    });
  }

  std::string disorder() const {
    const std::lock_guard lock(mutex_);
    return disorder_;
  }

 private:
  mutable std::mutex mutex_;  // guards the two below
  mutable std::condition_variable changed_;
  std::array<int, kSenders> next_{};
  std::string disorder_;
};

std::unique_ptr<ac::Message> load_of(int sender, int number) {
  auto message = numbered(Type::load, number);
  message->add_int("sender", sender);
  return message;
}

// Nothing when all of them arrived in order.
std::string send_all(const Arrivals& arrivals, int sender) {
  for (int number = 0; number < kEach; ++number) {
    if (!arrivals.wait_for_room(sender, number)) {
      return "of the messages before number " + std::to_string(number) + " of sender " + std::to_string(sender) +
             " some did not come";
    }
    if (!arrivals.disorder().empty()) {
      return arrivals.disorder();
    }
    send(load_of(sender, number));
  }
  return arrivals.wait_for_room(sender, kEach + kMostWaiting - 1) ? arrivals.disorder()
                                                                  : "the last messages did not come";
}

void examine_load_of_four() {
  report().examine({"9.1"});
  const auto arrivals = std::make_shared<Arrivals>();
  const auto ends = std::make_shared<Seen<std::string>>();
  delivery().on(Type::load, [arrivals](ac::Message* message) {
    int sender = 0;
    message->get_int("sender", &sender);
    arrivals->add(sender, number_of(*message));
  });
  for (int sender = 0; sender < kSenders; ++sender) {
    std::thread([=] {
      std::string end;
      const auto thrown = thrown_by([&] { end = send_all(*arrivals, sender); });
      ends->add(thrown ? "send_message() threw: " + *thrown : end);
    }).detach();
  }
  ends->wait_for(kSenders, kLongestLoad);
  for (const auto& end : ends->all()) {
    if (!end.empty()) {
      report().found("9.1", end);
    }
  }
  if (ends->count() < kSenders) {
    report().found("9.1", "100,000 messages were not delivered within " + std::to_string(kLongestLoad.count()) + " s");
  }
}

void examine_flood() {
  report().examine({"9.2"});
  const auto gate = std::make_shared<Gate>();
  const auto last = std::make_shared<Seen<int>>();
  delivery().on(Type::load, [=](ac::Message* message) {
    gate->pass();
    if (number_of(*message) > kFlood) {
      last->add(0);
    }
  });
  const auto sending = outcome_of([] {
    for (int number = 0; number < kFlood; ++number) {
      send(load_of(0, number));
    }
  });
  gate->open();
  if (!sending.is_well()) {
    report().found(
        "9.2", "sending " + std::to_string(kFlood) + " messages to a handler that takes its time " + words_of(sending));
  }
  // A queue that is full takes nothing until something has left it.
  for (int tries = 0; tries < 100 && last->count() == 0; ++tries) {
    send(load_of(0, kFlood + 1));
    last->wait_for(1, kPatience / 100);
  }
  if (last->count() == 0) {
    report().found("9.2", "a message that was sent after " + std::to_string(kFlood) + " others did not come");
  }
}

}  // namespace

void examine_load() {
  examine_load_of_four();
  examine_flood();
}

}  // namespace hostcheck
