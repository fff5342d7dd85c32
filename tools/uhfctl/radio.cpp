// What the reader can be asked and told about its radio.
#include <algorithm>
#include <cstdio>

#include "commands.h"
#include "config/int_ranges.h"
#include "failure.h"
#include "port.h"
#include "regions.h"
#include "terminal.h"

namespace uhfctl {

namespace {

using Object = nlohmann::ordered_json;
using refhost::power_text;

Port open(const Common& common) { return Port(common.port, std::chrono::milliseconds(common.timeout)); }

[[noreturn]] void no_answer(const Port& port, const std::string& what) {
  throw Failure(kNoAnswer, "the reader at " + port.path() + " did not answer in time " + what);
}

std::string milliseconds(Clock::duration time) { return seconds(time * 1000, 1) + " ms"; }

ac::UHF::DemodSensitivityInfo sensitivity_of(const Port& port) {
  const auto [answered, info] = talking(port, [](const auto& driver) { return driver.getDemodulationSensitivity(); });
  if (!answered) {
    no_answer(port, "to the question for its sensitivity");
  }
  return info;
}

Object as_object(const ac::UHF::DemodSensitivityInfo& info) {
  return {{"m", info.m}, {"i", info.i}, {"threshold", info.sensitivity}};
}

std::string as_text(const ac::UHF::DemodSensitivityInfo& info) {
  return "m " + std::to_string(info.m) + ", i " + std::to_string(info.i) + ", threshold " +
         std::to_string(info.sensitivity);
}

bool operator==(const ac::UHF::DemodSensitivityInfo& a, const ac::UHF::DemodSensitivityInfo& b) {
  return a.m == b.m && a.i == b.i && a.sensitivity == b.sensitivity;
}

}  // namespace

void info(const Common& common) {
  const auto port = open(common);
  constexpr int kQuestions = 10;
  const auto power = port.power_or_nobody();
  std::vector<Clock::duration> times;
  for (int i = 0; i < kQuestions; ++i) {
    const auto begin = Clock::now();
    if (!talking(port, [](const auto& driver) { return driver.getTransmitPower(); }).first) {
      no_answer(port, "to question " + std::to_string(i + 2) + " of " + std::to_string(kQuestions + 1));
    }
    times.push_back(Clock::now() - begin);
  }
  std::ranges::sort(times);
  const auto sensitivity = sensitivity_of(port);
  if (common.json) {
    const auto ms = [](Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); };
    print(Object{{"port", common.port},
                 {"power", power},
                 {"sensitivity", as_object(sensitivity)},
                 {"round_trip_ms",
                  {{"least", ms(times.front())}, {"median", ms(times[kQuestions / 2])}, {"most", ms(times.back())}}}});
    return;
  }
  print(table({{"port", common.port},
               {"reader", coloured(Colour::green, "answers")},
               {"power", std::to_string(power) + " (" + power_text(power) + ")"},
               {"sensitivity", as_text(sensitivity)},
               {"round trip", milliseconds(times[kQuestions / 2]) + " (" + milliseconds(times.front()) + " to " +
                                  milliseconds(times.back()) + ", " + std::to_string(kQuestions) + " questions)"}}));
}

void cannot_be_asked(const std::string& what, const std::string& setting) {
  throw Failure(kFailed, "a reader cannot be asked for its " + what +
                             ": the protocol has no such question; what a host set is its setting " + setting +
                             " (`achost config get uhf " + setting + "`)");
}

void get_power(const Common& common) {
  const auto power = open(common).power_or_nobody();
  common.json ? print(Object{{"power", power}}) : print(std::to_string(power) + "  (" + power_text(power) + ")\n");
}

void set_power(const Common& common, const std::string& power, const Law& law) {
  const auto wanted = static_cast<unsigned short>(power_from(power));
  hold_power_to(law, wanted);
  const auto port = open(common);
  const auto before = port.power_or_nobody();
  if (!talking(port, [wanted](const auto& driver) { return driver.setTransmitPower(wanted); })) {
    no_answer(port, "to the new power");
  }
  const auto after = port.power();
  if (after != wanted) {
    throw Failure(kFailed, "the reader was told the power " + power_text(wanted) + " and has " + power_text(after) +
                               ": is that within what it can do?");
  }
  common.json ? print(Object{{"power", after}, {"previous_power", before}})
              : print(std::to_string(after) + "  (" + power_text(after) + "), before " + std::to_string(before) + "\n");
}

void set_region(const Common& common, const std::string& region) {
  const auto name = limit_of(region).region;
  const auto wanted = regionOf(name).value();
  const auto port = open(common);
  port.power_or_nobody();
  if (!talking(port, [wanted](const auto& driver) { return driver.setWorkArea(wanted); })) {
    no_answer(port, "to the new region");
  }
  common.json ? print(Object{{"region", name}})
              : print(std::string(name) + "  (answered; a reader cannot be asked for its region)\n");
}

void set_channels(const Common& common, const std::string& channels, const Law& law) {
  const auto wanted = refhost::parse_int_ranges(channels);
  if (!wanted.has_value() || wanted->size() > 255 || std::ranges::max(*wanted) > 255) {
    throw Failure(kUsage, "\"" + channels +
                              "\" is no list of channels: give ranges of numbers from 0 to 255, such as 0-10;26-51");
  }
  hold_channels_to(law, channels);
  const auto port = open(common);
  port.power_or_nobody();
  if (!talking(port, [numbers = std::vector<unsigned char>(wanted->begin(), wanted->end())](const auto& driver) {
        return driver.setWorkChannel(numbers);
      })) {
    no_answer(port, "to the new channels");
  }
  common.json ? print(Object{{"channels", *wanted}})
              : print(channels + "  (" + std::to_string(wanted->size()) +
                      " channels; answered; a reader cannot be asked for its channels)\n");
}

void get_sensitivity(const Common& common) {
  const auto port = open(common);
  port.power_or_nobody();
  const auto info = sensitivity_of(port);
  common.json ? print(as_object(info)) : print(as_text(info) + "\n");
}

void set_sensitivity(const Common& common, const std::vector<int>& values) {
  const ac::UHF::DemodSensitivityInfo wanted{static_cast<unsigned char>(values[0]),
                                             static_cast<unsigned char>(values[1]),
                                             static_cast<unsigned short>(values[2])};
  const auto port = open(common);
  port.power_or_nobody();
  const auto before = sensitivity_of(port);
  if (!talking(port, [wanted](const auto& driver) { return driver.setDemodulationSensitivity(wanted); })) {
    no_answer(port, "to the new sensitivity");
  }
  const auto after = sensitivity_of(port);
  if (!(after == wanted)) {
    throw Failure(kFailed, "the reader was told the sensitivity " + as_text(wanted) + " and has " + as_text(after));
  }
  common.json ? print(as_object(after)) : print(as_text(after) + "  (before " + as_text(before) + ")\n");
}

}  // namespace uhfctl
