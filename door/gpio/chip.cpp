#include "door/gpio/chip.h"

#include <linux/gpio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ac/exception.h"

namespace achost::gpio {
namespace {

[[noreturn]] void fail(const std::string& text) { throw ac::ac_exception("gpio: " + text, true); }

// A text of the kernel, which ends with its array at the latest.
std::string text_of(const char (&array)[GPIO_MAX_NAME_SIZE]) { return {array, strnlen(array, GPIO_MAX_NAME_SIZE)}; }

std::optional<gpiochip_info> info_of(Kernel& kernel, const Descriptor& chip) {
  gpiochip_info info{};
  return kernel.ioctl(chip.number(), GPIO_GET_CHIPINFO_IOCTL, &info) < 0 ? std::nullopt : std::optional(info);
}

std::string in_words(const gpiochip_info& info) { return text_of(info.name) + " (" + text_of(info.label) + ")"; }

Descriptor open_or_fail(Kernel& kernel, const std::string& path) {
  const int chip = kernel.open(path);
  if (chip < 0) {
    fail("cannot open the chip " + path + ": " + std::strerror(-chip) +
         (chip == -EACCES ? "; the group gpio may, where the package's rule is in force" : ""));
  }
  return Descriptor(chip);
}

// The path of the one chip that is called so.
std::string path_of(Kernel& kernel, const std::string& wanted) {
  if (wanted.starts_with('/')) {
    return wanted;
  }
  std::vector<std::string> found;
  for (const auto& path : kernel.chips()) {
    const Descriptor chip(kernel.open(path));
    const auto info = info_of(kernel, chip);
    const bool has_its_name = info.has_value() && text_of(info->name) == wanted;
    if (has_its_name || path.ends_with("/" + wanted)) {
      return path;
    }
    if (info.has_value() && text_of(info->label) == wanted) {
      found.push_back(path);
    }
  }
  if (found.size() > 1) {
    fail("the chips " + found[0] + " and " + found[1] + " are both labelled \"" + wanted +
         "\": give host.gpio_chip a path or a name");
  }
  if (found.empty()) {
    const auto all = chips_text(kernel);
    fail("there is no chip \"" + wanted +
         "\": " + (all.empty() ? "this machine has none that can be opened" : "there are " + all));
  }
  return found.front();
}

std::uint64_t flags_of(const PlannedLine& line) {
  using Bias = WiredLine::Bias;
  std::uint64_t flags = line.is_output
                            ? GPIO_V2_LINE_FLAG_OUTPUT
                            : GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_EDGE_RISING | GPIO_V2_LINE_FLAG_EDGE_FALLING;
  flags |= line.wired.active_low ? GPIO_V2_LINE_FLAG_ACTIVE_LOW : 0;
  switch (line.wired.bias) {
    case Bias::pull_up:
      return flags | GPIO_V2_LINE_FLAG_BIAS_PULL_UP;
    case Bias::pull_down:
      return flags | GPIO_V2_LINE_FLAG_BIAS_PULL_DOWN;
    case Bias::none:
      return flags | GPIO_V2_LINE_FLAG_BIAS_DISABLED;
    default:
      return flags;
  }
}

gpio_v2_line_request request_of(const PlannedLine& line, unsigned offset, int level) {
  gpio_v2_line_request request{};
  request.offsets[0] = offset;
  request.num_lines = 1;
  const std::string consumer = "achost " + line.use;
  consumer.copy(request.consumer, sizeof request.consumer - 1);
  request.config.flags = flags_of(line);
  auto& [attribute, mask] = request.config.attrs[0];
  mask = 1;
  if (line.is_output) {
    attribute.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
    attribute.values = level != 0 ? 1 : 0;
    request.config.num_attrs = 1;
  } else if (line.wired.debounce_ms > 0) {
    attribute.id = GPIO_V2_LINE_ATTR_ID_DEBOUNCE;
    attribute.debounce_period_us = static_cast<std::uint32_t>(line.wired.debounce_ms) * 1000;
    request.config.num_attrs = 1;
  }
  return request;
}

}  // namespace

Descriptor::~Descriptor() {
  if (number_ >= 0) {
    close(number_);
  }
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number_, other.number_);
  return *this;
}

