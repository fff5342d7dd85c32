// One pass of the reading loop: what it does in which order, when it wakes the dispatch, and the readings it records.
// Its sleep and its notification are the linker's (--wrap), the time is the test's.
#include <gmock/gmock.h>

#include <future>

#include "fake_clock.h"
#include "fake_module.h"
#include "hex.h"
#include "reading_loop.h"
#include "second_host.h"

using second_host::host;
using std::chrono::milliseconds;
using testing::ElementsAre;

namespace {

std::condition_variable* wakesDispatch = nullptr;  // the one of the test

bool readingsAreLocked() {
  return !std::async(std::launch::async, [] {
            const std::unique_lock lock(cardsReadMutex_, std::try_to_lock);
            return lock.owns_lock();
          }).get();
}

}  // namespace

extern "C" {
int __wrap_usleep(useconds_t microseconds) {
  host().called("usleep " + std::to_string(microseconds));
  return 0;
}
void __real__ZNSt18condition_variable10notify_allEv(std::condition_variable*);
void __wrap__ZNSt18condition_variable10notify_allEv(std::condition_variable* condition) {
  if (condition != wakesDispatch) {
    __real__ZNSt18condition_variable10notify_allEv(condition);
    return;
  }
  host().called(readingsAreLocked() ? "notify under the lock" : "notify");
}
}

namespace {

class ReadingPass : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    host().set("identification_bits", 32);
    fake_clock::freeze();
    setProbeInterval(7);
    tagDetectorEnabled = false;
    tagDetectorValue = 0;
    tagDetectorTagPresentTimeout = 0;
    lastCardsRead_.clear();
    wakesDispatch = &cardsRead;
    answer({});
  }
  void TearDown() override {
    fake_clock::release();
    wakesDispatch = nullptr;
    lastCardsRead_.clear();
    t640_module.reset();
  }

  // The reader's answers from here on: a success with these tags.
  void answer(const std::vector<std::string>& epcs) {
    FakeModule::Inventory inventory(true, {});
    for (const auto& epc : epcs) {
      inventory.second.push_back({200, 0x3000, hex(epc), 0});
    }
    reader.onInventory = [inventory] {
      host().called("inventory");
      return inventory;
    };
  }

  // One pass, and what it called its host for.
  std::vector<std::string> pass() {
    const auto before = host().calls().size();
    readTags(lastSeen, cardsRead);
    const auto calls = host().calls();
    return {calls.begin() + static_cast<std::ptrdiff_t>(before), calls.end()};
  }

  FakeModule& reader = FakeModule::install();
  TimePoint lastSeen;
  std::condition_variable cardsRead;
};

}  // namespace

TEST_F(ReadingPass, KeepsAliveThenSleepsThenAsksForTags) {
  EXPECT_THAT(pass(), ElementsAre("keep_alive uhf", "usleep 7000", "inventory", "notify"));
}

TEST_F(ReadingPass, WakesTheDispatchOnceTheReadingsAreRecordedAndUnlocked) {
  answer({"00 00 00 01", "00 00 00 02"});
  const auto calls = pass();
  EXPECT_EQ(calls.back(), "notify");
  EXPECT_EQ(std::ranges::count(calls, "notify"), 1);
  EXPECT_EQ(lastCardsRead_.size(), 2U);
}

TEST_F(ReadingPass, ThatFailsWakesNobodyAndRecordsNothing) {
  reader.onInventory = [] { return FakeModule::Inventory(false, {{200, 0x3000, hex("00 00 00 01"), 0}}); };
  EXPECT_THAT(pass(), ElementsAre("keep_alive uhf", "usleep 7000"));
  EXPECT_TRUE(lastCardsRead_.empty());
}

TEST_F(ReadingPass, AsksForTheDetectorsStateAfterTheInventory) {
  reader.onInventory = [] {
    tagDetectorEnabled = true;
    return FakeModule::Inventory(true, {});
  };
  pass();
  EXPECT_EQ(host().messages("gpio_set_value").size(), 1U);
}

TEST_F(ReadingPass, DrivesTheRelayBeforeItRecordsTheReadings) {
  tagDetectorEnabled = true;
  answer({"00 00 00 01"});
  EXPECT_THAT(pass(),
              ElementsAre("keep_alive uhf", "usleep 7000", "inventory", "send gpio_set_value",
                          "get_int uhf identification_bits false", "get_param uhf reader_type false", "notify"));
}

TEST_F(ReadingPass, DrivesTheRelayAfterAFailureToo) {
  tagDetectorEnabled = true;
  tagDetectorValue = 1;
  reader.onInventory = [] { return FakeModule::Inventory(false, {}); };
  pass();
  EXPECT_EQ(host().messages("gpio_set_value").size(), 1U);
  EXPECT_EQ(tagDetectorValue, 0);
}

TEST_F(ReadingPass, TheRelaysValueIsStoredOnceItsMessageIsSent) {
  int stored = -1;
  host().on_call([&stored](const std::string& call) {
    if (call == "send gpio_set_value") {
      stored = tagDetectorValue;
    }
  });
  tagDetectorEnabled = true;
  pass();
  EXPECT_EQ(stored, 0);
  EXPECT_EQ(tagDetectorValue, 1);
}

TEST_F(ReadingPass, EachTagHasATimeOfItsOwn) {
  answer({"00 00 00 01", "00 00 00 02", "00 00 00 01"});
  fake_clock::tick_per_reading(milliseconds(1));
  const auto start = fake_clock::now();
  pass();
  EXPECT_EQ(lastCardsRead_, (CardTimes{{1, start + milliseconds(2)}, {2, start + milliseconds(1)}}))
      << "the latest reading of a card counts";
}

TEST_F(ReadingPass, SettingsAreReadForEveryTag) {
  answer({"00 00 00 01", "00 00 00 02"});
  auto calls = pass();
  EXPECT_EQ(std::ranges::count(calls, "get_int uhf identification_bits false"), 2);
  EXPECT_EQ(std::ranges::count(calls, "get_param uhf reader_type false"), 2);
  EXPECT_THAT(host().debug_texts(), ElementsAre("Card Value: 1", "Card Value: 2"));
}

TEST_F(ReadingPass, HoldsTheReadingsWhileItConvertsAllOfThem) {
  answer({"00 00 00 01", "00 00 00 02"});
  std::vector<bool> locked;
  host().on_call([&locked](const std::string& call) {
    if (call.starts_with("get_") || call.starts_with("send")) {
      locked.push_back(readingsAreLocked());
    }
  });
  tagDetectorEnabled = true;
  pass();
  EXPECT_THAT(locked, ElementsAre(false, true, true, true, true)) << "not while the relay's message is sent";
}

TEST_F(ReadingPass, SleepsForTheLongestIntervalInPieces) {
  for (const auto& [interval, sleeps] : std::vector<std::pair<int, std::vector<std::string>>>{
           {0, {"usleep 0"}},
           {-5, {"usleep 0"}},
           {4'294'967, {"usleep 4294967000"}},
           {4'294'968, {"usleep 4294967000", "usleep 1000"}},
           {10'000'000, {"usleep 4294967000", "usleep 4294967000", "usleep 1410066000"}}}) {
    setProbeInterval(interval);
    auto calls = pass();
    std::erase_if(calls, [](const auto& call) { return !call.starts_with("usleep"); });
    EXPECT_EQ(calls, sleeps) << interval;
  }
}

TEST_F(ReadingPass, TheQueuesKeepAliveHasAName) {
  keepAliveWorker();
  EXPECT_THAT(host().calls(), ElementsAre("keep_alive uhf_worker"));
}
