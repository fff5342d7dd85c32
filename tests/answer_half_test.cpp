// The half of an answer that the driver uses, and the model's opinion of it.
#include <random>

#include "door/why/answer.h"
#include "t640_fixture.h"

using achost::why::AnswerFrame;
using namespace t640_test;

using AnswerHalfOfDriver = T640Test;

TEST_F(AnswerHalfOfDriver, IsTheOneOfTheModel) {
  std::mt19937 random(1);
  const auto echo = INVENTORY;
  for (int i = 0; i < 500; ++i) {
    Bytes answer;
    std::vector<AnswerFrame> frames(random() % 10 + 1);
    for (std::size_t place = 0; place < frames.size(); ++place) {
      frames[place] = random() % 12 == 0 ? AnswerFrame::kOther : AnswerFrame::kReport;
      const auto other = random() % 2 == 0 ? CRC_ERROR : echo;
      answer = answer + (frames[place] == AnswerFrame::kReport ? notice(static_cast<unsigned char>(place)) : other);
    }
    const auto first = achost::why::first_used(frames);
    Bytes expected(frames.size() - first);
    std::iota(expected.rbegin(), expected.rend(), static_cast<unsigned char>(first));
    const auto [succeeded, tags] = inventory(answer);
    ASSERT_EQ(succeeded, first < frames.size()) << i;
    if (succeeded) {
      ASSERT_EQ(tags, expected) << i;
    }
  }
}
