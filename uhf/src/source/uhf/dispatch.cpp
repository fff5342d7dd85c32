#include "dispatch.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>

#include "ac/exception.h"
#include "ac/message.h"
#include "ac/post_office.h"
#include "ac/util.h"
#include "ac/watchdog.h"
#include "ac_dal/device.h"
#include "settings.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

// Tells the host which kind of identifier read the card: "uhf" in the three high bytes.
constexpr int IDENTIFIER_ID = 0x75686600;

TimePoint latestTrigger() {
  const std::lock_guard lock(lastTriggerTimePointMutex);
  return lastTriggerTimePoint;
}

// now: the time to hold against next.
void keepAliveWhenDue(TimePoint& next, const TimePoint& now) {
  if (next < now) {
    ac::watchdog::keep_alive("uhf_write_threads");
    next = steady_clock::now() + milliseconds(watchdogTimeout);
  }
}

void sendIdentification(std::uint64_t card) {
  auto message = std::make_unique<ac::Message>("identifier_new_card");
  message->add_int("identifier_id", IDENTIFIER_ID);
  message->add_int64("value", static_cast<std::int64_t>(card));
  message->add_int64("device_id", ac_dal::device::this_id());
  message->add_int("readings_count", 0);
  message->add_string("uuid", ac::util::identifier::generate_new_uuid());
  ac::PostOffice::send_message(std::move(message));
}

// Whether the inhibit input is at its active level. A reply that does not tell counts as active: in doubt no reading is
// used and no door opens.
bool isInputInhibiting() {
  ac::MessageReply reply;
  auto message = std::make_unique<ac::Message>("gpio_current_state");
  message->add_int("gpio", trigAntiesmagGPIO);
  message->set_reply(&reply);
  ac::PostOffice::send_message_sync(std::move(message));
  if (!reply.replied()) {
    throw ac::ac_exception("Empty reply; gpio: " + std::to_string(trigAntiesmagGPIO), true);
  }
  const int active = activeTriggerLevel();  // as it is once the answer is there
  int level = active;
  reply.get_int("value", &level);
  return level == active;
}

bool mayReadingsBeUsed() {
  switch (uhf_operation_mode_) {
    case TRIGGER:
      return isTriggerWindowOpen();
    case INHIBIT:
      return !isInputInhibiting() && !isTriggerWindowOpen();
    case CONTINUOUS:
      return true;
    default:
      return false;
  }
}

}  // namespace

CardTimes getLastCardsRead() {
  const std::lock_guard lock(cardsReadMutex_);
  return std::exchange(lastCardsRead_, {});
}

void clearLastCardsRead() {
  const std::lock_guard lock(cardsReadMutex_);
  lastCardsRead_.clear();
}

bool isTriggerWindowOpen() { return latestTrigger() + milliseconds(trigger_timeout_) >= steady_clock::now(); }

bool shouldSentCardIdentification(const CardReading& lastSent, const TimePoint& now, const CardReading& candidate) {
  const auto& [card, readAt] = candidate;
  if (uhf_operation_mode_ == TRIGGER && readAt < latestTrigger()) {
    return false;
  }
  if (card != lastSent.first && readAt < lastSent.second) {
    return false;
  }
  const auto sent = lastCardsSent_.find(card);
  return sent == lastCardsSent_.end() || now >= sent->second + milliseconds(same_tag_timeout_);
}

void processCardsToSend(TimePoint& nextKeepAlive, CardReading& lastSent) {
  for (const auto& [card, readAt] : getLastCardsRead()) {
    const auto now = steady_clock::now();
    keepAliveWhenDue(nextKeepAlive, now);
    if (shouldSentCardIdentification(lastSent, now, {card, readAt})) {
      sendIdentification(card);
      lastCardsSent_[card] = now;
      lastSent = {card, now + milliseconds(different_tag_timeout_)};
      return;
    }
  }
}

void pruneCardsSent() {
  if (lastCardsSent_.empty()) {
    return;
  }
  const int same = intSetting("read_interval");
  const int different = intSetting("read_interval_diff_tags");
  const milliseconds bound(std::max(same, different));
  const auto now = steady_clock::now();  // once for all: a look for each costs more than the rest of the walk
  std::erase_if(lastCardsSent_, [bound, now](const auto& sent) { return sent.second + bound <= now; });
}

void dispatchCards(std::condition_variable& cardsRead) {
  constexpr int LEAST_PERIOD = 10;  // ms
  auto nextKeepAlive = steady_clock::now();
  CardReading lastSent(0, steady_clock::now());
  std::mutex mutex;  // of the wait alone: a notification may be missed, which the period makes good
  std::unique_lock lock(mutex);
  for (;;) {
    cardsRead.wait_until(lock, steady_clock::now() + milliseconds(std::max(getProbeInterval(), LEAST_PERIOD)));
    keepAliveWhenDue(nextKeepAlive, steady_clock::now());
    if (mayReadingsBeUsed()) {
      processCardsToSend(nextKeepAlive, lastSent);
      pruneCardsSent();
    } else {
      clearLastCardsRead();
    }
  }
}
