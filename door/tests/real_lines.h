// The lines of a door on a chip that is none.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "door/gpio/chip_lines.h"
#include "door/services/gpio_service.h"
#include "door/tests/fake_gpio.h"
#include "door/tests/service_fixture.h"

namespace achost::test {

using gpio::ChipLines;

class RealLines : public Services {
 protected:
  RealLines() {
    set_text("gpio_chip", "board");
    set_text("relay_2", "LOCK");
    set_text("exit_button", "REX active-low pull-up debounce=20");
    set_text("trigger_input", "3");
    set_text("reader_reset", "RST active-low");
  }
  ~RealLines() override { gpio_.reset(); }

  void set_text(const std::string& key, const std::string& value) { settings().override_for_run("host", key, value); }

  SettingsValues values() {
    return [this](const std::string& section, const std::string& key) { return settings().get(section, key).value(); };
  }

  std::unique_ptr<ChipLines> lines() {
    return std::make_unique<ChipLines>(
        ChipLines::Needs{kernel, values(), [this](const std::string& text) { troubles.add(text); }},
        gpio_plan(values()));
  }

  // The lines in use, as a host has them.
  GpioService& begin() {
    watch({{"gpio_notified", {"gpio", "value", "at"}}, {"sec_box_rex_changed", {"active", "at"}}});
    gpio_ = std::make_unique<GpioService>();
    gpio_->use(lines());
    return *gpio_;
  }
  void end() { gpio_.reset(); }

  static void put(int line, int value) { refhost::send("gpio_set_value", {{"gpio", line}, {"value", value}}); }

  // That the line came to the level.
  static std::string notice(int line, int value) {
    return "gpio_notified gpio=" + std::to_string(line) + " value=" + std::to_string(value);
  }
  std::vector<std::string> without_times(std::size_t count) {
    auto all = seen(count);
    for (auto& one : all) {
      one.resize(std::min(one.find(" at="), one.size()));
    }
    return all;
  }

  FakeGpio kernel{{{"gpiochip0", "board", {"LOCK", "REX", "RST", "TRIG", "", "SPARE"}},
                   {"gpiochip1", "expander", {"A", "TWICE", "TWICE"}}}};
  Recorder<std::string> troubles;
  std::unique_ptr<GpioService> gpio_;
};

inline constexpr int kLock = 18;
inline constexpr int kTrigger = 1;

}  // namespace achost::test
