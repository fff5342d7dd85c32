#include "door/services/enroller_service.h"

#include <chrono>
#include <exception>
#include <utility>

#include "ac/config_util.h"
#include "refhost/log.h"
#include "refhost/send.h"

namespace achost {
namespace {

void tell_error(EnrollerError error, std::int64_t user, const std::string& reason) {
  refhost::send("enroller_error", {{"error", static_cast<int>(error)}, {"user_id", user}, {"reason", reason}});
}

void tell_timeout(std::int64_t user) { refhost::send("enroll_timeout", {{"user_id", user}}); }

void refuse(const std::string& why, std::int64_t user = 0) {
  refhost::log::warning("enroller: " + why);
  tell_error(kUnknownError, user, why);
}

}  // namespace

EnrollerService::EnrollerService(UserStore& users)
    : users_(users),
      timer_("enroll_timer", [this] { give_up_when_due(); }),
      subscriber_("enroller", {{"enroll_card", [this](ac::Message* message) { order(*message); }, false},
                               {"identifier_new_card", [this](ac::Message* message) { take_card(*message); }, false}}) {
}

void EnrollerService::order(const ac::Message& message) {
  int state = 0;
  if (!message.get_int("state", &state)) {
    refuse("\"enroll_card\" without an int \"state\"");
  } else if (state != 0) {
    begin(message);
  } else if (const auto enrollment = end()) {
    tell_timeout(enrollment->user);
  }
}

void EnrollerService::begin(const ac::Message& message) {
  Enrollment wanted;
  int remote = 0;
  message.get_int("remote", &remote);
  message.get_string("registration", &wanted.registration);
  wanted.remote = remote != 0;
  if (!message.get_int64("user_id", &wanted.user) || wanted.user < 1) {
    return refuse("\"enroll_card\" without an int64 \"user_id\" of 1 or more", wanted.user);
  }
  if (wanted.registration.size() > kLongestRegistration) {
    return refuse("a registration of " + std::to_string(wanted.registration.size()) + " bytes: at most " +
                      std::to_string(kLongestRegistration) + " are taken",
                  wanted.user);
  }
  wanted.until = refhost::Timer::Clock::now() +
                 std::chrono::milliseconds(ac::config_util::get_int("host", "enroll_timeout", true));
  const std::lock_guard lock(mutex_);
  if (enrollment_.has_value()) {
    return tell_error(kEnrollerBusy, wanted.user, "another enrollment runs");
  }
  timer_.start(wanted.until);
  enrollment_ = std::move(wanted);
}

void EnrollerService::take_card(const ac::Message& message) {
  std::int64_t card = 0;
  if (!message.get_int64("value", &card)) {
    return;  // the identifier says so in the log
  }
  if (const auto enrollment = end()) {
    bind(*enrollment, card);
  }
}

void EnrollerService::bind(const Enrollment& enrollment, std::int64_t card) {
  try {
    const auto value = static_cast<std::uint64_t>(card);
    const bool is_free = enrollment.remote ? !users_.owner_of(value).has_value()
                                           : users_.bind(value, enrollment.user, enrollment.registration);
    if (is_free) {
      refhost::send("enroll_rfid_successful", {{"user_card", card}, {"user_id", enrollment.user}});
    } else {
      tell_error(kCardIsTaken, enrollment.user, "the card is somebody's already");
    }
  } catch (const std::exception& failure) {
    refuse(std::string("the card is not stored: ") + failure.what(), enrollment.user);
  }
}

void EnrollerService::give_up_when_due() {
  const std::lock_guard lock(mutex_);
  if (enrollment_.has_value() && enrollment_->until <= refhost::Timer::Clock::now()) {
    tell_timeout(enrollment_->user);
    enrollment_.reset();
  }
}

// The enrollment that runs, which is over then.
std::optional<EnrollerService::Enrollment> EnrollerService::end() {
  const std::lock_guard lock(mutex_);
  return std::exchange(enrollment_, std::nullopt);
}

}  // namespace achost
