#include "line/radio_memory.h"

#include <gmock/gmock.h>

namespace line::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Bytes command(Code code, const Bytes& parameters) { return frame_of(FrameType::command, code, parameters); }
Bytes response(Code code, const Bytes& parameters) { return frame_of(FrameType::response, code, parameters); }

class LineRadioMemory : public testing::Test {
 protected:
  void exchange(Code code, const Bytes& parameters, const Bytes& answer) {
    const Bytes question = command(code, parameters);
    memory_.saw({.question = question,
                 .code = code,
                 .bytes = answer,
                 .answer = answer_of(code, answer),
                 .asked = {},
                 .last_byte = {}});
  }

  std::optional<Bytes> answer_to(const Bytes& question) const {
    return memory_.answer_to(pieces_of(question).frames.front());
  }

  RadioMemory memory_;
};

TEST_F(LineRadioMemory, GivesBackWhatWasSetInTheOrderOfASetUp) {
  EXPECT_THAT(memory_.commands(), IsEmpty());
  exchange(Code::set_sensitivity, {2, 6, 0, 160}, response(Code::set_sensitivity, {0}));
  exchange(Code::set_channels, {0}, response(Code::set_channels, {0}));
  exchange(Code::set_channels, {2, 1, 3}, response(Code::set_channels, {0}));
  exchange(Code::set_power, {0x0A, 0x28}, response(Code::set_power, {0}));
  exchange(Code::set_region, {3}, response(Code::set_region, {0}));
  EXPECT_THAT(memory_.commands(), ElementsAre(command(Code::set_region, {3}), command(Code::set_power, {0x0A, 0x28}),
                                              command(Code::set_channels, {0}), command(Code::set_channels, {2, 1, 3}),
                                              command(Code::set_sensitivity, {2, 6, 0, 160})));
  EXPECT_EQ(memory_.power(), 2600);
}

TEST_F(LineRadioMemory, ASettingWithoutAnAnswerHasNotHappened) {
  exchange(Code::set_power, {0x0A, 0x28}, response(Code::set_power, {0}));
  exchange(Code::set_power, {0x07, 0xD0}, {});
  exchange(Code::set_region, {3}, {0x7F, 0x01});
  EXPECT_THAT(memory_.commands(), ElementsAre(command(Code::set_power, {0x0A, 0x28})));
}

TEST_F(LineRadioMemory, APowerThatWasReadAndLeftIsWhatTheReaderShallHave) {
  exchange(Code::get_power, {}, response(Code::get_power, {0x0A, 0x28}));
  EXPECT_THAT(memory_.commands(), ElementsAre(command(Code::set_power, {0x0A, 0x28})));
  exchange(Code::get_power, {}, response(Code::failure, {1}));
  EXPECT_EQ(memory_.power(), 2600) << "a failure tells no power";
}

TEST_F(LineRadioMemory, AnswersForAReaderWithAnEmptyField) {
  EXPECT_EQ(answer_to(command(Code::inventory, {})), response(Code::failure, {0x17}));
  EXPECT_EQ(answer_to(command(Code::set_power, {1, 2})), response(Code::set_power, {0}));
  EXPECT_EQ(answer_to(command(Code::get_power, {})), std::nullopt) << "nobody knows";
  memory_.will_set(pieces_of(command(Code::set_power, {1, 2})).frames.front());
  memory_.will_set(pieces_of(command(Code::set_sensitivity, {2, 6, 0, 160})).frames.front());
  EXPECT_EQ(answer_to(command(Code::get_power, {})), response(Code::get_power, {1, 2}));
  EXPECT_EQ(answer_to(command(Code::get_sensitivity, {})), response(Code::get_sensitivity, {2, 6, 0, 160}));
}

}  // namespace
}  // namespace line::test
