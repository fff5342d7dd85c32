// The thread that looks at the readings: what it is told by whom, and how soon it answers.
#include "door/run/reading_watch.h"

#include <gmock/gmock.h>

#include <future>
#include <sstream>

#include "door/tests/service_fixture.h"
#include "line/frames.h"
#include "line/recording.h"

namespace achost::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int kTriggerLine = 1;
constexpr int kCard = 33;

class ReadingWatchTest : public Services {
 protected:
  ReadingWatchTest() {
    for (const auto& [key, value] :
         std::initializer_list<std::pair<const char*, const char*>>{{"operation_mode", "continuous"},
                                                                    {"trig_gpio", "1"},
                                                                    {"trigger_timeout", "60000"},
                                                                    {"read_interval", "100"},
                                                                    {"read_interval_diff_tags", "100"},
                                                                    {"probe_interval", "10"},
                                                                    {"identification_bits", "8"},
                                                                    {"reader_type", "msb"}}) {
      settings().override_for_run("uhf", key, value);
    }
  }

  // By default a little after now, so that it is near to nothing else.
  static line::Exchange answer(milliseconds from_now = milliseconds(10), std::size_t cards = 1) {
    const auto report =
        frame_of(line::FrameType::notice, line::Code::inventory, line::Bytes{200, 0x30, 0, 0xE2, 0, 0, kCard, 0, 0});
    line::Exchange exchange;
    exchange.code = line::Code::inventory;
    for (std::size_t i = 0; i < cards; ++i) {
      exchange.bytes.insert(exchange.bytes.end(), report.begin(), report.end());
    }
    exchange.answer = line::answer_of(exchange.code, exchange.bytes);
    exchange.last_byte = steady_clock::now() + from_now;
    exchange.asked = exchange.last_byte - milliseconds(3);
    return exchange;
  }

  static void announce() { refhost::send("identifier_new_card", {{"value", std::int64_t{kCard}}}); }

  GpioService gpio_;
  Recorder<Kind> noted_;
  ReadingWatch watch_{settings(), gpio_, [this](const Entry& entry) { noted_.add(entry.kind); }, [] { return true; }};
};

TEST_F(ReadingWatchTest, WhoAsksWaitsNoLongerThanItTakesToKnow) {
  watch_.begin();
  watch_.saw(answer(milliseconds(0)));
  announce();
  auto shortest = steady_clock::duration::max();  // on a machine that may be busy
  for (int i = 0; i < 5; ++i) {
    const auto asked = steady_clock::now();
    EXPECT_THAT(watch_.sightings(), SizeIs(1));
    shortest = std::min(shortest, steady_clock::now() - asked);
  }
  EXPECT_LT(shortest, milliseconds(450)) << "300 ms until it is known, and a look each 20 ms";
  EXPECT_EQ(watch_.counters().disagreements, 0U);
}

TEST_F(ReadingWatchTest, AnInputThatWasActiveAtTheStartHasTriggeredNothing) {
  settings().override_for_run("uhf", "operation_mode", "trigger");
  watch({{"gpio_notified", {"gpio"}}});
  refhost::send("gpio_set_value", {{"gpio", kTriggerLine}, {"value", 1}});
  seen(1);
  watch_.begin();
  watch_.saw(answer());
  EXPECT_THAT(watch_.sightings(), SizeIs(1));
  EXPECT_EQ(watch_.counters().disagreements, 0U);
}

TEST_F(ReadingWatchTest, ATriggerBeforeTheFirstAnswerCountsFromItsTime) {
  settings().override_for_run("uhf", "operation_mode", "trigger");
  watch_.begin();
  refhost::send("gpio_notified", {{"gpio", kTriggerLine}, {"value", 1}});
  watch_.saw(answer());
  EXPECT_THAT(watch_.sightings(), SizeIs(1));
  EXPECT_EQ(watch_.counters().disagreements, 1U) << "it was to be announced";
}

