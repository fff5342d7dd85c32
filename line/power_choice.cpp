#include "line/power_choice.h"

#include <algorithm>

#include "line/frames.h"

namespace line {
namespace {

constexpr double kGoodEnough = 0.9;  // of the best share

Place by_power(Place place) {
  std::ranges::sort(place, {}, &ShareAtPower::power);
  return place;
}

// Where a card that must not be read is read all the same, with the least power of all.
std::optional<int> least_heard(const std::vector<Place>& must_not) {
  std::optional<int> least;
  for (const Place& place : must_not) {
    for (const auto& [power, share] : place) {
      if (share > 0 && power < least.value_or(power + 1)) {
        least = power;
      }
    }
  }
  return least;
}

}  // namespace

std::optional<int> enough_power(const Place& place) {
  const auto best = std::ranges::max_element(place, {}, &ShareAtPower::share);
  if (best == place.end() || best->share <= 0) {
    return std::nullopt;
  }
  std::optional<int> least;
  for (const auto& [power, share] : place) {
    if (share >= kGoodEnough * best->share && power < least.value_or(power + 1)) {
      least = power;
    }
  }
  return least;
}

std::optional<int> silent_power(const Place& place) {
  std::optional<int> most;
  for (const auto& [power, share] : by_power(place)) {
    if (share > 0) {
      break;
    }
    most = power;
  }
  return most;
}

PowerChoice choose_power(const std::vector<Place>& must, const std::vector<Place>& must_not) {
  if (must.empty()) {
    return {.power = {}, .text = "hold the card where it must be read, and mark that place"};
  }
  int needed = 0;
  for (const Place& place : must) {
    const auto enough = enough_power(place);
    if (!enough.has_value()) {
      return {.power = {},
              .text = "a card that must be read was not: hold it nearer, turn it, or turn the antenna, and mark anew"};
    }
    needed = std::max(needed, *enough);
  }
  for (const Place& place : must_not) {
    if (const auto silent = silent_power(place); !silent.has_value() || *silent < needed) {
      return {.power = {},
              .text = "no power does both: " + power_text(needed) + " is needed, and with " +
                      power_text(*least_heard(must_not)) +
                      " the card is read where it must not be; turn, move or shield the antenna, and mark anew"};
    }
  }
  return {.power = needed,
          .text = power_text(needed) + ": the least that reads the card where it must be read" +
                  (must_not.empty() ? "" : ", and it is silent where it must not")};
}

}  // namespace line
