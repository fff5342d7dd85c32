// The store as plug-ins see it, the relays and the device.
#include "ac/config.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ac/config_util.h"
#include "ac/exception.h"
#include "ac_dal/device.h"
#include "refhost/relays.h"
#include "refhost/settings_store.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

class Config : public testing::Test {
 protected:
  Config() : store_(directory_.path(), SettingsStore::Access::read_write) { SettingsStore::make_current(&store_); }
  ~Config() override { SettingsStore::make_current(nullptr); }

  SettingsStore& store() { return store_; }

 private:
  TemporaryDirectory directory_;
  SettingsStore store_;
};

TEST_F(Config, ParamIsReadAsText) {
  std::string value;
  EXPECT_TRUE(ac::config::get_param("uhf", "transmit_power", value, false));
  EXPECT_EQ(value, "2600");
}

TEST_F(Config, MissingParamIsFalseAndLeavesTheValueUntouched) {
  std::string value = "before";
  EXPECT_FALSE(ac::config::get_param("uhf", "nothing", value, true));
  EXPECT_EQ(value, "before");
}

TEST_F(Config, IntIsRead) {
  EXPECT_EQ(ac::config_util::get_int("uhf", "transmit_power", false), 2600);
  EXPECT_EQ(ac::config_util::get_int("uhf", "transmit_power", true), 2600);
}

TEST_F(Config, MissingIntThrowsWhenRequiredAndIsZeroOtherwise) {
  EXPECT_EQ(ac::config_util::get_int("uhf", "nothing", false), 0);
  EXPECT_EQ(ac::config_util::get_int("uhf", "region", false), 0);
  EXPECT_THROW(ac::config_util::get_int("uhf", "nothing", true), ac::ac_exception);
  EXPECT_EQ(failure_of([] { ac::config_util::get_int("uhf", "region", true); }),
            "setting region of section uhf is missing or is not a number");
}

TEST_F(Config, WrittenParamAndIntAreStored) {
  ac::config::set_param("uhf", "work_channel_enable", "0-14", false);
  ac::config_util::set_int(250, "uhf", "read_interval", false);
  EXPECT_EQ(store().get("uhf", "work_channel_enable"), "0-14");
  EXPECT_EQ(store().get("uhf", "read_interval"), "250");
}

TEST_F(Config, RefusedWriteThrowsTheHostsException) {
  EXPECT_THROW(ac::config::set_param("uhf", "nothing", "1", false), ac::ac_exception);
  EXPECT_THROW(ac::config_util::set_int(70000, "uhf", "transmit_power", false), ac::ac_exception);
  EXPECT_EQ(store().get("uhf", "transmit_power"), "2600");
}

TEST_F(Config, IntRangeIsListed) {
  store().set("uhf", "work_channel", "0-2;50-51");
  EXPECT_EQ(ac::config_util::get_int_range("uhf", "work_channel", false), std::vector<int>({0, 1, 2, 50, 51}));
}

TEST_F(Config, MissingIntRangeThrowsWhenRequiredAndIsEmptyOtherwise) {
  EXPECT_EQ(ac::config_util::get_int_range("uhf", "nothing", false), std::vector<int>());
  EXPECT_EQ(ac::config_util::get_int_range("uhf", "region", false), std::vector<int>());
  EXPECT_THROW(ac::config_util::get_int_range("uhf", "nothing", true), ac::ac_exception);
}

TEST_F(Config, DeviceHasItsConfiguredId) {
  EXPECT_EQ(ac_dal::device::this_id(), 1);
  store().set("host", "device_id", "77");
  EXPECT_EQ(ac_dal::device::this_id(), 77);
}

TEST(NoConfig, EverythingIsMissing) {
  std::string value = "before";
  EXPECT_FALSE(ac::config::get_param("uhf", "region", value, false));
  EXPECT_EQ(ac::config_util::get_int("uhf", "transmit_power", false), 0);
  EXPECT_THROW(ac::config_util::get_int("uhf", "transmit_power", true), ac::ac_exception);
  EXPECT_THROW(ac::config::set_param("uhf", "region", "KOREA", false), ac::ac_exception);
  EXPECT_EQ(ac_dal::device::this_id(), 1);
}

TEST(Relays, HangOnTheirGpioLines) {
  for (int relay = kFirstRelay; relay <= kLastRelay; ++relay) {
    EXPECT_EQ(ac::config_util::relay_gpio(relay), 16 + relay);
  }
}

TEST(Relays, RememberWhetherTheyAreEnabled) {
  EXPECT_TRUE(relay_is_enabled(2));
  ac::config_util::relay_enabled(2, false);
  EXPECT_FALSE(relay_is_enabled(2));
  EXPECT_TRUE(relay_is_enabled(3));
  ac::config_util::relay_enabled(2, true);
  EXPECT_TRUE(relay_is_enabled(2));
}

TEST(Relays, OneThatDoesNotExistIsAnError) {
  EXPECT_THROW(ac::config_util::relay_gpio(0), ac::ac_exception);
  EXPECT_THROW(ac::config_util::relay_enabled(9, true), ac::ac_exception);
  EXPECT_EQ(failure_of([] { relay_is_enabled(-1); }), "there is no relay -1: the device has relays 1 to 8");
}

}  // namespace
}  // namespace refhost::test
