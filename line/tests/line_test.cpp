// Passing bytes, health and recording.
#include "line/line.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>

#include <thread>

#include "line/tests/line_fixture.h"

namespace line::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(LineTest, ThePlugInsDriverWorksThroughItAsAtThePort) {
  open();
  reader_->field().add({.epc = kTag});
  EXPECT_THAT(poll(), ElementsAre(kTag));
  EXPECT_TRUE(driver().setTransmitPower(2000));
  EXPECT_EQ(driver().getTransmitPower(), std::pair(true, static_cast<unsigned short>(2000)));
  reader_->field().clear();
  EXPECT_THAT(poll(), IsEmpty());
}

TEST_F(LineTest, AMissingPortIsAnErrorUnlessItMayBeMissing) {
  pull_out();
  EXPECT_THROW(open(), PortError);
  open({.may_be_missing = true});
  EXPECT_EQ(line_->health().state, State::gone);
  EXPECT_THAT(line_->health().cause, HasSubstr("there is no port"));
  EXPECT_FALSE(line_->wait_for_answer(milliseconds(10)));
  plug_in();
  EXPECT_TRUE(line_->wait_for_answer(kPatience)) << "the line asks by itself";
  EXPECT_TRUE(events_.state(State::answering).has_value());
}

TEST_F(LineTest, AReaderThatAnswersIsAnsweringAndNothingIsSaidOfIt) {
  open();
  ASSERT_TRUE(poll_until_state(State::answering));
  EXPECT_EQ(events_.count(), 0U) << events_.texts();
  EXPECT_GT(line_->health().polls, 0U);
}

TEST_F(LineTest, ASilentReaderIsSaidWithinTwoSecondsOfTheQuestion) {
  open();
  ASSERT_TRUE(poll_until_state(State::answering));
  reader_->faults().set("silence", 1);
  const auto begin = Clock::now();
  ASSERT_TRUE(poll_until_state(State::silent));
  EXPECT_LE(Clock::now() - begin, seconds(2));
  const auto event = events_.state(State::silent).value();
  EXPECT_THAT(event.text,
              HasSubstr("reader silent: the reader at " + port().string() + " does not answer; is it powered"));
  reader_->faults().clear();
  EXPECT_TRUE(poll_until_state(State::answering)) << events_.texts();
}

TEST_F(LineTest, OneQuestionThatNobodyAnswersIsEnoughHoweverLongThePlugInWaits) {
  open();
  ASSERT_TRUE(poll_until_state(State::answering));
  reader_->faults().set("silence", 1);
  const int client = ::open(line_->terminal().c_str(), O_RDWR | O_NOCTTY);
  const auto poll_frame = frame_of(FrameType::command, Code::inventory, {});
  const auto begin = Clock::now();
  ASSERT_EQ(write(client, poll_frame.data(), poll_frame.size()), static_cast<ssize_t>(poll_frame.size()));
  EXPECT_TRUE(events_.state(State::silent).has_value());
  EXPECT_LE(Clock::now() - begin, seconds(2));
  close(client);
}

TEST_F(LineTest, AReaderThatSaysNothingOfAnEmptyFieldIsNotSilent) {
  plug_in({.baud = 0, .quiet_when_empty = true});
  open();
  const auto end = Clock::now() + seconds(3);
  while (Clock::now() < end) {
    EXPECT_THAT(poll(), IsEmpty());
  }
  EXPECT_EQ(line_->health().state, State::answering);
  EXPECT_EQ(events_.count(), 0U) << events_.texts();
  reader_->field().add({.epc = kTag});
  EXPECT_TRUE(poll_until([this] { return poll() == std::vector<Bytes>{kTag}; }));
}

