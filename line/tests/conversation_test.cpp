#include "line/conversation.h"

#include <gtest/gtest.h>

#include "line/tests/samples.h"

namespace line::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(LineConversation, WhatNobodyAskedForDoesNotPass) {
  Conversation conversation;
  EXPECT_EQ(conversation.take(kStart, kEmpty), 0U);
}

TEST(LineConversation, AnAnswerPassesUntilTwoSecondsAfterItsQuestion) {
  Conversation conversation;
  conversation.ask(kStart, kPoll);
  EXPECT_EQ(conversation.take(kStart + milliseconds(1999), kEmpty), kEmpty.size());
  EXPECT_EQ(conversation.take(kStart + milliseconds(2001), kEmpty), 0U);
  conversation.ask(kStart + seconds(30), kPoll);
  EXPECT_EQ(conversation.take(kStart + seconds(30), kEmpty), kEmpty.size()) << "asked anew";
}

TEST(LineConversation, AReportHeldBackForHalfAMinuteDoesNotPass) {
  Conversation conversation;
  conversation.ask(kStart, kPoll);
  EXPECT_EQ(conversation.take(kStart + seconds(30), kEmpty), 0U);
}

TEST(LineConversation, AnAnswerIsCutOffAtItsLongest) {
  Conversation conversation;
  conversation.ask(kStart, kPoll);
  EXPECT_EQ(conversation.take(kStart, Bytes(kLongestAnswer - 10)), kLongestAnswer - 10);
  EXPECT_EQ(conversation.take(kStart, Bytes(100)), 10U);
  EXPECT_EQ(conversation.take(kStart, Bytes(1)), 0U);
  const auto cut = conversation.settle(kStart);
  ASSERT_TRUE(cut.has_value());
  EXPECT_EQ(cut->answer.outcome, Outcome::endless);
  EXPECT_EQ(cut->bytes.size(), kLongestAnswer);
}

TEST(LineConversation, AnAnswerThatGoesOnBeyondItsTimeIsEndless) {
  Conversation conversation;
  conversation.ask(kStart, kPoll);
  for (int i = 0; i <= 20; ++i) {
    EXPECT_EQ(conversation.take(kStart + milliseconds(i * 100), Bytes{1}), 1U);
  }
  EXPECT_EQ(conversation.take(kStart + milliseconds(2050), Bytes{1}), 0U);
  EXPECT_EQ(conversation.settle(kStart + milliseconds(2050)).value().answer.outcome, Outcome::endless);
}

TEST(LineConversation, TheNextQuestionEndsTheAnswerBefore) {
  Conversation conversation;
  EXPECT_FALSE(conversation.ask(kStart, kPoll).has_value());
  conversation.take(kStart + milliseconds(5), Bytes(kEmpty.begin(), kEmpty.begin() + 3));
  conversation.take(kStart + milliseconds(6), Bytes(kEmpty.begin() + 3, kEmpty.end()));
  const auto exchange = conversation.ask(kStart + milliseconds(20), kPoll).value();
  EXPECT_EQ(exchange.question, kPoll);
  EXPECT_EQ(exchange.code, Code::inventory);
  EXPECT_EQ(exchange.bytes, kEmpty);
  EXPECT_EQ(exchange.answer.outcome, Outcome::empty);
  EXPECT_EQ(exchange.asked, kStart);
  EXPECT_EQ(exchange.last_byte, kStart + milliseconds(6));
  EXPECT_EQ(conversation.ask(kStart + milliseconds(40), kPoll).value().answer.outcome, Outcome::silence);
}

TEST(LineConversation, AQuestionThatIsTheLastIsSettledOnceWhenTheLineIsQuiet) {
  Conversation conversation;
  conversation.ask(kStart, kPoll);
  conversation.take(kStart, kEmpty);
  EXPECT_FALSE(conversation.settle(kStart + milliseconds(199)).has_value());
  EXPECT_EQ(conversation.settle(kStart + milliseconds(200)).value().answer.outcome, Outcome::empty);
  EXPECT_FALSE(conversation.settle(kStart + milliseconds(300)).has_value());
  EXPECT_EQ(conversation.take(kStart + milliseconds(400), kEmpty), kEmpty.size()) << "late, but in time";
  EXPECT_FALSE(conversation.ask(kStart + milliseconds(500), kPoll).has_value()) << "it was said already";
}

TEST(LineConversation, SilenceIsSettledWhenTheTimeIsOver) {
  Conversation conversation;
  conversation.ask(kStart, kPoll);
  EXPECT_FALSE(conversation.settle(kStart + seconds(2)).has_value());
  EXPECT_EQ(conversation.settle(kStart + milliseconds(2001)).value().answer.outcome, Outcome::silence);
}

TEST(LineConversation, TheLastQuestionIsEndedWithWhatCameForIt) {
  Conversation conversation;
  EXPECT_FALSE(conversation.end().has_value());
  conversation.ask(kStart, kPoll);
  conversation.take(kStart, kEmpty);
  EXPECT_EQ(conversation.end().value().answer.outcome, Outcome::empty);
  EXPECT_EQ(conversation.take(kStart, kEmpty), 0U) << "nothing is asked any more";
}

TEST(LineConversation, AnAnswerMaySeemWholeWhenMoreFollowsAFramesLastByte) {
  Conversation conversation;
  for (const auto& [first, seems] : {std::pair(kEmpty.size(), true), {kEmpty.size() - 1, false}}) {
    Bytes two = kEmpty;
    two.insert(two.end(), kEmpty.begin(), kEmpty.end());
    conversation.ask(kStart, kPoll);
    conversation.take(kStart, ByteView(two).first(first));
    conversation.take(kStart, ByteView(two).subspan(first));
    EXPECT_EQ(conversation.end().value().may_have_seemed_whole, seems) << "in two pieces, the first of " << first;
  }
  conversation.ask(kStart, kPoll);
  conversation.take(kStart, kEmpty);
  EXPECT_FALSE(conversation.end().value().may_have_seemed_whole) << "nothing followed";
}

TEST(LineConversation, AQuestionInTwoPartsIsOne) {
  Conversation conversation;
  conversation.ask(kStart, Bytes(kPoll.begin(), kPoll.begin() + 4));
  EXPECT_FALSE(conversation.ask(kStart, Bytes(kPoll.begin() + 4, kPoll.end())).has_value());
  conversation.take(kStart, kEmpty);
  const auto exchange = conversation.ask(kStart + milliseconds(10), kPoll).value();
  EXPECT_EQ(exchange.code, Code::inventory);
  EXPECT_EQ(exchange.question, kPoll);
}

TEST(LineConversation, IsQuietWhenNothingWasAskedOrNothingComesAnyMore) {
  Conversation conversation;
  EXPECT_TRUE(conversation.is_quiet(kStart));
  conversation.ask(kStart, kPoll);
  EXPECT_FALSE(conversation.is_quiet(kStart + milliseconds(199)));
  EXPECT_TRUE(conversation.is_quiet(kStart + milliseconds(200)));
}

}  // namespace
}  // namespace line::test
