// From the number that is printed on a card to settings.
#include "door/why/printed_number.h"

#include <gmock/gmock.h>

#include "hex.h"

using achost::why::card_value;
using achost::why::forms_that_make;
using achost::why::printed_number;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto kPrintedEpc = "E2 00 68 0A 00 01 02 03 04 12 34 56";

// "32 msb", the most usual first.
std::vector<std::string> forms_in_words(std::string_view printed, const std::string& epc = kPrintedEpc) {
  std::vector<std::string> list;
  for (const auto& form : forms_that_make(hex(epc), printed_number(printed).value())) {
    list.push_back(std::to_string(form.identification_bits) + " " + std::string(form.reader_type));
    EXPECT_EQ(form.card, card_value(hex(epc), form.identification_bits, form.reader_type));
  }
  return list;
}

}  // namespace

TEST(PrintedNumber, IsDecimalUnlessItSaysOtherwise) {
  EXPECT_EQ(printed_number("0012 345 678")->number, 12345678U);
  EXPECT_EQ(printed_number("0x21ab")->number, 0x21ABU);
  EXPECT_EQ(printed_number("21AB")->number, 0x21ABU);
  EXPECT_EQ(printed_number("18446744073709551615")->number, 18446744073709551615U);
}

TEST(PrintedNumber, MayHaveItsSiteApart) {
  for (const char* text : {"123,45678", "123-45678", "123:45678", "123/45678", "123, 45678"}) {
    const auto number = printed_number(text);
    ASSERT_TRUE(number.has_value()) << text;
    EXPECT_EQ(number->site, 123U) << text;
    EXPECT_EQ(number->number, 45678U) << text;
  }
}

TEST(PrintedNumber, IsNothingElse) {
  for (const char* text : {"", "ana", "12.5", "1,2,3", ",5", "0x", "18446744073709551616", "-5"}) {
    EXPECT_EQ(printed_number(text), std::nullopt) << text;
  }
}

TEST(CardForms, AreTheSettingsThatMakeTheNumber) {
  EXPECT_THAT(forms_in_words("68301910"), ElementsAre("32 msb"));  // 0x04123456
  EXPECT_THAT(forms_in_words("0xE200680A"), ElementsAre("32 lsb"));
  EXPECT_THAT(forms_in_words("0x0304123456"), ElementsAre("34 msb"));
  EXPECT_THAT(forms_in_words("0x0001020304123456"), ElementsAre("64 msb", "56 msb"));
  EXPECT_THAT(forms_in_words("0x0102030412345678"), IsEmpty());
}

TEST(CardForms, KnowASiteAndANumber) {
  // 0x12 and 0x3456.
  for (const char* printed : {"18,13398", "1813398", "1193046", "77309424726"}) {
    EXPECT_THAT(forms_in_words(printed), ElementsAre("24 msb")) << printed;
  }
  EXPECT_THAT(forms_in_words("1042,13398"), ElementsAre("32 msb")) << "0x0412 and 0x3456";
}

TEST(CardForms, TheMostUsualComesFirst) {
  EXPECT_THAT(forms_in_words("33", "E2 80 11 70 00 00 02 0A 00 00 00 21"),
              ElementsAre("32 msb", "24 msb", "8 msb", "16 msb"));
}