Chip::Chip(Kernel& kernel, const std::string& wanted)
    : kernel_(kernel), chip_(open_or_fail(kernel, path_of(kernel, wanted))) {
  const auto info = info_of(kernel_, chip_);
  if (!info.has_value()) {
    fail(wanted + " is no GPIO chip, or has gone");
  }
  name_ = text_of(info->name);
  label_ = text_of(info->label);
  lines_ = info->lines;
}

unsigned Chip::offset_of(const WiredLine& line, const std::string& setting) const {
  std::vector<unsigned> found;
  const auto number = line.offset();
  for (unsigned offset = 0; offset < lines_; ++offset) {
    if (number.has_value() ? offset == *number : state_of(offset).name == line.line) {
      found.push_back(offset);
    }
  }
  if (found.empty()) {
    fail(setting + ": chip " + description() + " has no line " + line.line + ", but lines 0 to " +
         std::to_string(static_cast<int>(lines_) - 1) + "; achost gpio --chip " + name_ + " shows their names");
  }
  if (found.size() > 1) {
    fail(setting + ": lines " + std::to_string(found[0]) + " and " + std::to_string(found[1]) + " of chip " +
         description() + " are both called " + line.line + ": give its number");
  }
  return found.front();
}

Descriptor Chip::request(const PlannedLine& line, int level) const {
  const unsigned offset = offset_of(line.wired, "host." + line.use);
  auto wanted = request_of(line, offset, level);
  const int result = kernel_.ioctl(chip_.number(), GPIO_V2_GET_LINE_IOCTL, &wanted);
  if (result >= 0) {
    return Descriptor(wanted.fd);
  }
  const std::string what = "host." + line.use + ": line " + std::to_string(offset) +
                           (line.wired.offset().has_value() ? "" : " (" + line.wired.line + ")") + " of chip " +
                           description();
  if (result == -EBUSY) {
    const auto consumer = state_of(offset).consumer;
    fail(what + " is taken by " + (consumer.empty() ? "somebody without a name" : "\"" + consumer + "\""));
  }
  fail("cannot have " + what + ": " + std::strerror(-result));
}

LineState Chip::state_of(unsigned offset) const {
  gpio_v2_line_info info{};
  info.offset = offset;
  if (const int result = kernel_.ioctl(chip_.number(), GPIO_V2_GET_LINEINFO_IOCTL, &info); result < 0) {
    fail("chip " + description() + ": " + std::strerror(-result));
  }
  return {.offset = offset,
          .name = text_of(info.name),
          .is_output = (info.flags & GPIO_V2_LINE_FLAG_OUTPUT) != 0,
          .is_used = (info.flags & GPIO_V2_LINE_FLAG_USED) != 0,
          .consumer = text_of(info.consumer)};
}

// A request without a direction leaves the line as it is.
std::optional<int> Chip::peek(unsigned offset) const {
  gpio_v2_line_request request{};
  request.offsets[0] = offset;
  request.num_lines = 1;
  std::strcpy(request.consumer, "achost gpio");
  if (kernel_.ioctl(chip_.number(), GPIO_V2_GET_LINE_IOCTL, &request) < 0) {
    return std::nullopt;
  }
  const Descriptor line(request.fd);
  const int level = level_of(kernel_, line.number());
  return level < 0 ? std::nullopt : std::optional(level);
}

std::vector<LineState> Chip::survey() const {
  std::vector<LineState> all;
  for (unsigned offset = 0; offset < lines_; ++offset) {
    all.push_back(state_of(offset));
  }
  return all;
}

int level_of(Kernel& kernel, int line) noexcept {
  gpio_v2_line_values values{.bits = 0, .mask = 1};
  const int result = kernel.ioctl(line, GPIO_V2_LINE_GET_VALUES_IOCTL, &values);
  return result < 0 ? result : static_cast<int>(values.bits & 1);
}

int set_level(Kernel& kernel, int line, int level) noexcept {
  gpio_v2_line_values values{.bits = level != 0 ? 1U : 0U, .mask = 1};
  const int result = kernel.ioctl(line, GPIO_V2_LINE_SET_VALUES_IOCTL, &values);
  return result < 0 ? result : 0;
}

std::string chips_text(Kernel& kernel) {
  std::string text;
  for (const auto& path : kernel.chips()) {
    const Descriptor chip(kernel.open(path));
    if (const auto info = info_of(kernel, chip)) {
      text += (text.empty() ? "" : ", ") + in_words(*info);
    }
  }
  return text;
}

}  // namespace achost::gpio
