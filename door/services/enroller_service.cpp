#include "door/services/enroller_service.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "ac/config_util.h"
#include "refhost/log.h"

namespace achost {
namespace {

// From now on.
refhost::Timer::Clock::time_point end_of_waiting() {
  return refhost::Timer::Clock::now() +
         std::chrono::milliseconds(ac::config_util::get_int("host", "enroll_timeout", true));
}

constexpr const char* kRuns = "another enrollment runs";
constexpr const char* kAskerGone = "whoever asked for it has gone";

// How long a plug-in may take to order what it was asked for.
constexpr std::chrono::seconds kOrdering{5};

}  // namespace

EnrollerService::Enrollment::Enrollment() = default;

EnrollerService::EnrollerService(UserStore& users)
    : users_(users),
      timer_("enroll_timer", [this] { give_up_when_due(); }),
      subscriber_("enroller", {{"enroll_card", [this](ac::Message* message) { order(*message); }, false},
                               {"identifier_new_card", [this](ac::Message* message) { take_card(*message); }, false}}) {
}

// With the user's name, which nobody waits for and nothing depends on.
void EnrollerService::tell(const char* type, std::int64_t user,
                           std::vector<std::pair<std::string, refhost::FieldValue>> fields) const {
  fields.emplace_back("user_id", user);
  try {
    if (auto name = users_.name_of(user); !name.empty()) {
      fields.emplace_back("user_name", std::move(name));
    }
  } catch (const std::exception& failure) {
    refhost::log::warning(std::string("enroller: the user's name is not known: ") + failure.what());
  }
  refhost::send(type, fields);
}

void EnrollerService::tell_error(EnrollerError error, std::int64_t user, const std::string& reason) const {
  tell("enroller_error", user, {{"error", static_cast<int>(error)}, {"reason", reason}});
}

// reason: in words; empty when there was no card in time.
void EnrollerService::tell_timeout(std::int64_t user, const std::string& reason) const {
  std::vector<std::pair<std::string, refhost::FieldValue>> fields;
  if (!reason.empty()) {
    fields.emplace_back("reason", reason);
  }
  tell("enroll_timeout", user, std::move(fields));
}

void EnrollerService::refuse(const std::string& why, std::int64_t user) const {
  refhost::log::warning("enroller: " + why);
  tell_error(kUnknownError, user, why);
}

EnrollerService::Reservation EnrollerService::reserve(std::int64_t user, std::function<bool()> is_there) {
  const std::lock_guard lock(mutex_);
  if (enrollment_.has_value()) {
    throw EnrollerBusy(kRuns);
  }
  if (std::ranges::find(given_up_, user) != given_up_.end()) {
    throw EnrollerBusy("the plug-in has not taken up the last one yet: see achost status");
  }
  enrollment_.emplace();
  enrollment_->id = ++last_id_;
  enrollment_->user = user;
  enrollment_->is_there = std::move(is_there);
  enrollment_->until = end_of_waiting() + kOrdering;
  timer_.start(enrollment_->until);
  return {.id = last_id_, .outcome = enrollment_->outcome.get_future()};
}

void EnrollerService::give_up(std::uint64_t id) {
  const std::lock_guard lock(mutex_);
  if (enrollment_.has_value() && enrollment_->id == id) {
    end(kAskerGone);
  }
}

void EnrollerService::order(const ac::Message& message) {
  int state = 0;
  if (!message.get_int("state", &state)) {
    return refuse("\"enroll_card\" without an int \"state\"");
  }
  if (state != 0) {
    return begin(message);
  }
  const std::lock_guard lock(mutex_);
  if (enrollment_.has_value()) {
    end("it was ordered to end");
  }
}

void EnrollerService::begin(const ac::Message& message) {
  std::int64_t user = 0;
  int remote = 0;
  std::string registration;
  message.get_int("remote", &remote);
  message.get_string("registration", &registration);
  if (!message.get_int64("user_id", &user) || user < 1) {
    return refuse("\"enroll_card\" without an int64 \"user_id\" of 1 or more", user);
  }
  if (registration.size() > kLongestRegistration) {
    return refuse("a registration of " + std::to_string(registration.size()) + " bytes: at most " +
                      std::to_string(kLongestRegistration) + " are taken",
                  user);
  }
  const std::lock_guard lock(mutex_);
  if (const auto vain = std::ranges::find(given_up_, user); vain != given_up_.end()) {
    given_up_.erase(vain);
    return tell_timeout(user, kAskerGone);
  }
  if (!enrollment_.has_value()) {
    enrollment_.emplace().user = user;
  } else if (enrollment_->is_ordered || enrollment_->user != user) {
    return tell_error(kEnrollerBusy, user, kRuns);
  }
  enrollment_->is_ordered = true;
  enrollment_->remote = remote != 0;
  enrollment_->registration = std::move(registration);
  enrollment_->until = end_of_waiting();
  timer_.start(enrollment_->until);
  tell("enroller_waits", user, {});
}

void EnrollerService::take_card(const ac::Message& message) {
  std::int64_t card = 0;
  if (!message.get_int64("value", &card)) {
    return;  // the identifier says so in the log
  }
  if (auto enrollment = taken()) {
    bind(std::move(*enrollment), card);
  }
}

// The enrollment that waits for a card, which is over then. A card that comes when the one who asked has gone is
// anybody's.
std::optional<EnrollerService::Enrollment> EnrollerService::taken() {
  const std::lock_guard lock(mutex_);
  if (!enrollment_.has_value() || !enrollment_->is_ordered) {
    return std::nullopt;
  }
  if (enrollment_->is_there && !enrollment_->is_there()) {
    end(kAskerGone);
    return std::nullopt;
  }
  return std::exchange(enrollment_, std::nullopt);
}

void EnrollerService::bind(Enrollment enrollment, std::int64_t card) {
  const auto fail = [&](EnrollerError error, const std::string& reason) {
    tell_error(error, enrollment.user, reason);
    enrollment.outcome.set_value({.card = std::nullopt, .failure = "failed: " + reason});
  };
  try {
    const auto value = static_cast<std::uint64_t>(card);
    const bool is_free = enrollment.remote ? !users_.owner_of(value).has_value()
                                           : users_.bind(value, enrollment.user, enrollment.registration);
    if (!is_free) {
      return fail(kCardIsTaken, "the card is somebody's already");
    }
    tell("enroll_rfid_successful", enrollment.user, {{"user_card", card}});
    enrollment.outcome.set_value({.card = value, .failure = ""});
  } catch (const std::exception& failure) {
    const std::string reason = std::string("the card is not stored: ") + failure.what();
    refhost::log::warning("enroller: " + reason);
    fail(kUnknownError, reason);
  }
}

// The enrollment that there is, with the lock held. One that the plug-in has yet to order is remembered: its order ends
// nothing else then, and tells the plug-in that it is over.
void EnrollerService::end(const std::string& reason) {
  if (enrollment_->is_ordered) {
    tell_timeout(enrollment_->user, reason);
  } else {
    given_up_.push_back(enrollment_->user);
  }
  enrollment_->outcome.set_value(
      {.card = std::nullopt, .failure = reason.empty() ? "no card came in time" : "given up: " + reason});
  enrollment_.reset();
}

void EnrollerService::give_up_when_due() {
  const std::lock_guard lock(mutex_);
  if (enrollment_.has_value() && enrollment_->until <= refhost::Timer::Clock::now()) {
    end(enrollment_->is_ordered ? "" : "the plug-in has not taken it up");
  }
}

}  // namespace achost
