// What a host may look up in uhf.so beyond init() and run(): the same names are here, and mean nothing.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <new>
#include <unordered_map>

#include "desk.h"
#include "report.h"
#include "symbols.h"
#include "waiting.h"

namespace {

using TimePoint = std::chrono::steady_clock::time_point;
using CardTimes = std::unordered_map<std::uint64_t, TimePoint>;

bool is_made = false;  // the queue; written when the file is loaded

}  // namespace

// Made when the file is loaded, where the host has what that takes; never destroyed.
union Queue {
  Queue() {
    if (!hostcheck::missing_symbols().empty()) {
      return;
    }
    hostcheck::report().examine({"1.2"});
    const auto thrown = hostcheck::thrown_by([this] { new (&queue) ac::MessageEnqueuer; });
    if (thrown) {
      hostcheck::report().found("1.2", "making a queue before init() threw: " + *thrown);
    }
    is_made = !thrown;
  }
  ~Queue() {}

  ac::MessageEnqueuer queue;
};

// NOLINTBEGIN(readability-identifier-naming): as uhf.so names them
extern int trigAntiesmagGPIO, watchdogTimeout, tagDetectorTagPresentTimeout, tagDetectorRelayGPIO, probeInterval;
int trigAntiesmagGPIO, watchdogTimeout, tagDetectorTagPresentTimeout, tagDetectorRelayGPIO, probeInterval;
std::atomic<bool> tagDetectorEnabled;
std::atomic<int> tagDetectorValue, uhf_operation_mode_, trigger_idle_;
std::atomic<std::int64_t> trigger_timeout_, same_tag_timeout_, different_tag_timeout_;
TimePoint lastTriggerTimePoint;
std::mutex lastTriggerTimePointMutex, cardsReadMutex_, db_create_mutex;
CardTimes lastCardsRead_, lastCardsSent_;
Queue enqueuer;
void* t640_module;  // a pointer that owns nothing

void setWorkChannel() {}
// NOLINTEND(readability-identifier-naming)

ac::MessageEnqueuer& hostcheck::plugin_queue() { return enqueuer.queue; }
bool hostcheck::is_queue_made() { return is_made; }
