#include "door/control/enrollment_request.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

#include "ac/config_util.h"
#include "door/services/enroller_service.h"
#include "door/services/event.h"
#include "refhost/send.h"
#include "refhost/subscriber.h"

namespace achost {
namespace {

// The first outcome that comes after its making.
class Outcome {
 public:
  explicit Outcome(std::int64_t user)
      : user_(user),
        subscriber_("enrollment_request", {{"enroll_rfid_successful", see(), false},
                                           {"enroll_timeout", see(), false},
                                           {"enroller_error", see(), false}}) {}

  // Wait for it, as long as the enroller may take and the client is there.
  std::optional<Event> wait(ControlStream& stream) {
    using std::chrono::milliseconds;
    constexpr milliseconds kLook(200);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5) +
                          milliseconds(ac::config_util::get_int("host", "enroll_timeout", true));
    std::unique_lock lock(mutex_);
    while (!event_.has_value() && std::chrono::steady_clock::now() < deadline && !stream.is_over()) {
      arrived_.wait_for(lock, kLook);
    }
    return event_;
  }

 private:
  std::function<void(ac::Message*)> see() {
    return [this](ac::Message* message) {
      std::int64_t user = user_;
      message->get_int64("user_id", &user);
      if (user != user_) {
        return;  // another enrollment's
      }
      const std::lock_guard lock(mutex_);
      if (!event_.has_value()) {
        event_ = Event::from(*message, {});
        arrived_.notify_one();
      }
    };
  }

  const std::int64_t user_;
  std::mutex mutex_;  // guards event_
  std::condition_variable arrived_;
  std::optional<Event> event_;
  refhost::Subscriber subscriber_;  // last: it stops using the others before they go
};

}  // namespace

Json enroll(const Json& request, const std::string& plugin, ControlStream& stream) {
  if (plugin.empty()) {
    throw std::runtime_error("the plug-in has not started yet: see achost status");
  }
  const auto user = request["user"].get<std::int64_t>();
  const std::string registration = request.value("registration", "");
  if (user < 1) {
    throw RequestError("a user has a number of 1 or more, not " + std::to_string(user));
  }
  if (registration.size() > EnrollerService::kLongestRegistration) {
    throw RequestError("a registration has at most " + std::to_string(EnrollerService::kLongestRegistration) +
                       " bytes");
  }
  Outcome outcome(user);
  refhost::send("enroller_remote_enroll", {{"type", "card"},
                                           {"user_id", user},
                                           {"save", request.value("save", true) ? 1 : 0},
                                           {"registration", registration}});
  if (!request.value("wait", false)) {
    return {{"user", user}};
  }
  const auto event = outcome.wait(stream);
  if (!event.has_value()) {
    throw std::runtime_error("nobody has said how the enrollment ended: see achost status");
  }
  if (event->fields.at("state") != "done") {
    throw std::runtime_error("enrollment of user " + std::to_string(user) + ": " + event->text);
  }
  return {{"user", user}, {"card", event->fields.at("card")}, {"card_hex", event->fields.at("card_hex")}};
}

}  // namespace achost
