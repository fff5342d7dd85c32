#include "refhost/log.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <thread>

#include "ac/util.h"
#include "ac/vexlog.h"
#include "refhost/log_entry.h"

namespace refhost::test {
namespace {

class Log : public testing::Test {
 protected:
  ~Log() override {
    log::set_threshold(log::Level::warning);
    log::show_cards(false);
  }

  // What a debug line looks like on standard error.
  static std::string line(const std::string& text) {
    capture_log();
    ac::vexlog::debug(text, "uhf/src/source/uhf", "setRegion", 7);
    return captured_log();
  }
};

TEST_F(Log, LineHasTimeLevelThreadPlaceAndText) {
  log::set_threshold(log::Level::debug);
  std::string written;
  std::thread([&] {
    ac::util::set_thread_name("a_name_longer_than_15", pthread_self());
    written = line("hello");
  }).join();
  EXPECT_THAT(written, testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} debug   "
                                             "\\[a_name_longer_than_15\\] uhf/src/source/uhf:setRegion:7: hello\n"));
}

TEST_F(Log, ThreadWithoutANameHasTheSystems) {
  std::thread([] {
    pthread_setname_np(pthread_self(), "by_system");
    EXPECT_EQ(log::thread_name(), "by_system");
  }).join();
}

TEST_F(Log, EntriesBelowTheThresholdAreLeftOut) {
  EXPECT_EQ(line("hello"), "");
  log::set_threshold(log::Level::debug);
  EXPECT_NE(line("hello"), "");
  log::set_threshold(log::Level::info);
  EXPECT_EQ(line("hello"), "");
}

TEST_F(Log, OwnEntriesNameTheirPlace) {
  capture_log();
  log::info("left out");
  log::warning("look");
  log::error("out");
  const std::string written = captured_log();
  EXPECT_EQ(written.find("left out"), std::string::npos);
  EXPECT_THAT(written, testing::ContainsRegex("warning \\[.+\\] log_test\\.cpp:TestBody:[0-9]+: look\n"));
  EXPECT_THAT(written, testing::ContainsRegex("error   \\[.+\\] log_test\\.cpp:TestBody:[0-9]+: out\n"));
}

TEST_F(Log, ControlCharactersAreEscapedSoAnEntryIsOneLine) {
  EXPECT_EQ(log::escape("a\nb\rc\td\x1b[31m\x7f\\"), "a\\nb\\rc\\td\\x1b[31m\\x7f\\\\");
  EXPECT_EQ(log::escape("Região"), "Região");
  log::set_threshold(log::Level::debug);
  const std::string written = line("one\ntwo");
  EXPECT_NE(written.find("one\\ntwo\n"), std::string::npos) << written;
}

TEST_F(Log, FormatCharactersOfATextAreText) {
  log::set_threshold(log::Level::debug);
  EXPECT_NE(line("{} %s {0}").find(": {} %s {0}\n"), std::string::npos);
}

TEST_F(Log, CardValuesAreMaskedUnlessAskedFor) {
  log::set_threshold(log::Level::debug);
  EXPECT_NE(line("Card Value: 305419896").find("Card Value: *****9896\n"), std::string::npos);
  log::show_cards(true);
  EXPECT_NE(line("Card Value: 305419896").find("Card Value: 305419896\n"), std::string::npos);
}

TEST(CardMask, KeepsTheLastFourCharacters) {
  EXPECT_EQ(log::mask_card("Card Value: 12345"), "Card Value: *2345");
  EXPECT_EQ(log::mask_card("Card Value: 1234"), "Card Value: 1234");
  EXPECT_EQ(log::mask_card("Card Value: 1"), "Card Value: 1");
  EXPECT_EQ(log::mask_card("Card Value: "), "Card Value: ");
}

TEST(CardMask, KeepsSeparatorsAndTheLengthOfAnEpc) {
  EXPECT_EQ(log::mask_card("Card detected! EPC: E2 00 12 AB [4]"), "Card detected! EPC: ** ** 12 AB [4]");
  EXPECT_EQ(log::mask_card("Card detected! EPC: E2 00 12"), "Card detected! EPC: ** 00 12");
  EXPECT_EQ(log::mask_card("Card detected! EPC: [0]"), "Card detected! EPC: [0]");
}

TEST(CardMask, LeavesOtherLinesAlone) {
  EXPECT_EQ(log::mask_card("Transmit power: 123456"), "Transmit power: 123456");
  EXPECT_EQ(log::mask_card("A Card Value: 123456"), "A Card Value: 123456");
}

}  // namespace
}  // namespace refhost::test