TEST_F(ReadingWatchTest, ARecordingBeginsWithHowThingsStandAndIsToldAgainLater) {
  settings().override_for_run("uhf", "read_interval", "1000");
  line::Recorder recorder;
  ReadingWatch watch(
      settings(), gpio_, [](const Entry&) {}, [] { return true; });
  watch.begin(&recorder, milliseconds(0));
  const auto noted = [&] {
    std::istringstream text(recorder.text());
    line::RecordingReader reader(text, "recording");
    std::vector<why::Standing> all;
    while (const auto one = reader.next()) {
      if (auto standing = why::standing_of(one->note)) {
        all.push_back(*std::move(standing));
      }
    }
    return all;
  };
  const auto first = noted().at(0);
  EXPECT_TRUE(first.is_start);
  EXPECT_EQ(first.settings.at("read_interval"), "1000");
  EXPECT_EQ(first.trigger_line, kTriggerLine);
  EXPECT_EQ(first.level, 0);
  EXPECT_THAT(first.announced, IsEmpty());
  settings().override_for_run("uhf", "read_interval", "2000");
  refhost::send("config_param_set", {{"module", "uhf"}, {"param", "read_interval"}});
  refhost::send("gpio_notified", {{"gpio", kTriggerLine}, {"value", 1}});
  refhost::send("reader_state", {{"state", "silent"}, {"cause", "no answer"}});
  announce();
  watch.sightings();
  const auto later = noted().back();
  EXPECT_FALSE(later.is_start);
  EXPECT_EQ(later.settings.at("read_interval"), "2000");
  EXPECT_EQ(later.level, 1);
  ASSERT_THAT(later.edges, SizeIs(1));
  EXPECT_EQ(later.edges[0].second, 1);
  ASSERT_THAT(later.announced, SizeIs(1));
  EXPECT_EQ(later.announced[0].second, why::Card{kCard});
  ASSERT_TRUE(later.reader.has_value());
  EXPECT_EQ(later.reader->cause, "no answer");
}

TEST_F(ReadingWatchTest, AfterTheEndNothingIsNoted) {
  watch_.begin();
  watch_.end();
  watch_.saw(answer());
  announce();
  EXPECT_THAT(watch_.sightings(), IsEmpty());
  EXPECT_EQ(watch_.counters().readings, 0U);
}

// While the one that notes them hangs, which holds the thread up.
TEST_F(ReadingWatchTest, WhatIsLeftOutForWantOfRoomIsCountedAndNoDisagreement) {
  std::promise<void> is_held;
  std::promise<void> go_on;
  bool holds = true;  // the thread of the watch, and the end of the test
  ReadingWatch watch(
      settings(), gpio_,
      [&](const Entry&) {
        if (std::exchange(holds, false)) {
          is_held.set_value();
          go_on.get_future().wait();
        }
      },
      [] { return true; });
  watch.begin();
  announce();  // of a card that nobody has read: a disagreement is noted
  is_held.get_future().wait();
  auto many = answer(milliseconds(0), 1000);  // it takes its time to make
  while (watch.left_out() == 0) {
    many.last_byte = steady_clock::now();
    many.asked = many.last_byte - milliseconds(3);
    watch.saw(many);
  }
  const auto before = watch.left_out();
  for (int i = 0; i < 1000 && watch.left_out() == before; ++i) {
    announce();
  }
  EXPECT_EQ(watch.left_out(), before + 1) << "an announcement needs room, too";
  go_on.set_value();
  watch.sightings();
  announce();  // of an answer that may have been left out
  watch.sightings();
  EXPECT_EQ(watch.counters().disagreements, 1U);
}

TEST_F(ReadingWatchTest, AtTheEndSightingsWaitForRoomAndNotForLong) {
  std::atomic<int> asked = 0;
  std::vector<int> noted_at;  // by the end, on this thread
  const auto end_with_room_at = [&](int question) {
    asked = 0;
    noted_at.clear();
    ReadingWatch watch(
        settings(), gpio_,
        [&](const Entry& entry) {
          if (entry.kind == Kind::sighting) {
            noted_at.push_back(asked);
          }
        },
        [&] { return ++asked >= question; });
    watch.begin();
    watch.saw(answer());
    watch.end();
  };
  end_with_room_at(3);
  EXPECT_EQ(noted_at, std::vector<int>({3}));
  const auto begin = std::chrono::steady_clock::now();
  end_with_room_at(1'000'000'000);
  EXPECT_EQ(noted_at.size(), 1U) << "it is for the one who notes it to refuse it";
  EXPECT_GE(std::chrono::steady_clock::now() - begin, ReadingWatch::kLongestEnd);
}

}  // namespace
}  // namespace achost::test
