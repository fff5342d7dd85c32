#include "door/cli/health_line.h"

#include <array>
#include <cstdio>

#include "refhost/log_entry.h"

namespace achost {
namespace {

std::string words_of(const Json& health, const char* field) { return refhost::log::escape(health.value(field, "")); }

// "62 polls/s, 0 % bad, last answer 0.0 s ago".
std::string figures(const Json& health) {
  std::array<char, 96> text{};
  const auto& last = health.at("last_answer_s");
  std::snprintf(text.data(), text.size(), "%.0f polls/s, %.0f %% bad, ", health.at("polls_per_second").get<double>(),
                health.at("bad_share").get<double>() * 100);
  std::array<char, 48> ago{};
  std::snprintf(ago.data(), ago.size(), "last answer %.1f s ago", last.is_null() ? 0.0 : last.get<double>());
  return text.data() + std::string(last.is_null() ? "no answer yet" : ago.data());
}

}  // namespace

std::string duration_text(std::int64_t seconds) {
  const auto part = [](std::int64_t number, const char* unit) { return std::to_string(number) + " " + unit; };
  constexpr std::int64_t kMinute = 60;
  constexpr std::int64_t kHour = 60 * kMinute;
  constexpr std::int64_t kDay = 24 * kHour;
  if (seconds >= kDay) {
    return part(seconds / kDay, "days") + " " + part(seconds % kDay / kHour, "h");
  }
  if (seconds >= kHour) {
    return part(seconds / kHour, "h") + " " + part(seconds % kHour / kMinute, "min");
  }
  return seconds >= kMinute ? part(seconds / kMinute, "min") + " " + part(seconds % kMinute, "s") : part(seconds, "s");
}

std::string health_line(const Json& health) {
  const std::string state = words_of(health, "state");
  if (!health.contains("since_s")) {
    return state + ": " + words_of(health, "cause");
  }
  std::string line = state + " for " + duration_text(static_cast<std::int64_t>(health.at("since_s").get<double>()));
  if (const std::string cause = words_of(health, "cause"); !cause.empty()) {
    line += ": " + cause;
  }
  if (const std::string way_out = words_of(health, "way_out"); !way_out.empty()) {
    return line + "; " + way_out;
  }
  return state == "answering" ? line + ": " + figures(health) : line;
}

}  // namespace achost
