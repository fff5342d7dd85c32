#include "door/services/gpio_service.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "ac/post_office.h"
#include "refhost/answer.h"
#include "refhost/log.h"

namespace achost {
namespace {

// The int field of the message, or nothing, logged, when it is not there.
std::optional<int> field(const ac::Message& message, const char* name) {
  int value = 0;
  if (!message.get_int(name, &value)) {
    refhost::log::warning("gpio: \"" + message.type() + "\" without an int \"" + name + "\"");
    return std::nullopt;
  }
  return value;
}

// The "gpio" field of the message as an index below `lines`.
std::optional<std::size_t> line_of(const ac::Message& message, int lines) {
  const auto line = field(message, "gpio");
  if (!line.has_value()) {
    return std::nullopt;
  }
  if (*line < 0 || *line >= lines) {
    refhost::log::warning("gpio: \"" + message.type() + "\" of line " + std::to_string(*line) +
                          ": there are lines 0 to " + std::to_string(lines - 1));
    return std::nullopt;
  }
  return static_cast<std::size_t>(*line);
}

}  // namespace

GpioService::GpioService()
    : subscriber_("gpio",
                  {{"gpio_current_state", [this](ac::Message* message) { answer_current_state(*message); }, false},
                   {"gpio_set_value", [this](ac::Message* message) { set_value(*message); }, false}}) {}

std::array<int, GpioService::kLines> GpioService::levels() const {
  std::array<int, kLines> levels{};
  std::ranges::transform(values_, levels.begin(), [](const std::atomic<int>& value) { return value.load(); });
  return levels;
}

void GpioService::answer_current_state(const ac::Message& message) const {
  if (const auto line = line_of(message, kLines)) {
    refhost::Answer(message).add_int("value", values_[*line].load()).send();
  }
}

void GpioService::set_value(const ac::Message& message) {
  const auto line = line_of(message, kLines);
  const auto wanted = field(message, "value");
  if (!line.has_value() || !wanted.has_value()) {
    return;
  }
  const int value = *wanted != 0 ? 1 : 0;
  if (values_[*line] == value) {
    return;
  }
  values_[*line] = value;
  auto notice = std::make_unique<ac::Message>("gpio_notified");
  notice->add_int("gpio", static_cast<int>(*line));
  notice->add_int("value", value);
  ac::PostOffice::send_message(std::move(notice));
}

}  // namespace achost
