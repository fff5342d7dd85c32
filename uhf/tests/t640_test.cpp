// The driver and its transactions, on a real pseudo-terminal.
#include "t640.h"

#include <gmock/gmock.h>

#include <future>
#include <iostream>
#include <numeric>
#include <thread>

#include "ac/exception.h"
#include "failure.h"
#include "frame_catalogue.h"
#include "hex.h"
#include "reader_peer.h"
#include "second_host.h"

using namespace ac::UHF;
using second_host::host;
using std::chrono::milliseconds;
using testing::ElementsAre;

namespace {

const auto INVENTORY = hex("7F 00 22 00 00 22 7E");
const auto GET_POWER = hex("7F 00 B7 00 00 B7 7E");
const auto POWER_2600 = hex("7F 01 B7 00 02 0A 28 EC 7E");
const auto SET_POWER_DONE = hex("7F 01 B6 00 01 00 B8 7E");
const auto CRC_ERROR = hex("7F 01 FF 00 01 17 18 7E");

using Bytes = std::vector<unsigned char>;

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// A frame that has its checksum and its end still to come.
Bytes complete(Bytes frame) {
  frame.push_back(static_cast<unsigned char>(std::accumulate(frame.begin() + 1, frame.end(), 0U)));
  frame.push_back(0x7E);
  return frame;
}

// A valid notice of a tag whose EPC is one byte.
Bytes notice(unsigned char epc) { return complete(hex("7F 02 22 00 06 C8 08 00") + Bytes{epc} + hex("5A 3C")); }

class T640Test : public testing::Test {
 protected:
  void SetUp() override { host().reset(); }

  // The EPCs of an inventory's tags, which are of one byte here.
  static Bytes epcs(const std::vector<InventoryCardInfo>& tags) {
    Bytes first;
    for (const auto& tag : tags) {
      first.push_back(tag.epc.at(0));
    }
    return first;
  }

  // An inventory answered by these bytes, which are all there when it is made.
  std::pair<bool, Bytes> inventory(const Bytes& answer) {
    peer.write(answer);
    const auto [succeeded, tags] = driver.inventoryCard();
    EXPECT_EQ(peer.read(INVENTORY.size()), INVENTORY);
    return {succeeded, epcs(tags)};
  }

  // The outcome of an operation while the peer gives these chunks, each once the one before was read.
  template <class Operation>
  auto whileAnswering(const std::vector<Bytes>& chunks, Operation operation) {
    auto result = std::async(std::launch::async, operation);
    for (const auto& chunk : chunks) {
      peer.write(chunk);
      EXPECT_TRUE(peer.wait_until_read());
    }
    return result.get();
  }

  // What an operation ends with when the line hangs up once its command, of so many bytes, has come.
  template <class Operation>
  static std::string failureWhileWaiting(Operation operation, std::size_t size) {
    std::string seen;
    // A line that hangs up just before the read begins is no failure but an end: once more, then.
    for (int attempt = 0; seen.empty() && attempt < 50; ++attempt) {
      ReaderPeer other;
      const T640 patient(other.path(), milliseconds(25500));
      auto failure = std::async(std::launch::async, [&] { return failure_of([&] { operation(patient); }); });
      EXPECT_EQ(other.read(size).size(), size);
      other.hang_up();
      seen = failure.get();
    }
    return seen;
  }

  static void expectDebugLine(const std::string& text, const std::string& source, const std::string& function,
                              int line) {
    const auto lines = host().debug_lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, text);
    EXPECT_EQ(lines[0].source, source);
    EXPECT_EQ(lines[0].function, function);
    EXPECT_EQ(lines[0].line, line);
  }

  ReaderPeer peer;
  T640 driver{peer.path(), milliseconds(200)};
};

using SendFrame = T640Test;
using ReceiveFrames = T640Test;
using Inventory = T640Test;
using Getter = T640Test;
using Setter = T640Test;
using Driver = T640Test;

void expectSendFrameLine(const std::string& text, int line) {
  const auto lines = host().debug_lines();
  ASSERT_EQ(lines.size(), 1U) << text;
  EXPECT_EQ(lines[0].text, text);
  EXPECT_EQ(lines[0].source, "uhf/src/include/t640");
  EXPECT_EQ(lines[0].function, "sendFrame");
  EXPECT_EQ(lines[0].line, line);
}

}  // namespace

TEST_F(SendFrame, JoinsAnAnswerOfManyChunks) {
  std::vector<Bytes> chunks;
  for (const auto byte : POWER_2600) {
    chunks.push_back({byte});
  }
  EXPECT_EQ(whileAnswering(chunks, [this] { return driver.getTransmitPower(); }), std::pair(true, std::uint16_t{2600}));
}

