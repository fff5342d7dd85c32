#include "door/control/enrollment_request.h"

#include <chrono>

#include "door/journal/changes.h"
#include "door/services/event.h"
#include "refhost/send.h"

namespace achost {
namespace {

// Ends the enrollment when the connection's thread leaves it, however it does.
class Stay {
 public:
  Stay(EnrollerService& enroller, std::uint64_t id) : enroller_(enroller), id_(id) {}
  ~Stay() { enroller_.give_up(id_); }
  Stay(const Stay&) = delete;
  Stay& operator=(const Stay&) = delete;

 private:
  EnrollerService& enroller_;
  const std::uint64_t id_;
};

void ask_plugin(const Json& request, const std::string& registration) {
  refhost::send("enroller_remote_enroll", {{"type", "card"},
                                           {"user_id", request["user"].get<std::int64_t>()},
                                           {"save", request.value("save", true) ? 1 : 0},
                                           {"registration", registration}});
}

// The outcome, or what stands for it when the client has gone.
EnrollerService::Outcome outcome_of(std::future<EnrollerService::Outcome>& outcome, ControlStream& stream) {
  while (outcome.wait_for(kLook) != std::future_status::ready) {
    if (stream.is_over()) {
      return {.card = std::nullopt, .failure = "given up"};
    }
  }
  return outcome.get();
}

EnrollerService::Reservation reserve(EnrollerService& enroller, const UserStore& users, std::int64_t user,
                                     std::function<bool()> is_there) {
  try {
    return enroller.reserve(user, std::move(is_there));
  } catch (const EnrollerBusy& busy) {
    throw std::runtime_error("enrollment of " + named(user, users.name_of(user)) + ": failed: " + busy.what());
  }
}

}  // namespace

Json enroll(const Json& request, const std::string& plugin, EnrollerService& enroller, const UserStore& users,
            ControlStream& stream, const std::function<void(const Entry&)>& note) {
  if (plugin.empty()) {
    throw std::runtime_error("the plug-in has not started yet: see achost status");
  }
  const auto user = request["user"].get<std::int64_t>();
  const std::string registration = request.value("registration", "");
  if (user < 1) {
    throw RequestError("a user has a number of 1 or more, not " + std::to_string(user));
  }
  if (registration.size() > kLongestRegistration) {
    throw RequestError("a registration has at most " + std::to_string(kLongestRegistration) + " bytes");
  }
  if (!request.value("wait", false)) {
    reserve(enroller, users, user, nullptr);
    note(command_given("enroll", {}, user));
    ask_plugin(request, registration);
    return {{"user", user}};
  }
  auto [id, future] = reserve(enroller, users, user, [&stream] { return !stream.is_over(); });
  const Stay stay(enroller, id);
  note(command_given("enroll", {}, user));
  ask_plugin(request, registration);
  const auto outcome = outcome_of(future, stream);
  const auto name = users.name_of(user);
  if (!outcome.card.has_value()) {
    throw std::runtime_error("enrollment of " + named(user, name) + ": " + outcome.failure);
  }
  return {{"user", user}, {"user_name", name}, {"card", *outcome.card}, {"card_hex", hexadecimal(*outcome.card)}};
}

}  // namespace achost
