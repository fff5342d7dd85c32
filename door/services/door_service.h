// The door of the device.
#pragma once

#include <array>
#include <atomic>
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
  kByCommand = 3,
  kByMode = 4,  // nobody asks for it: the door is in that mode
};

// There is no other.
inline constexpr int kTheDoor = 1;

// How long the door is open when its relay is tried.
inline constexpr std::chrono::seconds kRelayTestTime{1};

// A card that stays is announced again uhf.read_interval and some polls later.
inline constexpr std::chrono::milliseconds kSomePolls{250};

// For a person and for a program: "identification", "exit request", "test of the relay", "command", "unlocked", "reason
// 5".
std::string text_of(DoorReason reason);

// Door 1, as a user of the bus. "actuator_open_door" {int "id", int "reason"} switches the relay of setting
// host.door_relay on, until host.door_open_time after the latest request (a test, for a second, cuts none short; where
// that is as long as a card that stays is silent, it lasts until the card is announced again, so that the relay does
// not fall between); the relay that was switched on is the one that is switched off. It sends "gpio_set_value" for the
// relay's line, and "door_state" {int "id", int "open", int "reason"} at each opening and closing. A relay that the
// host may not use, an unknown door and a message without its fields are logged, and nothing opens. An opening is noted
// in the journal before the relay moves.
class DoorService {
 public:
  // books must outlive it.
  explicit DoorService(const Bookkeeping& books);

  // Closes the door.
  ~DoorService();

  DoorService(const DoorService&) = delete;
  DoorService& operator=(const DoorService&) = delete;

  using Time = refhost::Timer::Clock::time_point;

  // Any thread may call all of these.

  // Close the door when its time is over. The service does it by itself; whoever watches over it calls this too.
  void close_when_due(Time now = refhost::Timer::Clock::now());

  // From now on it is open until this is called with false; then it closes when the time of the latest request is over.
  void stay_open(bool stays);

  // Where it is to stay open and has no relay for it, as the tag detector had it: whether it has one now.
  void stay_open_if_possible();

  // Somebody has opened it then, and it is shut again: it closes at once, but for whoever has asked since.
  void close_after_use(Time opened);

  // Its relay has fallen, and not by this service: it is switched on again where the door is to stay open.
  void relay_fell(int line);

  bool is_open() const { return is_open_; }

 private:
  struct Opening {
    int relay;
    int reason;
    Time requested;
    Time until;
  };

  void request(const ac::Message& message);
  void open_or_prolong(int reason);
  bool open(int reason);
  void begin_opening(const Opening& opening);
  void note_opening(int relay, int reason) const;
  void close();

  const Bookkeeping& books_;
  std::mutex mutex_;  // guards opening_ and stays_; the bus's thread and the timers' share it
  std::optional<Opening> opening_;
  bool stays_ = false;
  std::atomic<bool> is_open_ = false;     // whether there is an opening; set before the relay moves
  std::array<refhost::Timer, 2> timers_;  // two threads, each of which closes: either may be held up
  refhost::Subscriber subscriber_;        // last: it stops using the others before they go
};

}  // namespace achost
