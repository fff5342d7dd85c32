// The plug-in's main function with its threads. The reader is a fake; the loop is left by an inventory that throws, as
// it is when the serial line fails.
#include "reading_loop.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "ac/exception.h"
#include "fake_module.h"
#include "hex.h"
#include "second_host.h"
#include "settings.h"

using second_host::host;

namespace {

thread_local bool onLoop = false;  // whether this thread has called run()

}  // namespace

// The linker sends every start of a thread here (--wrap), and those of the other name to the library.
extern "C" {
void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(void*, void*, void*);
void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(void* thread,
                                                                                                  void* state,
                                                                                                  void* depend) {
  if (onLoop) {
    host().called("thread");
  }
  __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(thread, state, depend);
}
}

namespace {

// What the fake reader does from here on; shared with the loops of all tests.
std::atomic<bool> fail;

// The dispatch threads do not stop either, and each takes the announced cards for its own: a test leaves none that
// runs.
std::atomic<bool> parking;
std::atomic<int> started;
std::atomic<int> parked;

void park(const std::string& name) {
  if (parking && name == "uhf_write_threads") {
    ++parked;
    for (;;) {
      pause();
    }
  }
}

class Run : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    host().set("probe_interval", 1);
    host().set("identification_bits", 32);
    host().set("read_interval", 3'600'000);
    uhf_operation_mode_ = CONTINUOUS;
    same_tag_timeout_ = 3'600'000;
    different_tag_timeout_ = 0;
    tagDetectorEnabled = false;
    tagDetectorValue = 0;
    tagDetectorTagPresentTimeout = 0;
    watchdogTimeout = 5;
    fail = false;
    parking = false;
    host().on_keep_alive(park);
  }
  void TearDown() override {
    parking = true;
    EXPECT_TRUE(host().wait_until([] { return parked == started; }));
  }

  // Starts run() with a reader that answers so; the text of the exception that run() ends with.
  std::future<std::string> start(std::function<FakeModule::Inventory()> inventory) {
    reader.onInventory = [inventory] {
      if (fail) {
        throw ac::ac_exception("Error while reading from serial port: Unknown error -1", true);
      }
      return inventory();
    };
    ++started;
    return std::async(std::launch::async, []() -> std::string {
      onLoop = true;
      try {
        run();
      } catch (const ac::ac_exception& error) {
        return error.what();
      }
      return "run() returned";
    });
  }

  static ac::UHF::InventoryCardInfo tag(const std::string& epc) { return {200, 0x3000, hex(epc), 0}; }

  FakeModule& reader = FakeModule::install();
};

}  // namespace

TEST_F(Run, AnnouncesEveryTagOfTheField) {
  auto loop = start([] { return FakeModule::Inventory(true, {tag("00 00 00 01"), tag("00 00 00 02")}); });
  EXPECT_TRUE(host().wait_until([] { return host().messages("identifier_new_card").size() == 2; }));
  fail = true;
  loop.get();
}

TEST_F(Run, KeepsItsThreeNamesAlive) {
  auto loop = start([] { return FakeModule::Inventory(false, {}); });
  EXPECT_TRUE(host().wait_until([] {
    return host().keep_alives("uhf") > 2 && host().keep_alives("uhf_worker") > 2 &&
           host().keep_alives("uhf_write_threads") > 2;
  }));
  fail = true;
  loop.get();
}

TEST_F(Run, StartsTheQueueOnAThreadNamedForIt) {
  auto loop = start([] { return FakeModule::Inventory(false, {}); });
  EXPECT_TRUE(host().wait_until([] {
    const auto calls = host().calls();
    return std::ranges::count(calls, "set_thread_name uhf_watchdog true") == 1 &&
           std::ranges::count(calls, "process 5") >= 1 &&
           std::ranges::count(calls, "get_int uhf probe_interval false") == 1 && getProbeInterval() == 1;
  })) << "the queue is processed again and again, each time for the watchdog's time-out";
  fail = true;
  loop.get();
}

TEST_F(Run, StartsTheQueueThenReadsItsIntervalThenStartsTheDispatch) {
  auto loop = start([] { return FakeModule::Inventory(false, {}); });
  EXPECT_TRUE(host().wait_until([] { return host().keep_alives("uhf") > 0; }));
  fail = true;
  loop.get();
  auto calls = host().calls();
  std::erase_if(calls, [](const auto& call) { return call != "thread" && call != "get_int uhf probe_interval false"; });
  EXPECT_THAT(calls, testing::ElementsAre("thread", "get_int uhf probe_interval false", "thread"));
}

