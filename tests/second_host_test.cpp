// The built uhf.so, loaded unchanged by a host that is not the reference host, on a simulated reader.
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "ac/exception.h"
#include "ac/plugin.h"
#include "globals.h"
#include "loaded_plugin.h"
#include "second_host.h"
#include "uhfsim/simulated_reader.h"

using second_host::entry;
using second_host::global;
using second_host::host;
using second_host::InitEntry;
using second_host::RunEntry;

namespace {

class SecondHost : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    host().set("trig_gpio", 5);
    host().set("watchdog_timeout", 20);
    host().set("serial_port_path", reader.path());
    host().set("serial_port_timeout", 1000);
    host().set("region", "EUROPE");
    host().set("transmit_power", 2000);
    host().set("work_channel", "0-14");
    host().set("identification_bits", 32);
    host().set("probe_interval", 1);
    host().set("read_interval", 3'600'000);
    host().set("read_interval_diff_tags", 0);
  }

  uhfsim::SimulatedReader reader{uhfsim::Options{.seed = 1, .baud = 0}};
  ac::Plugin record;
  std::string error;
};

}  // namespace

TEST_F(SecondHost, FindsEveryGlobalWithItsType) {
  EXPECT_EQ(global<int>("probeInterval"), 10);
  for (const auto* name :
       {"trigAntiesmagGPIO", "watchdogTimeout", "tagDetectorTagPresentTimeout", "tagDetectorRelayGPIO"}) {
    EXPECT_EQ(global<int>(name), 0) << name;
  }
  EXPECT_FALSE(global<std::atomic<bool>>("tagDetectorEnabled"));
  for (const auto* name : {"tagDetectorValue", "uhf_operation_mode_", "trigger_idle_"}) {
    EXPECT_EQ(global<std::atomic<int>>(name), 0) << name;
  }
  for (const auto* name : {"trigger_timeout_", "same_tag_timeout_", "different_tag_timeout_"}) {
    EXPECT_EQ(global<std::atomic<std::int64_t>>(name), 0) << name;
  }
  EXPECT_EQ(global<TimePoint>("lastTriggerTimePoint"), TimePoint());
  for (const auto* name : {"lastTriggerTimePointMutex", "cardsReadMutex_", "db_create_mutex"}) {
    const std::lock_guard lock(global<std::mutex>(name));
  }
  EXPECT_TRUE(global<CardTimes>("lastCardsRead_").empty());
  EXPECT_TRUE(global<CardTimes>("lastCardsSent_").empty());
  EXPECT_EQ(global<std::unique_ptr<ac::UHF::UHFModule>>("t640_module"), nullptr);
  global<ac::MessageEnqueuer>("enqueuer").listen(nullptr, 0);
}

TEST_F(SecondHost, GetsTheReasonOfAFailedStart) {
  host().set("serial_port_path", "/dev/no such device");
  EXPECT_FALSE(entry<InitEntry>("init")(&record, &error));
  EXPECT_EQ(error, "Error opening Serial Port: No such file or directory");
}

TEST_F(SecondHost, CatchesThePluginsExceptionsByTheirType) {
  ASSERT_TRUE(entry<InitEntry>("init")(&record, &error)) << error;
  auto& module = global<std::unique_ptr<ac::UHF::UHFModule>>("t640_module");
  EXPECT_THROW(module->setWorkArea(static_cast<ac::UHF::Region>(6)), ac::ac_exception);
}

TEST_F(SecondHost, MayApplyTheChannelsByItself) {
  ASSERT_TRUE(entry<InitEntry>("init")(&record, &error)) << error;
  host().set("work_channel", "3-5");
  entry<void (*)()>("_Z14setWorkChannelv")();
  EXPECT_THAT(reader.state().channels, testing::ElementsAre(3, 4, 5));
}

// Last: the threads that it starts go on to the end of the process.
TEST_F(SecondHost, SetsTheReaderUpAndHearsOfItsTags) {
  static uhfsim::SimulatedReader lasting(uhfsim::Options{.seed = 1, .baud = 0});
  host().set("serial_port_path", lasting.path());
  ASSERT_TRUE(entry<InitEntry>("init")(&record, &error)) << error;
  EXPECT_EQ(lasting.state().power, 2000);
  EXPECT_EQ(lasting.state().region, 3);
  EXPECT_EQ(lasting.state().channels.size(), 15U);
  EXPECT_EQ(host().get("uhf", "work_channel_enable"), "0-14");

  lasting.field().add({.epc = {0xE2, 0x00, 0x12, 0x34, 0x56, 0x78}});
  std::thread(entry<RunEntry>("run")).detach();
  ASSERT_TRUE(host().wait_until([] { return !host().messages("identifier_new_card").empty(); }));
  EXPECT_EQ(host().messages("identifier_new_card")[0].fields.at(1),
            (std::pair<std::string, second_host::Value>("value", std::int64_t{0x12345678})));
  EXPECT_TRUE(host().wait_until([] {
    return host().keep_alives("uhf") > 3 && host().keep_alives("uhf_worker") > 3 &&
           host().keep_alives("uhf_write_threads") > 3;
  }));
}