TEST_F(LineTest, ASlowAnswerIsThePlugInsThoughTheLineHasAskedMeanwhile) {
  open();
  reader_->field().add({.epc = kTag});
  reader_->faults().set("late", 1);  // by a second, and the line asks after three quarters of one
  const int client = ::open(line_->terminal().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  const auto question = frame_of(FrameType::command, Code::inventory, {});
  ASSERT_GT(write(client, question.data(), question.size()), 0);
  Bytes came;
  const auto end = Clock::now() + milliseconds(2500);
  while (Clock::now() < end) {
    pollfd readable{.fd = client, .events = POLLIN, .revents = 0};
    ::poll(&readable, 1, 50);
    Bytes buffer(1000);
    const auto count = read(client, buffer.data(), buffer.size());
    came.insert(came.end(), buffer.begin(), buffer.begin() + std::max<ssize_t>(count, 0));
  }
  close(client);
  EXPECT_EQ(reader_->counters().commands, 2U) << "the line has not asked";
  const auto answer = answer_of(Code::inventory, came);
  ASSERT_EQ(answer.tags.size(), 1U);
  EXPECT_THAT(ByteView(came).subspan(answer.tags.front().epc, answer.tags.front().size),
              testing::ElementsAreArray(kTag));
  EXPECT_EQ(pieces_of(came).frames.size(), 1U) << "what the line asked is the line's";
}

TEST_F(LineTest, NoiseIsSaidWithItsKind) {
  open();
  reader_->field().add({.epc = kTag});
  reader_->faults().set("corrupt-checksum", 0.4);
  ASSERT_TRUE(poll_until_state(State::noisy));
  EXPECT_THAT(events_.state(State::noisy).value().text, HasSubstr("a wrong checksum"));
}

TEST_F(LineTest, WhatComesWhenNobodyAskedDoesNotReachThePlugIn) {
  open();
  poll();
  // Half a minute later, as far as the line can know: its question's time is over.
  ASSERT_TRUE(events_.count() == 0);
  const int client = ::open(line_->terminal().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  std::this_thread::sleep_for(kLatestAnswer + milliseconds(100));
  reader_->field().add({.epc = kTag});
  reader_->faults().set("late", 1);
  // Asked past the line, so that nobody on its other side waits for the answer.
  const int past = ::open(reader_->path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  const auto question = frame_of(FrameType::command, Code::inventory, {});
  ASSERT_GT(write(past, question.data(), question.size()), 0);
  const auto end = Clock::now() + kPatience;
  while (line_->health().dropped_bytes == 0 && Clock::now() < end) {
    std::this_thread::sleep_for(milliseconds(10));
  }
  EXPECT_GT(line_->health().dropped_bytes, 0U);
  Bytes buffer(100);
  EXPECT_LE(read(client, buffer.data(), buffer.size()), 0);
  close(past);
  close(client);
}

TEST_F(LineTest, AFloodEndsForThePlugInAndItsMemoryIsBounded) {
  open();
  poll();
  reader_->faults().set("flood", 1);
  for (int i = 0; i < 20; ++i) {
    EXPECT_THAT(poll(), IsEmpty());
  }
  reader_->faults().clear();
  reader_->field().add({.epc = kTag});
  EXPECT_TRUE(poll_until([this] { return poll() == std::vector<Bytes>{kTag}; }));
}

TEST_F(LineTest, WhatThePlugInLeftUnreadLongAgoIsNotTheAnswerToItsNextQuestion) {
  open();
  driver();  // which drops what waits when it opens its port
  // More than a terminal has at hand for whoever reads, or flushes.
  constexpr std::size_t kTags = 800;
  for (std::size_t i = 0; i < kTags; ++i) {
    Bytes epc(62);
    epc[0] = static_cast<std::uint8_t>(i / 256);
    epc[1] = static_cast<std::uint8_t>(i);
    reader_->field().add({.epc = epc});
  }
  const int client = ::open(line_->terminal().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  const auto question = frame_of(FrameType::command, Code::inventory, {});
  ASSERT_GT(write(client, question.data(), question.size()), 0);
  pollfd readable{.fd = client, .events = POLLIN, .revents = 0};
  ASSERT_EQ(::poll(&readable, 1, 5000), 1);
  reader_->field().clear();
  std::this_thread::sleep_for(milliseconds(1400));
  EXPECT_GT(line_->health().dropped_bytes, kTags * 62);
  EXPECT_THAT(poll(), IsEmpty()) << "the tags had gone a second before";
  close(client);
}

TEST_F(LineTest, RecordsWhatGoesOverTheLine) {
  open();
  reader_->field().add({.epc = kTag});
  poll();
  line_->recorder().note("identifier_new_card");
  const auto has_answer = [this] { return line_->recorder().text().find(" < 7F0222") != std::string::npos; };
  ASSERT_TRUE(poll_until(has_answer)) << "recorded after it was passed on";
  const auto text = line_->recorder().text();
  EXPECT_THAT(text, HasSubstr(" > 7F00220000227E\n"));
  EXPECT_THAT(text, HasSubstr(" < 7F0222"));
  EXPECT_THAT(text, HasSubstr(" identifier_new_card\n"));
}

TEST_F(LineTest, ShowsPiecesToWhoeverLooksOn) {
  open();
  const auto onlooker = line_->look_on();
  EXPECT_FALSE(onlooker->next(milliseconds(1)).has_value());
  poll();
  const auto question = onlooker->next(kPatience);
  const auto answer = onlooker->next(kPatience);
  ASSERT_TRUE(question.has_value() && answer.has_value());
  EXPECT_EQ(question->direction, Direction::to_reader);
  EXPECT_EQ(question->bytes, frame_of(FrameType::command, Code::inventory, {}));
  EXPECT_EQ(answer->direction, Direction::from_reader);
  EXPECT_GE(answer->at, question->at);
}

TEST_F(LineTest, TellsWhatBecameOfEachQuestionOnceTheNextGoesOut) {
  std::mutex mutex;
  std::vector<Exchange> exchanges;
  reader_->field().add({.epc = kTag});
  open({.on_exchange = [&](Exchange exchange) {
    const std::lock_guard lock(mutex);
    exchanges.push_back(std::move(exchange));
  }});
  poll();
  driver().getTransmitPower();
  ASSERT_TRUE(poll_until([&] {
    const std::lock_guard lock(mutex);
    return exchanges.size() >= 2;
  }));
  line_.reset();
  EXPECT_EQ(exchanges[0].code, Code::inventory);
  ASSERT_THAT(exchanges[0].answer.tags, testing::SizeIs(1));
  EXPECT_THAT(exchanges[0].epc_of(exchanges[0].answer.tags[0]), testing::ElementsAreArray(kTag));
  EXPECT_LE(exchanges[0].asked, exchanges[0].last_byte);
  EXPECT_EQ(exchanges[1].code, Code::get_power);
  EXPECT_EQ(exchanges[1].answer.outcome, Outcome::answered);
}

TEST_F(LineTest, ThePortIsRawAndIsNobodysTerminal) {
  open();
  const int fd = ::open(reader_->path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  termios settings{};
  ASSERT_EQ(tcgetattr(fd, &settings), 0);
  EXPECT_EQ(settings.c_lflag & (ISIG | ICANON | ECHO), 0U);
  close(fd);
  const int client = ::open(line_->terminal().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  ASSERT_EQ(tcgetattr(client, &settings), 0);
  EXPECT_EQ(settings.c_lflag & (ISIG | ICANON | ECHO), 0U) << "before anybody has set it up";
  close(client);
}

TEST_F(LineTest, AsksForItselfBetweenThePlugInsPolls) {
  open();
  driver();
  std::atomic<bool> over = false;
  std::thread plug_in([&] {
    while (!over) {
      poll();
    }
  });
  for (int i = 0; i < 50; ++i) {
    const auto answer = line_->ask(Code::get_power);
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(pieces_of(*answer).frames.back().code, Code::get_power);
  }
  over = true;
  plug_in.join();
  EXPECT_EQ(line_->health().bad_polls, 0U);
}

}  // namespace
}  // namespace line::test
