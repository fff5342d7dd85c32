// The driver's operations.
#include <iostream>
#include <thread>

#include "ac/exception.h"
#include "frame_catalogue.h"
#include "t640_fixture.h"

namespace t640_test {

using Inventory = T640Test;
using Getter = T640Test;
using Setter = T640Test;
using Driver = T640Test;

TEST_F(Inventory, HandlesTheNewestHalfNewestFirst) {
  EXPECT_EQ(inventory(notice(1)), std::pair(true, hex("01")));
  EXPECT_EQ(inventory(notice(1) + notice(2)), std::pair(true, hex("02")));
  EXPECT_EQ(inventory(notice(1) + notice(2) + notice(3)), std::pair(true, hex("03 02")));
  EXPECT_EQ(inventory(notice(1) + notice(2) + notice(3) + notice(4)), std::pair(true, hex("04 03")));
  EXPECT_EQ(inventory(notice(1) + notice(2) + notice(3) + notice(4) + notice(5)), std::pair(true, hex("05 04 03")));
}

TEST_F(Inventory, CopiesEveryFieldOfTheNotice) {
  peer.write(complete(hex("7F 02 22 00 07 C8 30 01 E2 34 5A 3C")));
  const auto [succeeded, tags] = driver.inventoryCard();
  ASSERT_TRUE(succeeded);
  ASSERT_EQ(tags.size(), 1U);
  EXPECT_EQ(tags[0].rssi, 200);
  EXPECT_EQ(tags[0].pc, 0x3001);
  EXPECT_EQ(tags[0].epc, hex("E2 34"));
  EXPECT_EQ(tags[0].crc, 0x5A3C);
}

TEST_F(Inventory, AnEpcOfHundredsOfBytesIsRead) {
  const Bytes epc(300, 0x11);
  peer.write(complete(hex("7F 02 22 01 31 C8 30 01") + epc + hex("5A 3C")));
  const auto [succeeded, tags] = driver.inventoryCard();
  ASSERT_TRUE(succeeded);
  EXPECT_EQ(tags.at(0).epc, epc);
}

TEST_F(Inventory, LogsEachCard) {
  inventory(notice(0xAB));
  expectDebugLine("Card detected! EPC: ab [1]", "uhf/src/source/t640", "doInventoryCard", 40);
}

TEST_F(Inventory, ANewestFrameThatIsAResponseFailsIt) {
  EXPECT_EQ(inventory(notice(1) + notice(2) + SET_POWER_DONE), std::pair(false, Bytes{}));
  EXPECT_EQ(inventory(notice(1) + notice(2) + CRC_ERROR), std::pair(false, Bytes{}));
  EXPECT_EQ(inventory(CRC_ERROR), std::pair(false, Bytes{}));
}

TEST_F(Inventory, AResponseBetweenKeepsTheTagsBehindIt) {
  EXPECT_EQ(inventory(notice(1) + notice(2) + CRC_ERROR + notice(3)), std::pair(false, hex("03")));
}

TEST_F(Inventory, AResponseThatIsNotReachedDoesNotMatter) {
  EXPECT_EQ(inventory(CRC_ERROR + notice(1) + notice(2)), std::pair(true, hex("02 01")));
}

TEST_F(Inventory, AnEchoedCommandEndsItAsAResponseDoes) {
  EXPECT_EQ(inventory(notice(1) + INVENTORY), std::pair(false, Bytes{}));
  EXPECT_EQ(inventory(notice(1) + notice(2) + INVENTORY + notice(3)), std::pair(false, hex("03")));
}

TEST_F(Getter, ReadsThePower) {
  peer.write(POWER_2600);
  EXPECT_EQ(driver.getTransmitPower(), std::pair(true, std::uint16_t{2600}));
  EXPECT_EQ(peer.read(GET_POWER.size()), GET_POWER);
  expectDebugLine("Transmit power: 2600", "uhf/src/source/t640", "doGetTransmitPower", 58);
}

TEST_F(Getter, AnAnswerOfAnotherClassIsAFailedRead) {
  peer.write(SET_POWER_DONE);
  EXPECT_EQ(driver.getTransmitPower(), std::pair(false, std::uint16_t{0}));
  peer.write(GET_POWER);
  EXPECT_FALSE(driver.getTransmitPower().first);
  peer.write(POWER_2600);
  EXPECT_FALSE(driver.getDemodulationSensitivity().first);
  EXPECT_TRUE(host().debug_lines().empty());
}

TEST_F(Getter, ReadsTheSensitivity) {
  peer.write(hex("7F 01 F1 00 04 02 06 00 A0 9E 7E"));
  const auto [succeeded, info] = driver.getDemodulationSensitivity();
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(info.m, 2);
  EXPECT_EQ(info.i, 6);
  EXPECT_EQ(info.sensitivity, 160);
  EXPECT_EQ(peer.read(7), hex("7F 00 F1 00 00 F1 7E"));
  EXPECT_THAT(host().debug_texts(),
              ElementsAre("RxSensitivity M: 2", "RxSensitivity I: 6", "RxSensitivity sensitivity: 160"));
  for (const auto& line : host().debug_lines()) {
    EXPECT_EQ(line.function, "doGetDemodulationSensitivity");
    EXPECT_EQ(line.source, "uhf/src/source/t640");
  }
}

TEST_F(Getter, WithoutAnAnswerHasZeroes) {
  const auto [succeeded, info] = driver.getDemodulationSensitivity();
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(info.m, 0);
  EXPECT_EQ(info.i, 0);
  EXPECT_EQ(info.sensitivity, 0);
}

TEST_F(Setter, SendsItsCommand) {
  peer.write(SET_POWER_DONE);
  EXPECT_TRUE(driver.setTransmitPower(2600));
  EXPECT_EQ(peer.read(9), hex("7F 00 B6 00 02 0A 28 EA 7E"));
  peer.write(hex("7F 01 F0 00 01 00 F2 7E"));
  EXPECT_TRUE(driver.setDemodulationSensitivity({2, 6, 160}));
  EXPECT_EQ(peer.read(11), hex("7F 00 F0 00 04 02 06 00 A0 9C 7E"));
  EXPECT_TRUE(host().debug_lines().empty());
}

TEST_F(Setter, TakesAnyGoodFrameForAnAnswer) {
  for (const auto& answer : {CRC_ERROR, POWER_2600, notice(1), GET_POWER, hex("7F 01 B6 00 01 FF B7 7E")}) {
    peer.write(answer);
    EXPECT_TRUE(driver.setTransmitPower(2600)) << Frame::printVector(answer);
  }
}

TEST_F(Setter, SendsTheModulesCodeOfEachRegion) {
  const std::vector<std::pair<Region, int>> codes{{Region::BRAZIL, 2},       {Region::CHINA_900MHZ, 1},
                                                  {Region::CHINA_800MHZ, 4}, {Region::AMERICA, 2},
                                                  {Region::EUROPE, 3},       {Region::KOREA, 6}};
  for (const auto& [region, code] : codes) {
    peer.write(hex("7F 01 07 00 01 00 09 7E"));
    EXPECT_TRUE(driver.setWorkArea(region));
    EXPECT_EQ(peer.read(8).at(5), code);
  }
}

TEST_F(Setter, RefusesARegionThatIsNoneWithoutSending) {
  for (const int value : {6, 7, 255, 256, -1}) {
    try {
      driver.setWorkArea(static_cast<Region>(value));
      ADD_FAILURE() << value;
    } catch (const ac::ac_exception& error) {
      EXPECT_STREQ(error.what(), "Invalid Region!");
    }
  }
  EXPECT_TRUE(peer.is_quiet());
}

TEST_F(Setter, ClearsTheChannelsBeforeItSetsThem) {
  const auto done = hex("7F 01 A9 00 01 00 AB 7E");
  auto result = std::async(std::launch::async, [this] { return driver.setWorkChannel({1, 2, 3}); });
  EXPECT_EQ(peer.read(8), hex("7F 00 A9 00 01 00 AA 7E"));
  peer.write(done);
  EXPECT_EQ(peer.read(11), hex("7F 00 A9 00 04 03 01 02 03 B6 7E"));
  peer.write(done);
  EXPECT_TRUE(result.get());
}

TEST_F(Setter, SendsNoChannelsWhenClearingIsNotAnswered) {
  EXPECT_FALSE(driver.setWorkChannel({1, 2, 3}));
  EXPECT_EQ(peer.read(8), hex("7F 00 A9 00 01 00 AA 7E"));
  EXPECT_TRUE(peer.is_quiet());
}

TEST_F(Setter, OfChannelsFailsWhenTheSecondIsNotAnswered) {
  peer.write(hex("7F 01 A9 00 01 00 AB 7E"));
  EXPECT_FALSE(driver.setWorkChannel({1, 2, 3}));
}

TEST_F(Driver, LetsOneTransactionAtATimeOntoTheLine) {
  constexpr int ROUNDS = 50;
  std::thread reader([this] {
    // Answers whole commands only: bytes of two commands mixed up would not be 7 of one and 7 of the other.
    for (int i = 0; i < 2 * ROUNDS; ++i) {
      const auto command = peer.read(7);
      ASSERT_THAT(command, testing::AnyOf(GET_POWER, hex("7F 00 F1 00 00 F1 7E")));
      EXPECT_TRUE(peer.is_quiet()) << "a second command before the first one was answered";
      peer.write(command == GET_POWER ? POWER_2600 : hex("7F 01 F1 00 04 02 06 00 A0 9E 7E"));
    }
  });
  std::thread other([this] {
    for (int i = 0; i < ROUNDS; ++i) {
      EXPECT_TRUE(driver.getDemodulationSensitivity().first);
    }
  });
  for (int i = 0; i < ROUNDS; ++i) {
    EXPECT_TRUE(driver.getTransmitPower().first);
  }
  other.join();
  reader.join();
}

TEST_F(Driver, PrintsBytesForTracing) {
  testing::internal::CaptureStdout();
  T640::print_data(hex("7F 00 0B"));
  std::cout << 10;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "<<<<<<<<<<<<7f 0 b >>>>>>>>>>>>\n10") << "decimal afterwards";
}

}  // namespace t640_test