TEST_F(SendFrame, SilenceIsNoResponse) {
  EXPECT_FALSE(driver.setTransmitPower(2600));
  expectSendFrameLine("No response", 56);
}

TEST_F(SendFrame, SilenceInTheMiddleIsNoResponse) {
  peer.write(hex("7F 01 B6 00 01"));
  EXPECT_FALSE(driver.setTransmitPower(2600));
  expectSendFrameLine("No response", 56);
}

TEST_F(SendFrame, AStrayByteBeforeTheHeaderSpoilsAWholeFrame) {
  peer.write(hex("00") + SET_POWER_DONE);
  EXPECT_FALSE(driver.setTransmitPower(2600));
  expectSendFrameLine("Header not found", 64);
}

TEST_F(SendFrame, AWrongChecksumIsAnInvalidResponse) {
  peer.write(hex("7F 01 B6 00 01 00 B9 7E"));
  EXPECT_FALSE(driver.setTransmitPower(2600));
  expectSendFrameLine("Invalid response", 75);
}

TEST_F(SendFrame, AnAnswerWithoutAFrameIsAnInvalidResponse) {
  peer.write(hex("7F 01 B6 00 00 00 B8 7E"));  // no end byte where it should stand
  EXPECT_FALSE(driver.setTransmitPower(2600));
  expectSendFrameLine("Invalid response", 75);
}

TEST_F(SendFrame, AnEndByteInsideAFieldParsesEarly) {
  EXPECT_FALSE(whileAnswering({hex("7F 01 B7 00 02 0A 7E")}, [this] { return driver.getTransmitPower(); }).first);
  expectSendFrameLine("Error parsing data: Not enough bytes to parse type", 81);
  host().reset();
  peer.write(hex("7F 01 B7 00 05 0A 7E"));
  EXPECT_FALSE(driver.getTransmitPower().first);
  expectSendFrameLine("Error parsing data: Invalid parameter length", 81);
}

TEST_F(SendFrame, AnUnknownCommandIsLoggedWithItsReason) {
  peer.write(hex("7F 01 10 00 00 11 7E"));
  EXPECT_FALSE(driver.setTransmitPower(2600));
  expectSendFrameLine("Error parsing data: Unknown Command Type: 16", 81);
}

TEST_F(SendFrame, ANoticeTooShortForItsFieldsIsLoggedNotThrown) {
  peer.write(hex("7F 02 22 00 03 C8 30 00 1F 7E"));
  EXPECT_FALSE(driver.setTransmitPower(2600));
  expectSendFrameLine("Error parsing data: std::bad_alloc", 81);
}

TEST_F(SendFrame, BytesBehindTheAnswerAreDropped) {
  peer.write(POWER_2600 + notice(1));
  EXPECT_TRUE(driver.getTransmitPower().first);
  EXPECT_FALSE(driver.getTransmitPower().first) << "nothing is left for the next command";
}

TEST_F(SendFrame, SerialFailuresReachTheCallerWithTheMutexFree) {
  ReaderPeer other;
  const T640 lost(other.path(), milliseconds(200));
  other.hang_up();
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_THROW(lost.setTransmitPower(2600), ac::ac_exception) << attempt;
    EXPECT_THROW(lost.inventoryCard(), ac::ac_exception) << attempt;
  }
}

TEST_F(SendFrame, AFailureWhileItWaitsForTheAnswerReachesTheCaller) {
  EXPECT_EQ(failureWhileWaiting([](const T640& patient) { patient.setTransmitPower(2600); }, 9),
            "Error while reading from serial port: Unknown error -1");
}

TEST_F(ReceiveFrames, AFailureWhileItWaitsForTheAnswerReachesTheCaller) {
  EXPECT_EQ(failureWhileWaiting([](const T640& patient) { patient.inventoryCard(); }, 7),
            "Error while reading from serial port: Unknown error -1");
}

TEST_F(SendFrame, AnEndByteInTheMiddleOfWhatIsThereIsNotTheEnd) {
  const auto whole = complete(hex("7F 01 B7 00 02 7E 10"));
  const std::vector<Bytes> chunks{{whole.begin(), whole.begin() + 7}, {whole.begin() + 7, whole.end()}};
  EXPECT_EQ(whileAnswering(chunks, [this] { return driver.getTransmitPower(); }),
            std::pair(true, std::uint16_t{0x7E10}));
}

TEST_F(ReceiveFrames, AnEndByteInTheMiddleOfWhatIsThereIsNotTheEnd) {
  const auto whole = notice(0x7E) + notice(2);
  const std::vector<Bytes> chunks{{whole.begin(), whole.begin() + 10}, {whole.begin() + 10, whole.end()}};
  const auto [succeeded, tags] = whileAnswering(chunks, [this] { return driver.inventoryCard(); });
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(epcs(tags), hex("02"));
}

