#include "door/run/clock_watch.h"

#include <chrono>

#include "door/base/local_time.h"
#include "door/journal/journal.h"
#include "door/services/identifier_service.h"
#include "refhost/clock.h"

namespace achost {
namespace {

constexpr const char* kAlarm = "clock";

// Of the journal, whose newest may be of a clock that was lost.
constexpr std::int64_t kEntriesThatKnowTheTime = 1000;

}  // namespace

void ClockWatch::begin(const std::filesystem::path& state) {
  Journal::read(state, {.last = kEntriesThatKnowTheTime},
                [this](const JournalEntry& entry) { trust_.know(entry.time.wall); });
  look();
}

void ClockWatch::look() {
  const auto now = IdentifierService::system_clocks().wall;
  trust_.look(now, refhost::clock_is_trusted());
  if (trust_.is_trusted(now)) {
    alarms_.clear(kAlarm);
  } else {
    const auto known = Milliseconds(std::chrono::milliseconds(trust_.known()));
    alarms_.raise(kAlarm, "the clock has lost its time, or was set back: it was " +
                              local_time(known, "%Y-%m-%d %H:%M") +
                              " already: set it right, or let a time service keep it");
  }
}

}  // namespace achost
