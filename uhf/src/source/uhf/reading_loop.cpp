#include "reading_loop.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ac/message.h"
#include "ac/post_office.h"
#include "ac/util.h"
#include "ac/watchdog.h"
#include "card_value.h"
#include "debug_log.h"
#include "dispatch.h"
#include "settings.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

// The body of the queue thread, on which all messages are handled that are transferred into the plug-in's queue.
void processQueue() {
  ac::util::set_thread_name("uhf_watchdog", pthread_self());
  enqueuer.process(watchdogTimeout, keepAliveWorker);
}

// usleep() counts in 32 bits, which are 71 minutes of microseconds: a longer pause is made of several.
void sleepProbeInterval() {
  constexpr int MICROSECONDS = 1000;  // in a millisecond
  constexpr int LONGEST = std::numeric_limits<useconds_t>::max() / MICROSECONDS;
  int left = std::max(getProbeInterval(), 0);
  do {
    const int pause = std::min(left, LONGEST);
    usleep(static_cast<useconds_t>(pause) * MICROSECONDS);
    left -= pause;
  } while (left > 0);
}

void recordReadings(const std::vector<ac::UHF::InventoryCardInfo>& tags) {
  std::string line;  // of the debug log, kept for all tags
  const std::lock_guard lock(cardsReadMutex_);
  for (const auto& tag : tags) {
    const auto card = toCardValue(tag.epc, line);
    lastCardsRead_[card] = steady_clock::now();
  }
}

}  // namespace

void keepAliveWorker() { ac::watchdog::keep_alive("uhf_worker"); }

void readTags(TimePoint& lastSeen, std::condition_variable& cardsRead) {
  ac::watchdog::keep_alive("uhf");
  sleepProbeInterval();
  const auto [succeeded, tags] = t640_module->inventoryCard();
  if (tagDetectorEnabled) {
    update_tag_detection(succeeded, lastSeen);
  }
  if (succeeded) {
    recordReadings(tags);
    cardsRead.notify_all();
  }
}

void update_tag_detection(bool inventorySucceeded, TimePoint& lastSeen) {
  const auto now = steady_clock::now();
  if (inventorySucceeded) {
    lastSeen = now;
  }
  const bool present = inventorySucceeded || now - lastSeen < milliseconds(tagDetectorTagPresentTimeout);
  if (present == tagDetectorValue) {
    return;
  }
  debugLog("Setting tag_detector_value to " + std::to_string(present), __func__, __LINE__);
  auto message = std::make_unique<ac::Message>("gpio_set_value");
  message->add_int("gpio", tagDetectorRelayGPIO);
  message->add_int("value", present);
  ac::PostOffice::send_message(std::move(message));
  tagDetectorValue = present;
}

int run() {
  std::thread(processQueue).detach();
  setProbeInterval(intSetting("probe_interval"));
  // Shared, because the dispatch thread outlives this function when the serial line fails.
  const auto cardsRead = std::make_shared<std::condition_variable>();
  std::thread([cardsRead] { dispatchCards(*cardsRead); }).detach();
  TimePoint lastSeen;
  for (;;) {
    readTags(lastSeen, *cardsRead);
  }
}
