#include "uhfsim/field.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

#include "hex.h"

namespace uhfsim::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Tag, ProtocolControlWordFitsTheEpc) {
  EXPECT_EQ(Tag{.epc = Bytes(12)}.pc, 0x3000);
  EXPECT_EQ(Tag{.epc = Bytes(2)}.pc, 0x0800);
  EXPECT_EQ(Tag{.epc = Bytes(62)}.pc, 0xF800);
  EXPECT_EQ(Tag{}.pc, 0);
}

TEST(Tag, GivenProtocolControlWordStays) {
  const Tag tag{.epc = Bytes(12), .pc = 0x1234};
  EXPECT_EQ(tag.pc, 0x1234);
}

TEST(Field, KeepsTagsInTheOrderOfComing) {
  Field field;
  EXPECT_THAT(field.snapshot(), IsEmpty());
  const Tag first{.epc = hex("0002")};
  const Tag second{.epc = hex("0001"), .rssi = 7};
  field.add(first);
  field.add(second);
  EXPECT_THAT(field.snapshot(), ElementsAre(first, second));
}

TEST(Field, SameEpcReplacesInItsPlace) {
  Field field;
  const Tag other{.epc = hex("0002")};
  const Tag changed{.epc = hex("0001"), .rssi = 9, .probability = 0.5};
  field.add({.epc = hex("0001")});
  field.add(other);
  field.add(changed);
  EXPECT_THAT(field.snapshot(), ElementsAre(changed, other));
}

TEST(Field, RemoveTellsWhetherTheTagWasThere) {
  Field field;
  field.add({.epc = hex("0001")});
  EXPECT_FALSE(field.remove(hex("0002")));
  EXPECT_TRUE(field.remove(hex("0001")));
  EXPECT_FALSE(field.remove(hex("0001")));
  EXPECT_THAT(field.snapshot(), IsEmpty());
}

TEST(Field, ClearTakesAllOut) {
  Field field;
  field.add({.epc = hex("0001")});
  field.add({.epc = hex("0002")});
  field.clear();
  EXPECT_THAT(field.snapshot(), IsEmpty());
}

TEST(Field, EpcIsAtMost62Bytes) {
  Field field;
  field.add({.epc = Bytes(62)});
  EXPECT_THROW(field.add({.epc = Bytes(63)}), std::invalid_argument);
  EXPECT_EQ(field.snapshot().size(), 1U);
}

TEST(Field, ManyThreadsAtOnceLoseNothing) {
  Field field;
  const auto add_many = [&field](std::uint8_t from) {
    for (std::uint8_t i = 0; i < 100; ++i) {
      field.add({.epc = {from, i}});
      field.snapshot();
      if (i % 2 == 1) field.remove(Bytes{from, i});
    }
  };
  std::thread one(add_many, std::uint8_t{1});
  std::thread two(add_many, std::uint8_t{2});
  one.join();
  two.join();
  EXPECT_EQ(field.snapshot().size(), 100U);
}

}  // namespace
}  // namespace uhfsim::testing
