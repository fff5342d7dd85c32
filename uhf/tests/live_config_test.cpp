// Settings that change while the plug-in runs: what is read afresh, written back and applied.
#include "live_config.h"

#include <gmock/gmock.h>

#include "fake_module.h"
#include "globals.h"
#include "message_handling.h"
#include "settings.h"

using second_host::Fields;
using second_host::host;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class LiveConfig : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    uhf_operation_mode_ = CONTINUOUS;
    trigger_idle_ = 0;
    trigger_timeout_ = 0;
    same_tag_timeout_ = 0;
    different_tag_timeout_ = 0;
    tagDetectorEnabled = false;
    setProbeInterval(10);
  }

  // Stores the value, tells the plug-in of the change, and returns what it then called its host for.
  static std::vector<std::string> change(const std::string& key, const std::string& value) {
    host().set(key, value);
    const auto before = host().calls().size();
    EXPECT_EQ(announce({{"module", "uhf"}, {"param", key}, {"value", "unlike the stored"}, {"previous_value", "x"}}),
              "");
    auto calls = host().calls();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before) + 1);  // with the audit's clock
    return calls;
  }

  // The text of the exception, if any.
  static std::string announce(const Fields& fields) {
    return handle(configParamSetCallback, "config_param_set", fields).failure;
  }

  FakeModule& reader = FakeModule::install();
};

}  // namespace

TEST_F(LiveConfig, RadioSettingsAreAppliedToTheReader) {
  host().set("transmit_power", 1800);
  host().set("work_channel", "3-5");
  change("transmit_power", "1800");
  EXPECT_THAT(reader.asked, ElementsAre("getTransmitPower", "setTransmitPower 1800"));
  reader.asked.clear();
  change("work_channel", "3-5");
  EXPECT_THAT(reader.asked, ElementsAre("setWorkChannel 3 4 5"));
  reader.asked.clear();
  change("region", "korea");
  EXPECT_THAT(reader.asked, ElementsAre("setWorkArea 5"));
  EXPECT_EQ(host().get("uhf", "work_channel_enable"), "0-51");
}

TEST_F(LiveConfig, ARadioThatRefusesIsTheHandlersFailure) {
  reader.answers = false;
  host().set("region", "KOREA");
  EXPECT_EQ(announce({{"module", "uhf"}, {"param", "region"}, {"value", "KOREA"}}), "Could no set Work Area");
  EXPECT_EQ(host().audit_records().size(), 1U) << "the record comes first";
}

TEST_F(LiveConfig, ReadIntervalIsAtLeast250) {
  for (const auto& [stored, applied] : std::vector<std::pair<int, int>>{{-5, 250}, {100, 250}, {249, 250}}) {
    EXPECT_THAT(change("read_interval", std::to_string(stored)),
                ElementsAre("get_int uhf read_interval false", "set_int 250 uhf read_interval false",
                            "get_int uhf read_interval false"));
    EXPECT_EQ(same_tag_timeout_, applied);
    EXPECT_EQ(host().get("uhf", "read_interval"), "250");
  }
  for (const int kept : {250, 251, 3000}) {
    EXPECT_THAT(change("read_interval", std::to_string(kept)),
                ElementsAre("get_int uhf read_interval false", "get_int uhf read_interval false"));
    EXPECT_EQ(same_tag_timeout_, kept);
    EXPECT_EQ(host().get("uhf", "read_interval"), std::to_string(kept));
  }
  EXPECT_EQ(different_tag_timeout_, 0);
}

TEST_F(LiveConfig, ReadIntervalOfDifferentTagsIsAtLeast100) {
  for (const int low : {-1, 0, 99}) {
    EXPECT_THAT(
        change("read_interval_diff_tags", std::to_string(low)),
        ElementsAre("get_int uhf read_interval_diff_tags false", "set_int 100 uhf read_interval_diff_tags false",
                    "get_int uhf read_interval_diff_tags false"));
    EXPECT_EQ(different_tag_timeout_, 100);
    EXPECT_EQ(host().get("uhf", "read_interval_diff_tags"), "100");
  }
  for (const int kept : {100, 101}) {
    EXPECT_THAT(change("read_interval_diff_tags", std::to_string(kept)),
                ElementsAre("get_int uhf read_interval_diff_tags false", "get_int uhf read_interval_diff_tags false"));
    EXPECT_EQ(different_tag_timeout_, kept);
  }
  EXPECT_EQ(same_tag_timeout_, 0);
}

TEST_F(LiveConfig, WhatTheStoreHoldsIsAppliedEvenBelowTheBound) {
  host().refuse_writes();
  change("read_interval", "100");
  EXPECT_EQ(same_tag_timeout_, 100);
  change("read_interval_diff_tags", "50");
  EXPECT_EQ(different_tag_timeout_, 50);
}

