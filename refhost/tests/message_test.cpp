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

TEST(Message, ManyAndLongFieldsComeBackInTheirOrder) {
  ac::Message message("m");
  for (int i = 0; i < 100; ++i) {
    const std::string name = "field " + std::to_string(i);
    message.add_int(name, i);
    message.add_string(name, std::string(static_cast<std::size_t>(i * i), 'a'));
    message.add_int64(name, -i);
  }
  for (int i = 0; i < 100; ++i) {
    const std::string name = "field " + std::to_string(i);
    int number = -1;
    std::int64_t wide = 1;
    std::string text;
    EXPECT_TRUE(message.get_int(name, &number));
    EXPECT_TRUE(message.get_string(name, &text));
    EXPECT_TRUE(message.get_int64(name, &wide));
    EXPECT_EQ(number, i);
    EXPECT_EQ(text, std::string(static_cast<std::size_t>(i * i), 'a'));
    EXPECT_EQ(wide, -i);
  }
}

TEST(Message, AFieldMayFillTheRoomToItsLastByteAndBeyond) {
  for (std::size_t size = 0; size < 600; ++size) {
    ac::Message message("m");
    message.add_string("text", std::string(size, 'x'));
    message.add_int("after", 7);
    std::string text;
    int after = 0;
    EXPECT_TRUE(message.get_string("text", &text));
    EXPECT_TRUE(message.get_int("after", &after));
    EXPECT_EQ(text, std::string(size, 'x'));
    EXPECT_EQ(after, 7);
  }
}

TEST(Message, AnEmptyNameAndAnEmptyTextAreFields) {
  ac::Message message("m");
  message.add_string("", "");
  std::string text = "before";
  EXPECT_TRUE(message.get_string("", &text));
  EXPECT_EQ(text, "");
}

TEST(MessageReply, IsEmptyUntilSomebodyAnswers) {
  const ac::MessageReply reply;
  int number = 42;
  EXPECT_FALSE(reply.replied());
  EXPECT_FALSE(reply.get_int("value", &number));
  EXPECT_EQ(number, 42);
}

}  // namespace
