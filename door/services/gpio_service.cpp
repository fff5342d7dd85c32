#include "door/services/gpio_service.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

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

// The "gpio" field of the message as a number below `lines`.
std::optional<int> line_of(const ac::Message& message, int lines) {
  const auto line = field(message, "gpio");
  if (!line.has_value()) {
    return std::nullopt;
  }
  if (*line < 0 || *line >= lines) {
    refhost::log::warning("gpio: \"" + message.type() + "\" of line " + std::to_string(*line) +
                          ": there are lines 0 to " + std::to_string(lines - 1));
    return std::nullopt;
  }
  return line;
}

void tell(const gpio::Change& change) {
  const bool is_exit = change.line == kExitButton;
  auto notice = std::make_unique<ac::Message>(is_exit ? "sec_box_rex_changed" : "gpio_notified");
  if (is_exit) {
    notice->add_int("active", 1 - change.level);
  } else {
    notice->add_int("gpio", change.line);
    notice->add_int("value", change.level);
  }
  notice->add_int64("at", change.at);
  ac::PostOffice::send_message(std::move(notice));
}

}  // namespace

GpioService::GpioService()
    : lines_((virtual_.begin(tell), &virtual_)),
      subscriber_("gpio",
                  {{"gpio_current_state", [this](ac::Message* message) { answer_current_state(*message); }, false},
                   {"gpio_set_value", [this](ac::Message* message) { set_value(*message); }, false}}) {}

void GpioService::use(std::unique_ptr<gpio::Lines> lines) {
  given_ = std::move(lines);
  given_->begin(tell);
  lines_ = given_.get();
}

void GpioService::answer_current_state(const ac::Message& message) const {
  if (const auto line = line_of(message, kLines)) {
    refhost::Answer(message).add_int("value", lines().level(*line)).send();
  }
}

void GpioService::set_value(const ac::Message& message) {
  const auto line = line_of(message, kLines);
  const auto wanted = field(message, "value");
  if (line.has_value() && wanted.has_value()) {
    lines().set(*line, *wanted != 0 ? 1 : 0);
  }
}

}  // namespace achost
