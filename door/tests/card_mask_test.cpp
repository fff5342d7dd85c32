#include "door/cli/card_mask.h"

#include <gtest/gtest.h>

namespace achost {
namespace {

TEST(CardMask, LeavesTheLastFourDigitsOfEachCardAndEpc) {
  EXPECT_EQ(mask_cards("Card 1234567 of Ana (1234567) opened the door at 10:00:05.000: card 18446744073709551615 was"),
            "Card ***4567 of Ana (1234567) opened the door at 10:00:05.000: card ****************1615 was");
  EXPECT_EQ(mask_cards("card 305419896 (EPC E28011700000000012345678)  in the field for 1.5 s"),
            "card *****9896 (EPC ********************5678)  in the field for 1.5 s");
  EXPECT_EQ(mask_cards("The tag E2801170ABCD was not read between 2026-11-22 00:00:00.000"),
            "The tag ********ABCD was not read between 2026-11-22 00:00:00.000");
}

TEST(CardMask, LeavesEverythingElseAsItIs) {
  for (const char* const text :
       {"", "card ", "card 1234", "the same card was announced 1.8 s before", "it is nobody's card",
        "the door's relay belongs to the tag detector", "no card lies in the field\n"}) {
    EXPECT_EQ(mask_cards(text), text);
  }
}

}  // namespace
}  // namespace achost
