// The door of the device.
#pragma once

#include <array>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>

#include "ac/message.h"
#include "door/journal/bookkeeping.h"
#include "refhost/subscriber.h"
#include "refhost/timer.h"

namespace achost {

// Why a door opens, as "actuator_open_door" gives it.
enum DoorReason : int {
  kIdentification = 0,
  kExitRequest = 1,
  kRelayTest = 2,
};

// How long the door is open when its relay is tried.
inline constexpr std::chrono::seconds kRelayTestTime{1};

// For a person and for a program: "identification", "exit request", "test of the relay", "reason 5".
std::string text_of(DoorReason reason);

// Door 1, as a user of the bus. "actuator_open_door" {int "id", int "reason"} switches the relay of setting
// host.door_relay on, until host.door_open_time after the latest request (a test, for a second, cuts none short); the
// relay that was switched on is the one that is switched off. It sends "gpio_set_value" for the relay's line, and
// "door_state" {int "id", int "open", int "reason"} at each opening and closing. A relay that the host may not use, an
// unknown door and a message without its fields are logged, and nothing opens. An opening is noted in the journal
// before the relay moves.
class DoorService {
 public:
  // books must outlive it.
  explicit DoorService(const Bookkeeping& books);

  // Closes the door.
  ~DoorService();

  DoorService(const DoorService&) = delete;
  DoorService& operator=(const DoorService&) = delete;

  // Close the door when its time is over. The service does it by itself; whoever watches over it calls this too. Any
  // thread may call.
  void close_when_due();

 private:
  struct Opening {
    int relay;
    int reason;
    refhost::Timer::Clock::time_point until;
  };

  void request(const ac::Message& message);
  void open_or_prolong(int reason);
  void note_opening(int relay, int reason) const;
  void close();

  const Bookkeeping& books_;
  std::mutex mutex_;  // guards opening_; the bus's thread and the timers' share it
  std::optional<Opening> opening_;
  std::array<refhost::Timer, 2> timers_;  // two threads, each of which closes: either may be held up
  refhost::Subscriber subscriber_;        // last: it stops using the others before they go
};

}  // namespace achost