TEST_F(Run, AFailedInventoryDropsItsTags) {
  auto loop = start([] { return FakeModule::Inventory(false, {tag("00 00 00 03")}); });
  EXPECT_TRUE(host().wait_until([] { return host().keep_alives("uhf") > 5; }));
  fail = true;
  loop.get();
  EXPECT_TRUE(host().messages("identifier_new_card").empty());
  EXPECT_THAT(host().calls(), testing::Not(testing::Contains("get_int uhf identification_bits false")));
}

TEST_F(Run, DrivesTheRelayOnlyWhenTheDetectorIsOn) {
  std::atomic<bool> present = true;
  auto loop = start([&] { return FakeModule::Inventory(present, {}); });
  EXPECT_TRUE(host().wait_until([] { return host().keep_alives("uhf") > 5; }));
  EXPECT_TRUE(host().messages("gpio_set_value").empty());
  tagDetectorEnabled = true;
  EXPECT_TRUE(host().wait_until([] { return host().messages("gpio_set_value").size() == 1; }));
  present = false;
  EXPECT_TRUE(host().wait_until([] { return host().messages("gpio_set_value").size() == 2; }));
  fail = true;
  loop.get();
}

TEST_F(Run, ASerialFailureLeavesItWithTheReadersMutexFree) {
  auto loop = start([] { return FakeModule::Inventory(false, {}); });
  fail = true;
  EXPECT_EQ(loop.get(), "Error while reading from serial port: Unknown error -1");
  EXPECT_TRUE(t640_module->getTransmitPower().first) << "another operation is possible";
}

TEST_F(Run, SleepsForItsIntervalBeforeEachInventory) {
  host().set("probe_interval", 50);
  std::atomic<int> inventories = 0;
  const auto before = std::chrono::steady_clock::now();
  auto loop = start([&] {
    ++inventories;
    return FakeModule::Inventory(false, {});
  });
  EXPECT_TRUE(host().wait_until([&] { return inventories >= 3; }));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(3 * 50));
  fail = true;
  loop.get();
}

TEST_F(Run, TakesANegativeIntervalForNone) {
  host().set("probe_interval", -1);
  auto loop = start([] { return FakeModule::Inventory(false, {}); });
  EXPECT_TRUE(host().wait_until([] { return host().keep_alives("uhf") > 5; }));
  fail = true;
  loop.get();
}

TEST_F(Run, TakesAChangedIntervalAtOnce) {
  auto loop = start([] { return FakeModule::Inventory(false, {}); });
  ASSERT_TRUE(host().wait_until([] { return host().keep_alives("uhf") > 1; }));
  for (const int interval : {0, 2, 1}) {
    setProbeInterval(interval);
    const auto passes = host().keep_alives("uhf");
    EXPECT_TRUE(host().wait_until([passes] { return host().keep_alives("uhf") > passes + 2; })) << interval;
  }
  fail = true;
  loop.get();
}

TEST_F(Run, EachSuccessfulInventoryWakesTheDispatch) {
  watchdogTimeout = 0;  // a keep-alive each round
  std::promise<void> released;
  auto release = released.get_future().share();
  std::atomic<bool> inventorying = false;
  auto loop = start([release, &inventorying] {
    inventorying = true;
    release.wait();
    return FakeModule::Inventory(true, {tag("00 00 00 05")});
  });
  // Not before: the reading loop would sleep for an hour too.
  ASSERT_TRUE(host().wait_until([&] { return inventorying && host().keep_alives("uhf_write_threads") > 0; }));
  setProbeInterval(3'600'000);
  // The dispatch now goes to sleep for an hour: that is when its rounds stop.
  for (std::size_t rounds = 0; rounds != host().keep_alives("uhf_write_threads");) {
    rounds = host().keep_alives("uhf_write_threads");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  setProbeInterval(1);  // of the reading loop's next pass
  released.set_value();
  EXPECT_TRUE(host().wait_until([] { return host().messages("identifier_new_card").size() == 1; }));
  fail = true;
  loop.get();
}
