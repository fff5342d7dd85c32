// How a sighting is stored and shown.
#include "door/why/sighting.h"

#include <gmock/gmock.h>

namespace achost::why {
namespace {

using testing::SizeIs;

ToldSighting sighting_with(std::vector<ToldFate> fates) {
  return {.epc = "E200", .card = 33, .first = 1, .last = 2, .polls = 3, .rssi = 4, .goes_on = true, .fates = fates};
}

ToldFate fate_of(std::size_t reasons, const std::string& text) {
  return {.from = -1000,
          .to = 1'795'307'046'589,
          .polls = 7,
          .at_boundary = true,
          .announced_from = 1'795'307'049'381,
          .reasons = {reasons, {Reason::kSameCardTooSoon, text}}};
}

std::string stored_fates(const Entry& entry) { return std::get<std::string>(entry.fields.back().second); }

TEST(StoredSighting, IsReadAsItWas) {
  auto fate = fate_of(2, "held back");
  fate.announced_from.reset();
  const auto sighting = sighting_with({fate_of(1, "held back"), fate, fate_of(0, "")});
  EXPECT_EQ(sighting_of(entry_of(sighting)), sighting);
  EXPECT_EQ(sighting_of(entry_of(sighting_with({}))), sighting_with({}));
}

TEST(StoredSighting, HasItsFatesAsPublished) {
  EXPECT_EQ(stored_fates(entry_of(sighting_with({fate_of(1, "held back")}))),
            R"([{"from":-1000,"to":1795307046589,"polls":7,"at_boundary":true,"announced_from":1795307049381,)"
            R"("reasons":[{"code":"same_card_too_soon","text":"held back"}]}])");
}

TEST(StoredSighting, KeepsEveryCharacterOfItsTexts) {
  const auto sighting = sighting_with({fate_of(2, "a \"quote\", a \\, a\nline, \x01 and \xC3\xA9")});
  EXPECT_EQ(sighting_of(entry_of(sighting)), sighting);
  EXPECT_EQ(json_of(sighting)["fates"][0]["reasons"][0]["text"], sighting.fates[0].reasons[0].second);
}

TEST(StoredSighting, IsReadableWithATextThatIsNone) {
  EXPECT_THAT(sighting_of(entry_of(sighting_with({fate_of(1, "\xFF")}))).fates, SizeIs(1));
}

TEST(StoredSighting, HasTheDecisiveReasonsAloneWhereAllDoNotFit) {
  const std::vector<ToldFate> fates(10, fate_of(3, std::string(150, 'x')));
  const auto entry = entry_of(sighting_with(fates));
  EXPECT_LE(stored_fates(entry).size(), 4000U);
  const auto read = sighting_of(entry);
  ASSERT_THAT(read.fates, SizeIs(10));
  for (const auto& fate : read.fates) {
    EXPECT_THAT(fate.reasons, SizeIs(1));
  }
}

TEST(ShownSighting, HasAllReasonsOfItsFates) {
  const std::vector<ToldFate> fates(10, fate_of(3, std::string(150, 'x')));
  EXPECT_THAT(json_of(sighting_with(fates))["fates"][9]["reasons"], SizeIs(3));
}

}  // namespace
}  // namespace achost::why
