// What the reader can be asked and told about its radio.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "commands.h"
#include "config/int_ranges.h"
#include "failure.h"
#include "frame_catalogue.h"
#include "frame_scan.h"
#include "onlooker.h"
#include "port.h"
#include "recording.h"
#include "regions.h"
#include "terminal.h"

namespace uhfctl {

namespace {

using Object = nlohmann::ordered_json;
using refhost::power_text;

// What was set in a reader that a door lends stays no longer than that. kept: the setting of the door that is the same;
// empty when it has none, and leaves the reader's alone.
void note_the_loan(const Port& port, const std::string& kept) {
  if (port.loan() == nullptr) {
    return;
  }
  const auto& lender = port.loan()->lender();
  note(kept.empty()
           ? lender + " has no such setting: the reader keeps this"
           : lender + " gives the reader its own settings back now; `achost config set " + kept + "` keeps this");
}

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

namespace {

constexpr int kQuestions = 10;

// What a reader tells of itself.
struct Told {
  unsigned short power = 0;
  ac::UHF::DemodSensitivityInfo sensitivity{};
  std::vector<Clock::duration> times;  // of an answer
};

Told ask(const Port& port) {
  Told told{.power = port.power_or_nobody(), .sensitivity = {}, .times = {}};
  for (int i = 0; i < kQuestions; ++i) {
    const auto begin = Clock::now();
    if (!talking(port, [](const auto& driver) { return driver.getTransmitPower(); }).first) {
      no_answer(port, "to question " + std::to_string(i + 2) + " of " + std::to_string(kQuestions + 1));
    }
    told.times.push_back(Clock::now() - begin);
  }
  told.sensitivity = sensitivity_of(port);
  return told;
}

std::string ask_reader(Connection& connection, const std::string& what) {
  try {
    return connection.ask({{"command", "ask_reader"}, {"what", what}}).value("bytes", "");
  } catch (const Failure& failure) {
    // Of a door that is well, only its reader can be what fails.
    throw Failure(failure.status() == kFailed ? kNoReader : failure.status(), failure.what());
  }
}

// The answer to a question that the door puts between those of its plug-in. Throws Failure.
template <typename Answer>
Answer answer_by(Connection& connection, const std::string& what) {
  const auto bytes = parse_hex(ask_reader(connection, what), "the door");
  for (const auto& piece : scan(bytes, true).found) {
    if (const auto* const answer = dynamic_cast<const Answer*>(piece.frame.get())) {
      return *answer;
    }
  }
  throw Failure(kNoAnswer, "what the reader answered to the question for its " + what + " is something else");
}

// Adds how long the answers to questions for the power took, as they went over the line.
void add_times(Onlooker& line, std::vector<Clock::duration>& times) {
  constexpr std::chrono::milliseconds kPatience{200};
  const auto question = ac::UHF::GetTransmitPowerFrame().toData();
  Clock::time_point asked;
  bool is_asked = false;
  while (std::ssize(times) < kQuestions) {
    const auto piece = line.next(kPatience);
    if (!piece.has_value()) {
      return;
    }
    if (piece->direction == Direction::to_reader) {
      asked = piece->at;
      is_asked = piece->bytes == question;
    } else if (std::exchange(is_asked, false)) {
      times.push_back(piece->at - asked);
    }
  }
}

Told ask_beside(const Door& door) {
  door.check_reader();
  note(door.name() + " has the reader, and asks it for us");
  Onlooker line(door);
  auto connection = door.connect();
  Told told;
  for (int i = 0; i < kQuestions; ++i) {
    told.power = answer_by<ac::UHF::GetTransmitPowerResponse>(connection, "power").power();
  }
  told.sensitivity = answer_by<ac::UHF::GetRxSensitiveResponse>(connection, "sensitivity").info();
  add_times(line, told.times);
  if (told.times.empty()) {
    throw Failure(kNoAnswer, door.name() + " does not show what goes over its line");
  }
  return told;
}

Object times_of(const std::vector<Clock::duration>& times) {
  const auto ms = [](Clock::duration time) { return std::chrono::duration<double, std::milli>(time).count(); };
  return {{"least", ms(times.front())}, {"median", ms(times[times.size() / 2])}, {"most", ms(times.back())}};
}

void print_info(const Common& common, Told told) {
  auto& times = told.times;
  std::ranges::sort(times);
  if (common.json) {
    print(Object{{"port", common.port},
                 {"power", told.power},
                 {"sensitivity", as_object(told.sensitivity)},
                 {"round_trip_ms", times_of(times)}});
    return;
  }
  print(table({{"port", common.port},
               {"reader", coloured(Colour::green, "answers")},
               {"power", std::to_string(told.power) + " (" + power_text(told.power) + ")"},
               {"sensitivity", as_text(told.sensitivity)},
               {"round trip", milliseconds(times[times.size() / 2]) + " (" + milliseconds(times.front()) + " to " +
                                  milliseconds(times.back()) + ", " + std::to_string(times.size()) + " questions)"}}));
}

}  // namespace

void info(const Common& common) {
  Claim claim(common.port);
  print_info(common, claim.door.has_value() ? ask_beside(*claim.door) : ask(Port(common, std::move(claim))));
}

void cannot_be_asked(const std::string& what, const std::string& setting) {
  throw Failure(kFailed, "a reader cannot be asked for its " + what +
                             ": the protocol has no such question; what a host set is its setting " + setting +
                             " (`achost config get uhf " + setting + "`)");
}

void get_power(const Common& common) {
  const auto power = Port(common).power_or_nobody();
  common.json ? print(Object{{"power", power}}) : print(std::to_string(power) + "  (" + power_text(power) + ")\n");
}

void set_power(const Common& common, const std::string& power, const Law& law) {
  const auto wanted = static_cast<unsigned short>(power_from(power));
  hold_power_to(law, wanted);
  const Port port(common);
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
  note_the_loan(port, "transmit_power " + std::to_string(after));
}

void set_region(const Common& common, const std::string& region) {
  const auto name = limit_of(region).region;
  const auto wanted = regionOf(name).value();
  const Port port(common);
  port.power_or_nobody();
  if (!talking(port, [wanted](const auto& driver) { return driver.setWorkArea(wanted); })) {
    no_answer(port, "to the new region");
  }
  common.json ? print(Object{{"region", name}})
              : print(std::string(name) + "  (answered; a reader cannot be asked for its region)\n");
  note_the_loan(port, "region " + std::string(name));
}

void set_channels(const Common& common, const std::string& channels, const Law& law) {
  const auto wanted = refhost::parse_int_ranges(channels);
  if (!wanted.has_value() || wanted->size() > 255 || std::ranges::max(*wanted) > 255) {
    throw Failure(kUsage, "\"" + channels +
                              "\" is no list of channels: give ranges of numbers from 0 to 255, such as 0-10;26-51");
  }
  hold_channels_to(law, channels);
  const Port port(common);
  port.power_or_nobody();
  if (!talking(port, [numbers = std::vector<unsigned char>(wanted->begin(), wanted->end())](const auto& driver) {
        return driver.setWorkChannel(numbers);
      })) {
    no_answer(port, "to the new channels");
  }
  common.json ? print(Object{{"channels", *wanted}})
              : print(channels + "  (" + std::to_string(wanted->size()) +
                      " channels; answered; a reader cannot be asked for its channels)\n");
  note_the_loan(port, "work_channel \"" + channels + "\"");
}

void get_sensitivity(const Common& common) {
  const Port port(common);
  port.power_or_nobody();
  const auto info = sensitivity_of(port);
  common.json ? print(as_object(info)) : print(as_text(info) + "\n");
}

void set_sensitivity(const Common& common, const std::vector<int>& values) {
  const ac::UHF::DemodSensitivityInfo wanted{static_cast<unsigned char>(values[0]),
                                             static_cast<unsigned char>(values[1]),
                                             static_cast<unsigned short>(values[2])};
  const Port port(common);
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
  note_the_loan(port, "");
}

}  // namespace uhfctl
