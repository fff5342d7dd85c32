#include "line/field.h"

#include <gmock/gmock.h>

#include "line/tests/samples.h"

namespace line::test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr milliseconds kWindow(1000);
const Bytes kOne{0xE2, 0x80};
const Bytes kTwo{0xE2, 0x81};

// RSSI, PC, EPC, CRC.
Bytes report_of(const Bytes& epc, std::uint8_t rssi) {
  Bytes parameters{rssi, 0x08, 0x00};
  parameters.insert(parameters.end(), epc.begin(), epc.end());
  parameters.insert(parameters.end(), {0, 0});
  return frame_of(FrameType::notice, Code::inventory, parameters);
}

class LineField : public testing::Test {
 protected:
  void to_reader(const Bytes& bytes, milliseconds after) { put(Direction::to_reader, bytes, after); }
  void from_reader(const Bytes& bytes, milliseconds after) { put(Direction::from_reader, bytes, after); }
  void poll(milliseconds at, const Bytes& answer = kEmpty) {
    to_reader(kPoll, at);
    from_reader(answer, at + milliseconds(5));
  }
  std::vector<Bytes> epcs(milliseconds at) {
    std::vector<Bytes> list;
    for (const auto& seen : field_.seen(kStart + at)) {
      list.push_back(seen.epc);
    }
    return list;
  }

  Field field_{kWindow};

 private:
  void put(Direction direction, const Bytes& bytes, milliseconds after) {
    field_.take({.at = kStart + after, .direction = direction, .bytes = bytes});
  }
};

TEST_F(LineField, ATagIsSeenOnceItsReportIsWhole) {
  const Bytes report = report_of(kOne, 200);
  to_reader(kPoll, milliseconds(0));
  from_reader(Bytes(report.begin(), report.begin() + 4), milliseconds(1));
  EXPECT_THAT(epcs(milliseconds(1)), IsEmpty());
  from_reader(Bytes(report.begin() + 4, report.end()), milliseconds(2));
  EXPECT_THAT(epcs(milliseconds(2)), ElementsAre(kOne));
  EXPECT_EQ(field_.seen(kStart + milliseconds(2)).front().rssi, 200);
  EXPECT_EQ(field_.polls(kStart + milliseconds(2)), 1);
}

TEST_F(LineField, TheShareIsThatOfThePollsInTheWindow) {
  poll(milliseconds(0), report_of(kOne, 200));
  poll(milliseconds(100));
  poll(milliseconds(200), report_of(kOne, 190));
  poll(milliseconds(300));
  to_reader(kPoll, milliseconds(400));
  const auto seen = field_.seen(kStart + milliseconds(400));
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen.front().polls, 2);
  EXPECT_EQ(seen.front().rssi, 190) << "the latest";
  EXPECT_EQ(seen.front().last, kStart + milliseconds(205));
  EXPECT_EQ(field_.polls(kStart + milliseconds(400)), 4) << "nobody knows yet what becomes of the fifth";
  EXPECT_EQ(field_.polls(kStart + milliseconds(1150)), 2);
}

TEST_F(LineField, ATagThatIsReadNoMoreGoesAfterTheWindow) {
  poll(milliseconds(0), report_of(kOne, 200));
  poll(milliseconds(500), report_of(kTwo, 200));
  EXPECT_THAT(epcs(milliseconds(1000)), ElementsAre(kOne, kTwo));
  EXPECT_THAT(epcs(milliseconds(1001)), ElementsAre(kTwo));
}

TEST_F(LineField, ATagCountsOnceAPoll) {
  Bytes twice = report_of(kOne, 200);
  twice.insert(twice.end(), twice.begin(), twice.end());
  poll(milliseconds(0), twice);
  EXPECT_EQ(field_.seen(kStart).front().polls, 1);
}

TEST_F(LineField, OtherQuestionsAreNoPolls) {
  to_reader(frame_of(FrameType::command, Code::get_power, {}), milliseconds(0));
  from_reader(report_of(kOne, 200), milliseconds(1));
  poll(milliseconds(10));
  to_reader(frame_of(FrameType::command, Code::get_power, {}), milliseconds(20));
  EXPECT_THAT(epcs(milliseconds(30)), IsEmpty());
  EXPECT_EQ(field_.polls(kStart + milliseconds(30)), 1);
}

}  // namespace
}  // namespace line::test
