// The line in somebody else's hands.
#include <sys/socket.h>

#include <atomic>
#include <future>
#include <thread>

#include "line/tests/line_fixture.h"

namespace line::test {
namespace {

using testing::IsEmpty;

class LineLending : public LineTest {
 protected:
  void SetUp() override {
    open();
    ASSERT_TRUE(driver().setWorkArea(ac::UHF::Region::EUROPE));
    ASSERT_TRUE(driver().setTransmitPower(1750));
    reader_->field().add({.epc = kTag});
    polling_ = std::thread([this] {
      while (!over_) {
        last_poll_found_ = !poll().empty();
        ++polls_;
      }
    });
  }

  void TearDown() override {
    over_ = true;
    polling_.join();
  }

  // Borrow on a thread of its own; the other end of the socket is the borrower's.
  int borrow(const std::string& who) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    returned_ = std::async(std::launch::async, [this, end = ends[0], who] { return line_->lend(end, who); });
    return ends[1];
  }

  bool wait_until(const std::function<bool()>& condition) const {
    const auto end = Clock::now() + kPatience;
    while (!condition() && Clock::now() < end) {
      std::this_thread::sleep_for(milliseconds(2));
    }
    return condition();
  }

  // The answer to a question of the borrower's.
  static Bytes ask(int socket, const Bytes& question) {
    EXPECT_EQ(send(socket, question.data(), question.size(), MSG_NOSIGNAL), static_cast<ssize_t>(question.size()));
    Bytes answer(100);
    const auto count = recv(socket, answer.data(), answer.size(), 0);
    answer.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return answer;
  }

  static Bytes power_frame(std::uint16_t power) {
    return frame_of(FrameType::command, Code::set_power,
                    Bytes{static_cast<std::uint8_t>(power / 256), static_cast<std::uint8_t>(power)});
  }

  bool is_lent() const { return line_->health().state == State::lent; }

  std::atomic<bool> over_ = false;
  std::atomic<bool> last_poll_found_ = false;
  std::atomic<int> polls_ = 0;
  std::future<bool> returned_;
  std::thread polling_;
};

TEST_F(LineLending, TheBorrowerHasTheReaderAndThePlugInAnEmptyField) {
  const int socket = borrow("uhfctl survey");
  ASSERT_TRUE(wait_until([this] { return is_lent(); }));
  EXPECT_EQ(line_->health().cause, "lent to uhfctl survey");
  EXPECT_FALSE(ask(socket, power_frame(2000)).empty());
  EXPECT_EQ(reader_->state().power, 2000);
  const int before = polls_;
  ASSERT_TRUE(wait_until([&] { return polls_ > before + 20; })) << "its polls are answered";
  EXPECT_FALSE(last_poll_found_);
  EXPECT_FALSE(ask(socket, frame_of(FrameType::command, Code::inventory, {})).empty());
  close(socket);
  ASSERT_TRUE(returned_.get());
  EXPECT_EQ(reader_->state().power, 1750) << "given back before the borrowing was over";
  ASSERT_TRUE(wait_until([this] { return last_poll_found_.load(); }));
  EXPECT_TRUE(wait_until([this] { return line_->health().state == State::answering; })) << events_.texts();
}

TEST_F(LineLending, WhatThePlugInSetsMeanwhileTheReaderGetsAfterwards) {
  const int socket = borrow("uhfctl power");
  ASSERT_TRUE(wait_until([this] { return is_lent(); }));
  over_ = true;
  polling_.join();
  EXPECT_TRUE(driver().setTransmitPower(2200));
  EXPECT_EQ(driver().getTransmitPower(), std::pair(true, static_cast<unsigned short>(2200)));
  EXPECT_EQ(reader_->state().power, 1750);
  close(socket);
  ASSERT_TRUE(returned_.get());
  EXPECT_EQ(reader_->state().power, 2200);
  over_ = false;
  polling_ = std::thread([] {});
}

TEST_F(LineLending, OneHasItAtATime) {
  const int first = borrow("one");
  ASSERT_TRUE(wait_until([this] { return is_lent(); }));
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  EXPECT_FALSE(line_->lend(ends[0], "two"));
  EXPECT_EQ(line_->ask(Code::get_power), std::nullopt);
  close(first);
  EXPECT_TRUE(returned_.get());
  close(ends[1]);
}

TEST_F(LineLending, ItCanBeTakenBack) {
  const int socket = borrow("one");
  ASSERT_TRUE(wait_until([this] { return is_lent(); }));
  line_->take_back();
  EXPECT_TRUE(returned_.get());
  char byte = 0;
  EXPECT_EQ(recv(socket, &byte, 1, 0), 0) << "the borrower is told by the end of the connection";
  close(socket);
}

TEST_F(LineLending, AReaderThatGoesEndsIt) {
  const int socket = borrow("one");
  ASSERT_TRUE(wait_until([this] { return is_lent(); }));
  pull_out();
  EXPECT_TRUE(returned_.get());
  close(socket);
}

TEST_F(LineLending, WhoGoesInTheMiddleOfAnythingLeavesThePlugInsSettings) {
  for (int i = 0; i < 20; ++i) {
    const int socket = borrow("uhfctl power");
    ASSERT_TRUE(wait_until([this] { return is_lent(); }));
    const auto question = power_frame(static_cast<std::uint16_t>(2000 + i));
    const auto part = static_cast<std::size_t>(i) % (question.size() + 1);
    send(socket, question.data(), part, MSG_NOSIGNAL);
    close(socket);
    ASSERT_TRUE(returned_.get());
    ASSERT_EQ(reader_->state().power, 1750) << i;
  }
}

}  // namespace
}  // namespace line::test
