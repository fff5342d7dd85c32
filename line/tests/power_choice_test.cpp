#include "line/power_choice.h"

#include <gmock/gmock.h>

namespace line::test {
namespace {

using testing::HasSubstr;

const Place kNear = {{3000, 1.0}, {2500, 0.98}, {2000, 0.9}, {1500, 0.89}, {1000, 0}};
const Place kFar = {{3000, 0.4}, {2500, 0}, {2000, 0}, {1500, 0}};

TEST(PowerChoice, EnoughIsTheLeastWithNineTenthsOfTheBestShare) {
  EXPECT_EQ(enough_power(kNear), 2000);
  EXPECT_EQ(enough_power({{1500, 0.3}, {2000, 0.31}}), 1500) << "its best counts, not that of others";
  EXPECT_EQ(enough_power({{1500, 0}, {2000, 0}}), std::nullopt);
  EXPECT_EQ(enough_power({}), std::nullopt);
}

TEST(PowerChoice, SilentIsTheMostUpToWhichNothingWasRead) {
  EXPECT_EQ(silent_power(kFar), 2500);
  EXPECT_EQ(silent_power({{1000, 0}, {1500, 0.01}, {2000, 0}}), 1000) << "what a card in the corner does by chance";
  EXPECT_EQ(silent_power({{1000, 0.5}, {1500, 0}}), std::nullopt);
}

TEST(PowerChoice, WhatIsEnoughAtEachPlaceIsChosenIfItIsSilentAtTheOthers) {
  const auto choice = choose_power({kNear, {{3000, 1}, {2500, 1}, {2000, 0.2}}}, {kFar});
  EXPECT_EQ(choice.power, 2500);
  EXPECT_THAT(choice.text, HasSubstr("25.00 dBm: the least"));
}

TEST(PowerChoice, WithoutAPowerForBothItSaysSoAndWhatHelps) {
  const auto choice = choose_power({kNear}, {{{1500, 0}, {1750, 0.1}, {2000, 0.3}}, kFar});
  EXPECT_EQ(choice.power, std::nullopt);
  EXPECT_THAT(choice.text, HasSubstr("20.00 dBm is needed, and with 17.50 dBm"));
  EXPECT_THAT(choice.text, HasSubstr("turn, move or shield"));
}

TEST(PowerChoice, APlaceWhereNothingWasReadIsSaid) {
  EXPECT_EQ(choose_power({kNear, {{3000, 0}}}, {}).power, std::nullopt);
  EXPECT_THAT(choose_power({{{3000, 0}}}, {}).text, HasSubstr("hold it nearer"));
}

TEST(PowerChoice, NothingIsChosenForPlacesThatMustBeSilentAlone) {
  EXPECT_EQ(choose_power({}, {kFar}).power, std::nullopt);
}

}  // namespace
}  // namespace line::test