TEST_F(LiveConfig, TheDetectorsRelayIsTakenAndGivenBack) {
  host().set("tag_detector_relay", 2);
  for (const auto& [value, enabled] :
       std::vector<std::pair<std::string, bool>>{{"1", true}, {"0", false}, {"-4", true}, {"0", false}}) {
    EXPECT_THAT(change("tag_detector_enabled", value),
                ElementsAre("get_int uhf tag_detector_enabled false", "get_int uhf tag_detector_relay false",
                            enabled ? "relay_enabled 2 false" : "relay_enabled 2 true"));
    EXPECT_EQ(tagDetectorEnabled, enabled) << "by the stored value, not the message's";
  }
}

TEST_F(LiveConfig, OperationModeIsReadAfresh) {
  for (const auto& [word, mode] : std::vector<std::pair<std::string, int>>{{"Inhibit", 0}, {"trigger", 1}, {"?", 2}}) {
    EXPECT_THAT(change("operation_mode", word), ElementsAre("get_param uhf operation_mode false"));
    EXPECT_EQ(uhf_operation_mode_, mode);
  }
}

TEST_F(LiveConfig, TriggerSettingsAndProbeIntervalTakeTheStoredValue) {
  change("trig_idle", "1");
  EXPECT_EQ(trigger_idle_, 1);
  change("trigger_timeout", "-7");
  EXPECT_EQ(trigger_timeout_, -7) << "with its sign";
  change("probe_interval", "33");
  EXPECT_EQ(getProbeInterval(), 33);
}

TEST_F(LiveConfig, EveryOtherKeyIsWrittenDownAndNothingElse) {
  for (const auto* key : {"", "trig_gpio", "watchdog_timeout", "identification_bits", "REGION", "region ",
                          "read_interval_", "usb_port_enabled"}) {
    EXPECT_THAT(change(key, "1"), IsEmpty()) << key;
  }
  EXPECT_THAT(reader.asked, IsEmpty());
  EXPECT_EQ(host().audit_records().size(), 8U);
}

TEST_F(LiveConfig, AnotherModuleIsWrittenDownAndNothingElse) {
  host().set("read_interval", 100);
  for (const auto* module : {"host", "", "UHF", "uhf ", "uhf2"}) {
    EXPECT_EQ(announce({{"module", module}, {"param", "read_interval"}, {"value", "100"}}), "");
  }
  EXPECT_EQ(same_tag_timeout_, 0);
  EXPECT_EQ(host().get("uhf", "read_interval"), "100");
  EXPECT_EQ(host().audit_records().size(), 5U);
}

TEST_F(LiveConfig, AModuleWithoutAKeyIsDropped) {
  EXPECT_EQ(announce({{"module", "uhf"}, {"value", "1"}}), "");
  EXPECT_EQ(announce({{"module", "other"}, {"value", "1"}}), "");
  EXPECT_EQ(host().audit_records().size(), 2U);
}

TEST_F(LiveConfig, ASystemSettingWithoutAKeyFailsAfterItsRecord) {
  EXPECT_EQ(announce({{"value", "1"}, {"sys_config", 1}}), "Invalid message parameters");
  EXPECT_EQ(announce({{"value", "1"}, {"param", 5}}), "Invalid message parameters");
  ASSERT_EQ(host().audit_records().size(), 2U);
  EXPECT_EQ(host().audit_records()[0].details, "System config changed: [module=general]");
}

TEST_F(LiveConfig, AnotherSystemSettingIsWrittenDownAndNothingElse) {
  host().set("region", "KOREA");
  EXPECT_EQ(announce({{"param", "region"}, {"value", "KOREA"}, {"sys_config", 1}}), "");
  EXPECT_THAT(reader.asked, IsEmpty());
  EXPECT_THAT(host().calls(), ElementsAre("get_formatted_date_and_time_ms"));
}

TEST_F(LiveConfig, AChangeToTheSameValueIsAppliedWithoutARecord) {
  host().set("trigger_timeout", 900);
  EXPECT_EQ(announce({{"module", "uhf"}, {"param", "trigger_timeout"}, {"value", "900"}, {"previous_value", "900"}}),
            "");
  EXPECT_EQ(trigger_timeout_, 900);
  EXPECT_THAT(host().audit_records(), IsEmpty());
}

TEST_F(LiveConfig, AFailedRecordStopsTheChange) {
  host().on_create([] { throw ac::ac_exception("disk full", true); });
  host().set("trigger_timeout", 900);
  EXPECT_EQ(announce({{"module", "uhf"}, {"param", "trigger_timeout"}, {"value", "900"}}), "disk full");
  EXPECT_EQ(trigger_timeout_, 0);
}

TEST_F(LiveConfig, IsNotMarkedHandled) {
  const auto handled = handle(configParamSetCallback, "config_param_set", {{"module", "uhf"}, {"param", "trig_idle"}});
  EXPECT_FALSE(handled.marked());
}
