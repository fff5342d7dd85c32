// One reading's way to the door: from the last byte of the reader's answer until the relay is on, through the plug-in's
// threads and those of the host's services. Beside it the bare chain of as many threads: a blocking read, then from
// queue to queue, and nothing done in between. They take turns, a reading each; whose turn it is not waits in its read.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "ac/message.h"
#include "bare_chain.h"
#include "card_value.h"
#include "door/journal/bookkeeping.h"
#include "door/journal/journal.h"
#include "door/services/alarms.h"
#include "door/services/door_service.h"
#include "door/services/gpio_service.h"
#include "door/services/identifier_service.h"
#include "door/services/settings_changes.h"
#include "door/services/user_store.h"
#include "globals.h"
#include "notice.h"
#include "reader_end.h"
#include "reading_loop.h"
#include "refhost/bus_view.h"
#include "settings.h"
#include "store.h"
#include "t640.h"
#include "table.h"

namespace {

constexpr int kReadings = 300;  // every other without the journal

Moment bytes_read;

}  // namespace

// The linker sends the plug-in's read here (--wrap).
extern "C" ssize_t __real_read(int file, void* data, std::size_t size);
extern "C" ssize_t __wrap_read(int file, void* data, std::size_t size) {
  const auto count = __real_read(file, data, size);
  bytes_read.come();
  return count;
}

namespace {

// Microseconds of each reading after its last byte was sent.
struct Times {
  std::vector<double> read;       // the plug-in's read has returned
  std::vector<double> announced;  // the dispatch sends the card
  std::vector<double> decided;    // the identifier asks for the door
  std::vector<double> relay_on;
};

// The plug-in and the services between it and the relay, with a user for each card.
class Door {
 public:
  Door() {
    store_->override_for_run("uhf", "probe_interval", std::to_string(kProbeInterval.count()));
    store_->override_for_run("host", "door_open_time", "100");
    uhf_operation_mode_ = CONTINUOUS;
    same_tag_timeout_ = 1000;
    different_tag_timeout_ = 0;
    watchdogTimeout = 1000;
    for (int tag = 1; tag <= kReadings; ++tag) {
      const auto bytes = notice(tag);
      users_.bind(toCardValue({bytes.begin() + 8, bytes.begin() + 20}), tag, "");
    }
    t640_module = std::make_unique<ac::UHF::T640>(reader_.path(), std::chrono::milliseconds(1000));
    std::thread(run).detach();
  }

  // One reading; returns when the door is closed again.
  void measure(int tag, bool is_noted, Times& times) {
    is_noting_ = is_noted;
    relay_on_.reset();
    relay_off_.reset();
    const auto sent = reader_.answer(tag);
    const auto since = [sent](const Moment& moment) { return static_cast<double>(moment.wait() - sent) / 1e3; };
    times.relay_on.push_back(since(relay_on_));
    times.read.push_back(since(bytes_read));
    times.announced.push_back(since(announced_));
    times.decided.push_back(since(decided_));
    relay_off_.wait();
  }

 private:
  // On the thread that sends.
  void see(const ac::Message& message) {
    if (message.type() == "identifier_new_card") {
      announced_.come();
    } else if (message.type() == "actuator_open_door") {
      decided_.come();
    } else if (message.type() == "gpio_notified") {
      int value = 0;
      message.get_int("value", &value);
      (value != 0 ? relay_on_ : relay_off_).come();
    }
  }

  ReaderEnd reader_;
  TemporaryDirectory directory_;
  Store store_;
  achost::UserStore users_{directory_.path(), achost::UserStore::Access::read_write};
  Moment announced_;
  Moment decided_;
  Moment relay_on_;
  Moment relay_off_;
  refhost::BusTap tap_{[this](const ac::Message& message) { see(message); }};
  achost::GpioService gpio_;
  std::atomic<bool> is_noting_ = false;
  achost::Journal journal_{directory_.path()};
  const achost::Bookkeeping books_{.note = [this](const achost::Entry& entry) {
    if (is_noting_) {
      journal_.note(entry);
    }
  }};
  achost::DoorService door_{books_};
  achost::Alarms alarms_;
  achost::SettingsChanges changes_{*store_, alarms_};
  achost::Visits visits_;
  achost::ClockTrust clock_;
  achost::IdentifierService identifier_{
      {.users = users_, .changes = changes_, .books = books_, .visits = visits_, .clock = clock_, .is_locked = [] {
         return false;
       }}};
};

}  // namespace

int main() {
  // Never destroyed: their threads have no end.
  auto& door = *new Door;
  auto& chain = *new BareChain;
  Times times;
  Times without_journal;
  std::vector<double> bare;
  for (int tag = 1; tag <= kReadings; ++tag) {
    const bool is_noted = tag % 2 == 0;
    door.measure(tag, is_noted, is_noted ? times : without_journal);
    bare.push_back(chain.measure(tag));
  }
  const auto micro = [](double time) { return number(time) + " µs"; };
  const auto part = [&](const char* what, const std::vector<double>& part_times) {
    print_row(what, micro(median(part_times)), ratio_of(part_times, times.relay_on));
  };
  print_row("from the reader's last byte to the relay, median", micro(median(times.relay_on)),
            ratio_of(times.relay_on, bare));
  print_row("the same through a bare chain of five threads, median", micro(median(bare)));
  part("of it until the plug-in has read it", times.read);
  part("of it until the dispatch announces the card", times.announced);
  part("of it until the identifier asks for the door", times.decided);
  print_row("the same without the journal, median", micro(median(without_journal.relay_on)));
  print_row("what the journal adds to it", micro(median(times.relay_on) - median(without_journal.relay_on)), "",
            "20 µs");
  const double tail = quantile(times.relay_on, 0.99);
  const double bare_tail = quantile(bare, 0.99);
  print_row("from the reader's last byte to the relay, 99 of 100", micro(tail), ratio_of(tail, bare_tail));
  print_row("the same through a bare chain of five threads, 99 of 100", micro(bare_tail));
  _exit(0);
}
