// What the driver makes of each fault that a line can have, on a real pseudo-terminal.
#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

#include "ac/exception.h"
#include "second_host.h"
#include "t640.h"
#include "uhfsim/simulated_reader.h"

using ac::UHF::T640;
using second_host::host;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

using Bytes = std::vector<unsigned char>;
using DebugLines = testing::Matcher<std::vector<std::string>>;

const Bytes kPlain{0x01, 0x02, 0x03, 0x04};
const Bytes kWithEnd{0x01, 0x7E, 0x03, 0x04};  // holds the byte that ends a frame

// Shorter than an answer is late, and longer than a busy machine takes.
constexpr milliseconds kTimeout(500);

// A fault that strikes an inventory's one answer, and what becomes of that inventory.
struct Row {
  std::string fault;
  bool succeeds;
  DebugLines debug_lines;
  Bytes epc = kPlain;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.fault; }

class LineFault : public testing::Test {
 protected:
  void SetUp() override { host().reset(); }

  // The EPCs that a pass reads; nothing when it fails.
  std::vector<Bytes> pass() {
    const auto [succeeded, tags] = driver_.inventoryCard();
    std::vector<Bytes> epcs;
    for (const auto& tag : tags) {
      epcs.push_back(tag.epc);
    }
    EXPECT_EQ(succeeded, !epcs.empty());
    return epcs;
  }

  // Until the reader has said all that it has to say.
  void wait_until_quiet() const {
    for (auto before = reader_.counters().bytes_out;;) {
      std::this_thread::sleep_for(milliseconds(50));
      const auto now = reader_.counters().bytes_out;
      if (now == before) {
        return;
      }
      before = now;
    }
  }

  uhfsim::SimulatedReader reader_{{.seed = 5, .baud = 0}};
  T640 driver_{reader_.path(), kTimeout};
};

// For the names of tests.
std::string identifier(std::string text) {
  std::ranges::replace(text, '-', '_');
  return text;
}

class LineFaultOutcome : public LineFault, public testing::WithParamInterface<Row> {};
class LineFaultByChance : public LineFault, public testing::WithParamInterface<std::string> {};

const auto kDetected = StartsWith("Card detected! EPC: 01 ");

std::vector<Row> rows() {
  return {
      {"silence", false, ElementsAre("No response")},
      {"short-notice", false, ElementsAre("Error parsing data: std::bad_alloc")},
      {"unknown-command", false, ElementsAre("Error parsing data: Unknown Command Type: 85")},
      {"unknown-type", false, ElementsAre(StartsWith("Error parsing data: Unknown Frame Type: "))},
      {"corrupt-checksum", false, IsEmpty()},
      {"junk", false, IsEmpty()},
      {"echo", true, ElementsAre(kDetected)},
      {"flood", false, ElementsAre("No response")},
      {"split", true, ElementsAre(kDetected)},
      {"split-at-end", true, ElementsAre(kDetected)},
      {"split-at-end", false, ElementsAre(StartsWith("Error parsing data: ")), kWithEnd},
  };
}

TEST_P(LineFaultOutcome, HasItsOutcomeAndIsOverWithIt) {
  reader_.field().add({.epc = GetParam().epc});
  reader_.faults().set(GetParam().fault, 1);
  const auto read = pass();
  if (GetParam().succeeds) {
    EXPECT_THAT(read, ElementsAre(GetParam().epc));
  } else {
    EXPECT_THAT(read, IsEmpty());
  }
  EXPECT_THAT(host().debug_texts(), GetParam().debug_lines);
  reader_.faults().clear();
  wait_until_quiet();
  const auto first = pass();
  const auto second = pass();
  EXPECT_TRUE(!first.empty() || !second.empty());
  EXPECT_THAT(pass(), ElementsAre(GetParam().epc));
}

INSTANTIATE_TEST_SUITE_P(Each, LineFaultOutcome, testing::ValuesIn(rows()), [](const auto& instance) {
  return identifier(instance.param.fault + (instance.param.epc == kPlain ? "" : "-inside"));
});

// Whatever place chance has chosen.
TEST_P(LineFaultByChance, NeverGivesACardThatIsNotThereNorOutlastsTheFault) {
  reader_.field().add({.epc = kPlain});
  for (int round = 0; round < 20; ++round) {
    reader_.faults().set(GetParam(), 1);
    for (const auto& epc : pass()) {
      EXPECT_EQ(epc, kPlain);
    }
    reader_.faults().clear();
    const auto first = pass();
    const auto second = pass();
    EXPECT_TRUE(!first.empty() || !second.empty());
  }
}

INSTANTIATE_TEST_SUITE_P(Each, LineFaultByChance,
                         testing::Values("wrong-length", "flip-bit", "drop-byte", "insert-byte", "truncate"),
                         [](const auto& instance) { return identifier(instance.param); });

TEST_F(LineFault, ALateAnswerIsTakenByTheNextPass) {
  reader_.field().add({.epc = kPlain});
  reader_.faults().set("late", 1);
  EXPECT_THAT(pass(), IsEmpty());
  EXPECT_THAT(host().debug_texts(), ElementsAre("No response"));
  reader_.faults().clear();
  wait_until_quiet();
  while (reader_.counters().bytes_out == 0) {
    std::this_thread::sleep_for(milliseconds(10));
  }
  EXPECT_THAT(pass(), testing::Each(kPlain));
}

TEST_F(LineFault, ALineThatHungUpFailsAndIsOpenedAgain) {
  reader_.field().add({.epc = kPlain});
  reader_.faults().set("hang-up", 1);
  EXPECT_THROW(
      for (int i = 0; i < 100; ++i) {
        pass();
        std::this_thread::sleep_for(milliseconds(10));
      },
      ac::ac_exception);
  reader_.faults().clear();
  EXPECT_EQ(reader_.counters().hang_ups, 1U);
  const T640 next(reader_.path(), kTimeout);
  EXPECT_TRUE(next.inventoryCard().first);
}

}  // namespace
