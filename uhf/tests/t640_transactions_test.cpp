// A command and its answer, over one line: what makes a transaction, and what spoils it.
#include "ac/exception.h"
#include "frame_catalogue.h"
#include "t640_fixture.h"

namespace t640_test {

using SendFrame = T640Test;
using ReceiveFrames = T640Test;

namespace {

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

}  // namespace t640_test
