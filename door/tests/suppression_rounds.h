// Rounds of the model of the rules on readings, in a time of its own.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string_view>
#include <vector>

#include "door/why/suppression.h"

namespace suppression_rounds {
using namespace achost::why;  // NOLINT: the model's own words
using std::chrono::nanoseconds;

inline constexpr Card kCard = 1;
inline constexpr Card kOther = 2;
inline constexpr nanoseconds kInstant{1};

inline Time at(milliseconds time) { return Time(std::chrono::hours(1000)) + time; }
inline Time at(int ms) { return at(milliseconds(ms)); }

inline Settings settings_in(Mode mode) { return {mode, 0, milliseconds(1000), milliseconds(3000), milliseconds(500)}; }

inline std::vector<std::string_view> names(const Verdict& verdict) {
  std::vector<std::string_view> names;
  for (const auto& because : verdict.reasons) {
    names.push_back(row_of(because.reason).name);
  }
  return names;
}

// A round of these cards read then. The plug-in announces the first of them that is expected.
inline Verdict first_of(Suppression& model, Time time, const std::vector<Card>& cards) {
  auto verdicts = model.poll(time, cards);
  const auto expected = std::ranges::find_if(verdicts, &Verdict::expected);
  const auto announced = expected == verdicts.end() ? std::nullopt : std::optional(expected->reading.card);
  EXPECT_NE(model.settle(verdicts, announced, time), Opinion::kDisagrees);
  return verdicts.at(0);
}

inline std::vector<std::string_view> reasons(Suppression& model, Time time, Card card) {
  return names(first_of(model, time, {card}));
}

}  // namespace suppression_rounds
