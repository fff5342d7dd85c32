#include "waiting.h"

#include <exception>
#include <memory>
#include <thread>

namespace hostcheck {

std::optional<std::string> thrown_by(const std::function<void()>& action) {
  try {
    action();
    return std::nullopt;
  } catch (const std::exception& failure) {
    return failure.what();
  } catch (...) {
    return "what is no std::exception";
  }
}

Outcome outcome_of(std::function<void()> action, std::chrono::milliseconds patience) {
  const auto outcomes = std::make_shared<Seen<Outcome>>();
  std::thread([action = std::move(action), outcomes] { outcomes->add({true, thrown_by(action)}); }).detach();
  return outcomes->wait_for(1, patience) ? outcomes->all().front() : Outcome();
}

std::string words_of(const Outcome& outcome) {
  return outcome.has_ended ? "threw: " + outcome.thrown.value_or("nothing") : "has not returned after some seconds";
}

}  // namespace hostcheck