TEST_F(ReceiveFrames, SilenceIsNoResponse) {
  EXPECT_EQ(inventory({}), std::pair(false, Bytes{}));
  expectDebugLine("No response", "uhf/src/source/t640", "receiveFrames", 160);
}

TEST_F(ReceiveFrames, JunkWithoutAHeaderIsLogged) {
  EXPECT_EQ(inventory(hex("00 01 7E")), std::pair(false, Bytes{}));
  expectDebugLine("Header not found", "uhf/src/source/t640", "receiveFrames", 170);
}

TEST_F(ReceiveFrames, JunkBeforeAHeaderEndsTheCallWithoutALine) {
  EXPECT_EQ(inventory(hex("00") + notice(1)), std::pair(false, Bytes{}));
  EXPECT_TRUE(host().debug_lines().empty());
  EXPECT_EQ(inventory(notice(2)), std::pair(true, hex("02"))) << "the next inventory starts afresh";
}

TEST_F(ReceiveFrames, JunkBeforeAHeaderDoesNotWaitForTheRest) {
  const auto start = std::chrono::steady_clock::now();
  inventory(hex("00 7F 02"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(150));
}

TEST_F(ReceiveFrames, JoinsChunksUntilAnEndByte) {
  const auto whole = notice(1) + notice(2);
  const std::vector<Bytes> chunks{
      {whole.begin(), whole.begin() + 5}, {whole.begin() + 5, whole.begin() + 20}, {whole.begin() + 20, whole.end()}};
  const auto [succeeded, tags] = whileAnswering(chunks, [this] { return driver.inventoryCard(); });
  EXPECT_TRUE(succeeded);
  EXPECT_EQ(epcs(tags), hex("02"));
}

TEST_F(ReceiveFrames, JoinsAnAnswerSplitAtAnyByteButBehindAFrame) {
  const auto whole = notice(1) + notice(2);
  const auto size = static_cast<std::ptrdiff_t>(whole.size());
  for (std::ptrdiff_t split = 1; split < size; ++split) {
    if (split == size / 2) {
      continue;  // the first piece is a whole answer
    }
    const std::vector<Bytes> chunks{{whole.begin(), whole.begin() + split}, {whole.begin() + split, whole.end()}};
    const auto [succeeded, tags] = whileAnswering(chunks, [this] { return driver.inventoryCard(); });
    EXPECT_TRUE(succeeded) << split;
    EXPECT_EQ(epcs(tags), hex("02")) << split;
  }
}

TEST_F(ReceiveFrames, SilenceAfterAPartIsNoResponse) {
  EXPECT_EQ(inventory(hex("7F 02 22")), std::pair(false, Bytes{}));
  EXPECT_THAT(host().debug_texts(), ElementsAre("No response"));
}

TEST_F(ReceiveFrames, AWrongChecksumEndsTheListWithoutALine) {
  auto wrong = notice(3);
  ++wrong[wrong.size() - 2];
  EXPECT_EQ(inventory(notice(1) + notice(2) + wrong + notice(4)), std::pair(true, hex("02")));
  EXPECT_THAT(host().debug_texts(), ElementsAre("Card detected! EPC: 02 [1]"));
}

TEST_F(ReceiveFrames, AResponseWithAWrongChecksumEndsTheListToo) {
  EXPECT_EQ(inventory(notice(1) + hex("7F 01 FF 00 01 17 19 7E")), std::pair(true, hex("01")));
}

TEST_F(ReceiveFrames, AParsingErrorKeepsTheFramesBeforeIt) {
  EXPECT_EQ(inventory(notice(1) + hex("7F 01 10 00 00 11 7E")), std::pair(true, hex("01")));
  EXPECT_THAT(host().debug_texts(),
              ElementsAre("Error parsing data: Unknown Command Type: 16", "Card detected! EPC: 01 [1]"));
}

TEST_F(ReceiveFrames, ANoticeTooShortForItsFieldsKeepsTheFramesBeforeIt) {
  EXPECT_EQ(inventory(notice(1) + hex("7F 02 22 00 04 C8 30 00 5A 7A 7E")), std::pair(true, hex("01")));
  EXPECT_EQ(host().debug_texts().at(0), "Error parsing data: std::bad_alloc");
  EXPECT_EQ(host().debug_lines().at(0).function, "receiveFrames");
  EXPECT_EQ(host().debug_lines().at(0).source, "uhf/src/source/t640");
}

TEST_F(ReceiveFrames, JunkBetweenFramesEndsTheList) {
  EXPECT_EQ(inventory(notice(1) + hex("00") + notice(2)), std::pair(true, hex("01")));
}

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
