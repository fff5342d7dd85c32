// Another power in the reader for a while.
#include <sys/socket.h>

#include <future>
#include <optional>

#include "line/tests/line_fixture.h"

namespace line::test {
namespace {

constexpr int kOwn = 1750;
constexpr int kTried = 2100;
constexpr milliseconds kLong(60'000);

class LineTrial : public LineTest {
 protected:
  void SetUp() override {
    open();
    ASSERT_TRUE(driver().setTransmitPower(kOwn));
    reader_->field().add({.epc = kTag});
    poll();  // its question ends the one before, and so the line knows what became of that
  }

  int power() const { return reader_->state().power; }

  // Of the line, while the plug-in polls.
  template <typename Call>
  auto meanwhile(Call call) {
    auto result = std::async(std::launch::async, call);
    EXPECT_TRUE(poll_until([&] { return result.wait_for(milliseconds(0)) == std::future_status::ready; }));
    return result.get();
  }

  std::optional<int> try_power(int power, milliseconds how_long = kLong) {
    return meanwhile([=, this] { return line_->try_power(power, how_long); });
  }
};

TEST_F(LineTrial, TheReaderHasTheTriedPowerUntilItsTimeIsOver) {
  EXPECT_EQ(try_power(kTried, milliseconds(300)), kTried);
  EXPECT_TRUE(poll_until([this] { return line_->trial_until().has_value(); }));
  EXPECT_TRUE(poll_until([this] { return power() == kOwn; }));
  EXPECT_TRUE(poll_until([this] { return !line_->trial_until().has_value(); }));
}

TEST_F(LineTrial, ThePlugInReadsOn) {
  ASSERT_EQ(try_power(kTried), kTried);
  EXPECT_EQ(poll(), std::vector<Bytes>{kTag});
  EXPECT_EQ(power(), kTried);
}

TEST_F(LineTrial, AnotherPowerTakesThePlaceOfTheFirst) {
  ASSERT_EQ(try_power(kTried, milliseconds(1)), kTried);
  ASSERT_EQ(try_power(2200), 2200);
  const auto shown = [this] { return line_->trial_until().value_or(Clock::time_point()); };
  ASSERT_TRUE(poll_until([&] { return shown() > Clock::now() + kLong / 2; })) << "it has looked at the time since";
  EXPECT_EQ(power(), 2200) << "the end of the first takes nothing from the second";
}

TEST_F(LineTrial, ItsEndAnswersThePlugInsPower) {
  ASSERT_EQ(try_power(kTried), kTried);
  EXPECT_EQ(meanwhile([this] { return line_->end_trial(); }), kOwn);
  EXPECT_EQ(power(), kOwn);
  EXPECT_EQ(meanwhile([this] { return line_->end_trial(); }), kOwn) << "also where none is tried";
}

TEST_F(LineTrial, ThePlugInNeverSeesIt) {
  ASSERT_EQ(try_power(kTried), kTried);
  EXPECT_EQ(driver().getTransmitPower(), std::pair(true, static_cast<unsigned short>(kOwn)));
}

TEST_F(LineTrial, WhatThePlugInSetsStays) {
  ASSERT_EQ(try_power(kTried, milliseconds(300)), kTried);
  ASSERT_TRUE(driver().setTransmitPower(1900));
  EXPECT_EQ(power(), 1900);
  poll();
  EXPECT_EQ(meanwhile([this] { return line_->end_trial(); }), 1900);
}

TEST_F(LineTrial, AReaderThatComesBackHasThePlugInsPower) {
  ASSERT_EQ(try_power(kTried), kTried);
  pull_out();
  ASSERT_TRUE(poll_until([this] { return line_->health().state == State::gone; }));
  EXPECT_EQ(line_->try_power(kTried, kLong), std::nullopt) << "there is no reader";
  plug_in();
  ASSERT_TRUE(poll_until_state(State::answering));
  EXPECT_EQ(power(), kOwn);
  EXPECT_TRUE(poll_until([this] { return !line_->trial_until().has_value(); }));
}

TEST_F(LineTrial, WhoBorrowsTheLineFindsThePlugInsPower) {
  ASSERT_EQ(try_power(kTried), kTried);
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  auto lent = std::async(std::launch::async, [this, end = ends[0]] { return line_->lend(end, "uhfctl survey"); });
  ASSERT_TRUE(poll_until([this] { return line_->health().state == State::lent; }));
  EXPECT_EQ(power(), kOwn);
  EXPECT_EQ(line_->try_power(kTried, kLong), std::nullopt);
  close(ends[1]);
  EXPECT_TRUE(meanwhile([&] { return lent.get(); }));
  EXPECT_EQ(power(), kOwn);
}

TEST_F(LineTrial, WithoutAPowerOfThePlugInsThereIsNone) {
  driver_.reset();
  line_.reset();
  open();
  poll();
  EXPECT_EQ(try_power(kTried), std::nullopt) << "nobody would know what to give back";
  EXPECT_EQ(power(), kOwn);
}

// Its answer to the restoring command is lost.
TEST_F(LineTrial, AReaderThatDoesNotTakeItsPowerBackGetsAllSettingsAnew) {
  ASSERT_EQ(try_power(kTried), kTried);
  reader_->faults().set("silence", 1.0);
  auto ended = std::async(std::launch::async, [this] { return line_->end_trial(); });
  ASSERT_TRUE(poll_until([&] { return ended.wait_for(milliseconds(0)) == std::future_status::ready; }));
  EXPECT_EQ(ended.get(), std::nullopt);
  reader_->faults().clear();
  EXPECT_TRUE(poll_until([this] { return power() == kOwn; }));
  EXPECT_TRUE(poll_until_state(State::answering));
}

}  // namespace
}  // namespace line::test
