// Giving a card to a user.
#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ac/message.h"
#include "door/services/user_store.h"
#include "refhost/send.h"
#include "refhost/subscriber.h"
#include "refhost/timer.h"

namespace achost {

// The codes of "enroller_error" that this enroller gives; plug-ins know texts for some of them.
enum EnrollerError : int {
  kUnknownError = 0,  // no user, a registration that is too long, or a card that cannot be stored; logged
  kCardIsTaken = 1,   // the card is somebody's already
  kEnrollerBusy = 9,  // another enrollment runs, and goes on
};

// There is no place for an enrollment; what() says why.
class EnrollerBusy : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Binds the next identification to a user, as a user of the bus. "enroll_card" {int "state", int64 "user_id", int
// "remote", string "registration"} with state 1 begins: the next "identifier_new_card" is that user's. It is stored
// unless "remote" is 1: then whoever asked keeps it. Outcomes:
//   "enroll_rfid_successful" {int64 "user_card", int64 "user_id"}
//   "enroll_timeout" {int64 "user_id", string "reason"}   no card within host.enroll_timeout; or given up, by
//                                                         "enroll_card" with state 0 or whoever asked: then with reason
//   "enroller_error" {int "error", int64 "user_id", string "reason"}, the reason in words
// "enroller_waits" {int64 "user_id"} says that an enrollment has begun. Each has a string "user_name" if he has one.
//
// Whoever asks the plug-in for an enrollment reserves it first: so there is one at a time, whose outcome is that one's,
// and it ends with the one who asked. Any thread may call.
class EnrollerService {
 public:
  struct Outcome {
    std::optional<std::uint64_t> card;
    std::string failure;  // without a card, in words
  };

  struct Reservation {
    std::uint64_t id = 0;
    std::future<Outcome> outcome;
  };

  // users must outlive the service.
  explicit EnrollerService(UserStore& users);

  // The "enroll_card" that comes next for that user belongs to this reservation. is_there: whether the one who asks
  // still is; asked when a card comes, until the outcome or give_up(), on a thread of the enroller's. Empty: nobody
  // waits for the outcome. It must not call this. Throws EnrollerBusy.
  Reservation reserve(std::int64_t user, std::function<bool()> is_there);

  // End the enrollment, if it has not ended; no card is bound from now on, also when its "enroll_card" has yet to come.
  void give_up(std::uint64_t id);

 private:
  struct Enrollment {
    Enrollment();  // elsewhere: std::optional looks at it before the class is complete

    std::uint64_t id = 0;  // of the reservation; 0: there was none
    std::int64_t user = 0;
    bool remote = false;
    bool is_ordered = false;  // its "enroll_card" has come
    std::string registration;
    refhost::Timer::Clock::time_point until;
    std::function<bool()> is_there;
    std::promise<Outcome> outcome;
  };

  void order(const ac::Message& message);
  void begin(const ac::Message& message);
  void take_card(const ac::Message& message);
  void bind(Enrollment enrollment, std::int64_t card);
  void end(const std::string& reason);
  void give_up_when_due();
  std::optional<Enrollment> taken();
  void tell(const char* type, std::int64_t user, std::vector<std::pair<std::string, refhost::FieldValue>> fields) const;
  void tell_error(EnrollerError error, std::int64_t user, const std::string& reason) const;
  void tell_timeout(std::int64_t user, const std::string& reason) const;
  void refuse(const std::string& why, std::int64_t user = 0) const;

  UserStore& users_;
  std::mutex mutex_;  // guards the next three; the bus's thread, the timer's and those who ask share them
  std::optional<Enrollment> enrollment_;
  std::vector<std::int64_t> given_up_;  // users whose "enroll_card" is still to come, for nothing
  std::uint64_t last_id_ = 0;
  refhost::Timer timer_;
  refhost::Subscriber subscriber_;  // last: it stops using the others before they go
};

}  // namespace achost
