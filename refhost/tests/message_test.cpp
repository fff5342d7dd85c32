#include "ac/message.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace {

TEST(Message, KeepsItsType) { EXPECT_EQ(ac::Message("gpio_notified").type(), "gpio_notified"); }

TEST(Message, FieldsComeBackWithTheirValues) {
  ac::Message message("m");
  message.add_int("int", -7);
  message.add_int64("int64", std::numeric_limits<std::int64_t>::min());
  message.add_string("string", std::string("a\0b", 3));
  int number = 0;
  std::int64_t wide = 0;
  std::string text;
  EXPECT_TRUE(message.get_int("int", &number));
  EXPECT_TRUE(message.get_int64("int64", &wide));
  EXPECT_TRUE(message.get_string("string", &text));
  EXPECT_EQ(number, -7);
  EXPECT_EQ(wide, std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(text, std::string("a\0b", 3));
}

TEST(Message, MissingFieldIsFalseAndLeavesTheValueUntouched) {
  ac::Message message("m");
  message.add_int("other", 1);
  int number = 42;
  std::int64_t wide = 43;
  std::string text = "before";
  EXPECT_FALSE(message.get_int("field", &number));
  EXPECT_FALSE(message.get_int64("field", &wide));
  EXPECT_FALSE(message.get_string("field", &text));
  EXPECT_EQ(number, 42);
  EXPECT_EQ(wide, 43);
  EXPECT_EQ(text, "before");
}

TEST(Message, FieldOfAnotherTypeIsFalseAndLeavesTheValueUntouched) {
  ac::Message message("m");
  message.add_int("int", 1);
  message.add_int64("int64", 2);
  message.add_string("string", "3");
  int number = 42;
  std::int64_t wide = 43;
  std::string text = "before";
  EXPECT_FALSE(message.get_int("int64", &number));
  EXPECT_FALSE(message.get_int("string", &number));
  EXPECT_FALSE(message.get_int64("int", &wide));
  EXPECT_FALSE(message.get_int64("string", &wide));
  EXPECT_FALSE(message.get_string("int", &text));
  EXPECT_FALSE(message.get_string("int64", &text));
  EXPECT_EQ(number, 42);
  EXPECT_EQ(wide, 43);
  EXPECT_EQ(text, "before");
}

TEST(Message, OfFieldsWithOneNameTheFirstCounts) {
  ac::Message message("m");
  message.add_string("field", "text");
  message.add_int("field", 1);
  message.add_int("field", 2);
  int number = 0;
  EXPECT_TRUE(message.get_int("field", &number));
  EXPECT_EQ(number, 1);
}

TEST(MessageReply, IsEmptyUntilSomebodyAnswers) {
  const ac::MessageReply reply;
  int number = 42;
  EXPECT_FALSE(reply.replied());
  EXPECT_FALSE(reply.get_int("value", &number));
  EXPECT_EQ(number, 42);
}

}  // namespace
