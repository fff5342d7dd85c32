// A story of readings, inputs and settings, told to the plug-in and to the model of its rules (door/why/), in the
// tests' own time and on one thread: what one of them says of each round is held against what the other does.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "door/why/second_opinion.h"

namespace reading_story {

namespace why = achost::why;
using why::Time;

enum class Kind {
  kTime,        // goes on by number ns
  kInput,       // has level number, and the plug-in hears of it
  kAnswer,      // has level number as the host answers it; a negative one: the answer does not tell it
  kNotify,      // is notified of level number, whatever it is
  kStore,       // setting what has value number in the store
  kTake,        // the plug-in is told that setting what has changed
  kLoseMode,    // the plug-in has a mode that is none
  kBits,        // identification_bits is number
  kType,        // reader_type is kReaderTypes[number]
  kPass,        // an inventory takes number ns and has the tags whose bits are set in what
  kMissedPass,  // the same, and from afar: the plug-in does not notice, and looks when its period has passed
  kRound,       // the plug-in looks at what was read
};

struct Step {
  Kind kind;
  int what = 0;
  std::int64_t number = 0;
};

// Of the settings that a story stores, by why::Setting.
inline constexpr std::array kKeys{"operation_mode", "trig_idle", "trigger_timeout", "read_interval",
                                  "read_interval_diff_tags"};
inline constexpr std::array kModes{"inhibit", "TRIGGER", "continuous", "none of these"};
inline constexpr std::array kReaderTypes{"msb", "LSB", ""};
// The last bytes of the first two are the same, as are the first bytes of the second and the third.
inline const std::vector<std::vector<std::uint8_t>> kTags{{0xE2, 0, 0x68, 0x0A, 1, 2, 3, 4, 0x80, 0x12, 0x34, 0x56},
                                                          {0xE3, 1, 0x69, 0x0B, 1, 2, 3, 4, 0x80, 0x12, 0x34, 0x56},
                                                          {0xE3, 1, 0x69, 0x0B, 9, 9, 9, 9, 0x81, 0x12, 0x34, 0x57},
                                                          {0x12, 0x34, 0x56},
                                                          {}};

struct Start {
  std::chrono::nanoseconds clock{0};                          // when the plug-in begins to look at readings
  std::array<std::int64_t, 5> settings{2, 0, 100, 300, 100};  // by why::Setting; a mode by its place in kModes
  int level = 0;
  std::chrono::nanoseconds read_before{0};  // a pass of the first tag so long before the start; 0: none
};

// What came of it.
struct Count {
  std::uint64_t rounds = 0;
  std::uint64_t announced = 0;
  std::uint64_t chosen = 0;  // among several that were expected
  std::uint64_t at_boundary = 0;
  std::map<why::Reason, std::uint64_t> refused;
};

// What a teller of stories may look at.
struct View {
  Time now;
  const std::vector<Time>& marks;  // the times at which something ends
};

using Next = std::function<std::optional<Step>(const View&)>;

// How the model is told. But for the first it is held to what it says away from its boundaries only.
enum class Telling {
  kExactly,
  kNearly,       // times are off by up to a millisecond, in their order
  kFromAfar,     // the same, and out of order; rounds are not told, nor is it when each was (why::SecondOpinion)
  kBesideADoor,  // the same, as what passes on the line and on the bus (why::Witness): now and then the plug-in notes
                 // an answer late. A setting is taken when it is stored, and an input that changes is notified
};

// Told from afar or beside a door, a story is given what the plug-in does besides: a round in each period, and one
// after each pass, which takes its time.
inline constexpr std::chrono::milliseconds kPeriod{50};
inline constexpr std::chrono::milliseconds kLeastPass{5};

// Plays until there is no next step. Returns the first disagreement, or nothing. seed: of what times are off by.
std::string play(const Start& start, const Next& next, Count& count, Telling telling, std::uint64_t seed);

// The same with steps that are known.
std::string play(const Start& start, const std::vector<Step>& steps, Telling telling, std::uint64_t seed);

// For a person.
std::string text_of(const Start& start, const std::vector<Step>& steps);

}  // namespace reading_story
