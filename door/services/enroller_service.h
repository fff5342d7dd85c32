// Giving a card to a user.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "ac/message.h"
#include "door/services/user_store.h"
#include "refhost/subscriber.h"
#include "refhost/timer.h"

namespace achost {

// The codes of "enroller_error" that this enroller gives; plug-ins know texts for some of them.
enum EnrollerError : int {
  kUnknownError = 0,  // no user, a registration that is too long, or a card that cannot be stored; logged
  kCardIsTaken = 1,   // the card is somebody's already
  kEnrollerBusy = 9,  // another enrollment runs, and goes on
};

// Binds the next identification to a user, as a user of the bus. "enroll_card" {int "state", int64 "user_id", int
// "remote", string "registration"} with state 1 begins: the next "identifier_new_card" is that user's. It is stored
// unless "remote" is 1: then whoever asked keeps it. Outcomes:
//   "enroll_rfid_successful" {int64 "user_card", int64 "user_id"}
//   "enroll_timeout" {int64 "user_id"}   no card within host.enroll_timeout, or "enroll_card" with state 0
//   "enroller_error" {int "error", int64 "user_id", string "reason"}, the reason in words
class EnrollerService {
 public:
  static constexpr std::size_t kLongestRegistration = 256;  // bytes

  // users must outlive the service.
  explicit EnrollerService(UserStore& users);

 private:
  struct Enrollment {
    std::int64_t user = 0;
    bool remote = false;
    std::string registration;
    refhost::Timer::Clock::time_point until;
  };

  void order(const ac::Message& message);
  void begin(const ac::Message& message);
  void take_card(const ac::Message& message);
  void bind(const Enrollment& enrollment, std::int64_t card);
  void give_up_when_due();
  std::optional<Enrollment> end();

  UserStore& users_;
  std::mutex mutex_;  // guards enrollment_; the bus's thread and the timer's share it
  std::optional<Enrollment> enrollment_;
  refhost::Timer timer_;
  refhost::Subscriber subscriber_;  // last: it stops using the others before they go
};

}  // namespace achost
