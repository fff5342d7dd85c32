// A reader that goes and comes back.
#include "line/tests/line_fixture.h"

namespace line::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class LineRecovery : public LineTest {
 protected:
  // As the plug-in does it at its start.
  void set_up_radio() {
    ASSERT_TRUE(driver().setWorkArea(ac::UHF::Region::EUROPE));
    ASSERT_TRUE(driver().setTransmitPower(1750));
    ASSERT_TRUE(driver().setWorkChannel({1, 2, 3}));
  }

  bool has_its_settings() const {
    const auto state = reader_->state();
    return state.region == 3 && state.power == 1750 && state.channels == std::vector<std::uint8_t>{1, 2, 3};
  }
};

TEST_F(LineRecovery, AnAdapterThatIsPulledOutAndPutBackReadsAgainWithItsSettings) {
  open();
  set_up_radio();
  reader_->field().add({.epc = kTag});
  ASSERT_THAT(poll(), ElementsAre(kTag));
  pull_out();
  const auto gone = events_.state(State::gone);
  ASSERT_TRUE(gone.has_value());
  EXPECT_THAT(gone->text, HasSubstr("reader gone: the port " + port().string() + " has gone"));
  EXPECT_THAT(poll(), testing::IsEmpty()) << "a reader that does not answer, and no error";
  plug_in();
  reader_->field().add({.epc = kTag});
  ASSERT_TRUE(poll_until([this] { return poll() == std::vector<Bytes>{kTag}; })) << events_.texts();
  EXPECT_TRUE(has_its_settings());
  EXPECT_TRUE(events_.wait_for([](const Event& e) { return e.kind == Event::Kind::given_back; }).has_value());
}

TEST_F(LineRecovery, ASilentReaderGetsItsSettingsBackBeforeItsFirstPoll) {
  open();
  set_up_radio();
  ASSERT_TRUE(poll_until_state(State::answering));
  reader_->faults().set("silence", 1);
  ASSERT_TRUE(poll_until_state(State::silent));
  // What a reader that lost its supply has forgotten.
  pull_out();
  plug_in();
  reader_->field().add({.epc = kTag});
  ASSERT_TRUE(poll_until([this] { return poll() == std::vector<Bytes>{kTag}; })) << events_.texts();
  EXPECT_TRUE(has_its_settings());
}

TEST_F(LineRecovery, EveryStepOfTheLadderIsSaidAndCounted) {
  std::atomic<int> resets = 0;
  open({.give_up_after = seconds(4), .reset = [&resets] {
          ++resets;
          return true;
        }});
  ASSERT_TRUE(poll_until_state(State::answering));
  reader_->faults().set("silence", 1);
  ASSERT_TRUE(poll_until([this] { return line_->steps_taken().back() == 1; })) << events_.texts();
  EXPECT_EQ(line_->steps_taken()[static_cast<std::size_t>(Rung::drop_waiting)], 1);
  EXPECT_EQ(line_->steps_taken()[static_cast<std::size_t>(Rung::reopen)], 1);
  EXPECT_EQ(resets, 1);
  EXPECT_THAT(events_.texts(), HasSubstr("what waited on the line is dropped"));
  EXPECT_THAT(events_.texts(), HasSubstr("the port is opened again"));
  EXPECT_THAT(events_.texts(), HasSubstr("the reader is reset"));
  const auto end = events_.wait_for([](const Event& e) { return e.kind == Event::Kind::given_up; });
  ASSERT_TRUE(end.has_value());
  EXPECT_THAT(end->text, HasSubstr("has not come back"));
}

TEST_F(LineRecovery, AResetBringsTheReaderBack) {
  open({.give_up_after = seconds(60), .reset = [this] {
          reader_->faults().clear();
          return true;
        }});
  set_up_radio();
  ASSERT_TRUE(poll_until_state(State::answering));
  reader_->faults().set("silence", 1);
  ASSERT_TRUE(poll_until_state(State::silent));
  ASSERT_TRUE(poll_until_state(State::answering)) << events_.texts();
  EXPECT_EQ(line_->steps_taken()[static_cast<std::size_t>(Rung::reset)], 1);
}

TEST_F(LineRecovery, AReaderThatKeepsAnotherPowerIsSaid) {
  open();
  ASSERT_TRUE(driver().setTransmitPower(1750));
  ASSERT_TRUE(driver().getTransmitPower().first);
  pull_out();
  ASSERT_TRUE(events_.state(State::gone).has_value());
  // A reader that hears the commands and keeps to its own: each answer is a plain good one.
  plug_in();
  reader_->faults().set("silence", 0);
  ASSERT_TRUE(events_.wait_for([](const Event& e) { return e.kind == Event::Kind::given_back; }).has_value());
  EXPECT_THAT(events_.texts(), HasSubstr("the reader has its settings again"));
}

}  // namespace
}  // namespace line::test
