// The entry: what init() does, in which order, and where it stops.
#include "plugin.h"

#include <dirent.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <thread>
#include <tuple>

#include "audit.h"
#include "enrollment.h"
#include "frame_catalogue.h"
#include "gpio_events.h"
#include "hex.h"
#include "live_config.h"
#include "reader_peer.h"
#include "second_host.h"
#include "settings.h"

using second_host::host;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsSupersetOf;

namespace {

const auto WORK_AREA_SET = hex("7F 01 07 00 01 00 09 7E");
const auto POWER_IS_2600 = hex("7F 01 B7 00 02 0A 28 EC 7E");
const auto POWER_SET = hex("7F 01 B6 00 01 00 B8 7E");
const auto CHANNELS_SET = hex("7F 01 A9 00 01 00 AB 7E");

// Answers the commands of a radio set-up, each by its code; an empty answer keeps silent.
void answerSetUp(ReaderPeer& peer, const std::vector<std::vector<unsigned char>>& answers) {
  for (const auto& answer : answers) {
    const auto head = peer.read(5);
    ASSERT_EQ(head.size(), 5U) << "no command came";
    peer.read(static_cast<std::size_t>(head[4]) + 2);
    peer.write(answer);
  }
}

// A listener as it was registered: type, handler and flag.
using Listening = std::tuple<std::string, void (*)(ac::Message*), bool>;

std::vector<Listening> listening(const second_host::Listeners& listeners) {
  std::vector<Listening> result;
  for (const auto& [type, handler, flag] : listeners) {
    const auto* const function = handler.target<void (*)(ac::Message*)>();
    result.emplace_back(type, function == nullptr ? nullptr : *function, flag);
  }
  return result;
}

class Init : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    for (const auto& [key, value] : std::map<std::string, std::string>{{"trig_gpio", "5"},
                                                                       {"watchdog_timeout", "4000"},
                                                                       {"tag_detector_tag_present_timeout", "500"},
                                                                       {"tag_detector_relay", "2"},
                                                                       {"tag_detector_enabled", "1"},
                                                                       {"operation_mode", "Trigger"},
                                                                       {"trig_idle", "1"},
                                                                       {"trigger_timeout", "7000"},
                                                                       {"read_interval", "100"},
                                                                       {"read_interval_diff_tags", "50"},
                                                                       {"serial_port_timeout", "200"},
                                                                       {"region", "europe"},
                                                                       {"transmit_power", "2600"},
                                                                       {"work_channel", "0-2;7"}}) {
      host().set(key, value);
    }
    host().set("serial_port_path", peer.path());
    t640_module.reset();
  }
  void TearDown() override { t640_module.reset(); }

  // Runs init() while the reader answers so.
  bool initWith(const std::vector<std::vector<unsigned char>>& answers) {
    std::thread reader([&] { answerSetUp(peer, answers); });
    const bool result = init(&plugin, &error);
    reader.join();
    return result;
  }

  static std::size_t openDescriptors() {
    return static_cast<std::size_t>(std::ranges::distance(std::filesystem::directory_iterator("/proc/self/fd")));
  }

  ReaderPeer peer;
  ac::Plugin plugin;
  std::string error = "kept: ";
};

const std::vector<std::vector<unsigned char>> ALL_GOOD{WORK_AREA_SET, POWER_IS_2600, CHANNELS_SET, CHANNELS_SET};

}  // namespace

TEST_F(Init, ReadsEverySettingInOrderThenSetsTheRadioUp) {
  EXPECT_TRUE(initWith(ALL_GOOD)) << error;
  EXPECT_EQ(error, "kept: ");
  const std::vector<std::string> expected{"set_name uhf",
                                          "set_run",
                                          "get_int uhf trig_gpio true",
                                          "get_int uhf watchdog_timeout true",
                                          "get_int uhf tag_detector_tag_present_timeout false",
                                          "get_int uhf tag_detector_relay false",
                                          "relay_gpio 2",
                                          "get_int uhf tag_detector_enabled false",
                                          "relay_enabled 2 false",
                                          "get_param uhf operation_mode false",
                                          "get_int uhf trig_idle false",
                                          "get_int uhf trigger_timeout false",
                                          "get_int uhf read_interval false",
                                          "get_int uhf read_interval_diff_tags false",
                                          "get_param uhf serial_port_path true",
                                          "get_int uhf serial_port_timeout true",
                                          "get_param uhf region false",
                                          "set_param uhf work_channel_enable 0-14 false",
                                          "get_int uhf transmit_power false",
                                          "get_int_range uhf work_channel false"};
  auto calls = host().calls();
  ASSERT_GE(calls.size(), expected.size());
  EXPECT_THAT(std::vector(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(expected.size())),
              ElementsAreArray(expected));
}

TEST_F(Init, ListensToItsQueueThenToTheHost) {
  ASSERT_TRUE(initWith(ALL_GOOD)) << error;
  const std::vector<Listening> ofQueue{{"config_param_set", configParamSetCallback, false},
                                       {"enroller_remote_enroll", remoteEnrollCallback, true},
                                       {"enroll_rfid_successful", enrollRfidSuccessfulCallback, true},
                                       {"enroll_timeout", enrollTimeoutCallback, true},
                                       {"enroller_error", errorOccurredCallback, true}};
  const std::vector<Listening> ofHost{{"config_param_set", configParamSetCallback, false},
                                      {"enroller_remote_enroll", messageTransferCallback, true},
                                      {"enroll_rfid_successful", messageTransferCallback, true},
                                      {"enroll_timeout", messageTransferCallback, true},
                                      {"enroller_error", messageTransferCallback, true},
                                      {"gpio_notified", gpioNotifiedCallback, true},
                                      {"sec_box_rex_changed", secBoxRexChangedCallback, true},
                                      {"audit_logs_new_api", create_api_audit_log_callback, false},
                                      {"audit_logs_new_usb", create_usb_audit_log_callback, false},
                                      {"audit_logs_new_network", create_network_audit_log_callback, false},
                                      {"ac_util_system_clock_set", create_time_audit_log_callback, false},
                                      {"audit_logs_new_online", create_online_audit_log_callback, false},
                                      {"audit_logs_new_menu", create_menu_audit_log_callback, false},
                                      {"audit_logs_new_boot", create_boot_audit_log_callback, false}};
  EXPECT_EQ(listening(second_host::listeners_of(enqueuer)), ofQueue);
  EXPECT_EQ(listening(second_host::record_of(plugin).interested), ofHost);
  const auto calls = host().calls();
  const auto first = [&calls](const std::string& call) { return std::ranges::find(calls, call); };
  EXPECT_LT(first("listen enroller_error true"), first("interested config_param_set false"));
}

TEST_F(Init, NobodyListensAfterAFailure) {
  EXPECT_FALSE(initWith({WORK_AREA_SET, POWER_IS_2600, {}}));
  EXPECT_TRUE(second_host::record_of(plugin).interested.empty());
  EXPECT_THAT(host().calls(), testing::Not(testing::Contains(testing::StartsWith("listen "))));
}

TEST_F(Init, FillsTheGlobalsAsTheStoreHasThem) {
  ASSERT_TRUE(initWith(ALL_GOOD)) << error;
  EXPECT_EQ(trigAntiesmagGPIO, 5);
  EXPECT_EQ(watchdogTimeout, 4000);
  EXPECT_EQ(tagDetectorTagPresentTimeout, 500);
  EXPECT_EQ(tagDetectorRelayGPIO, 102);
  EXPECT_TRUE(tagDetectorEnabled);
  EXPECT_EQ(uhf_operation_mode_, 1);
  EXPECT_EQ(trigger_idle_, 1);
  EXPECT_EQ(trigger_timeout_, 7000);
  EXPECT_EQ(same_tag_timeout_, 100) << "no lower bound at start";
  EXPECT_EQ(different_tag_timeout_, 50) << "no lower bound at start";
  EXPECT_NE(t640_module, nullptr);
}

TEST_F(Init, SetsRegionThenPowerThenChannels) {
  std::vector<int> commands;
  std::thread reader([&] {
    for (const auto& answer :
         {WORK_AREA_SET, hex("7F 01 B7 00 02 00 01 BB 7E"), POWER_SET, CHANNELS_SET, CHANNELS_SET}) {
      const auto head = peer.read(5);
      commands.push_back(head.at(2));
      peer.read(static_cast<std::size_t>(head[4]) + 2);
      peer.write(answer);
    }
  });
  EXPECT_TRUE(init(&plugin, &error)) << error;
  reader.join();
  EXPECT_THAT(commands, ElementsAre(0x07, 0xB7, 0xB6, 0xA9, 0xA9));
}

TEST_F(Init, GivesTheRelayToTheHostWhenTheDetectorIsOff) {
  host().set("tag_detector_enabled", "0");
  ASSERT_TRUE(initWith(ALL_GOOD)) << error;
  EXPECT_FALSE(tagDetectorEnabled);
  EXPECT_THAT(host().calls(), testing::Contains("relay_enabled 2 true"));
}

TEST_F(Init, TakesTheRelayForAnyOtherValue) {
  host().set("tag_detector_enabled", "-3");
  ASSERT_TRUE(initWith(ALL_GOOD)) << error;
  EXPECT_TRUE(tagDetectorEnabled);
}

TEST_F(Init, FailsWhenARequiredSettingIsMissing) {
  host().reset();
  EXPECT_FALSE(init(&plugin, &error));
  EXPECT_EQ(error, "kept: Missing setting trig_gpio");
  EXPECT_THAT(host().calls(), ElementsAre("set_name uhf", "set_run", "get_int uhf trig_gpio true"));
}

TEST_F(Init, LeavesAnExceptionThatIsNoneOfTheLibrarysToTheHost) {
  struct Foreign {};
  host().on_call([](const std::string& call) {
    if (call == "get_int uhf trig_idle false") {
      throw Foreign();
    }
  });
  EXPECT_THROW(init(&plugin, &error), Foreign);
  EXPECT_EQ(error, "kept: ");
}

TEST_F(Init, FailsBeforeTheRadioWhenThePortDoesNotOpen) {
  host().set("serial_port_path", "/dev/no such device");
  EXPECT_FALSE(init(&plugin, &error));
  EXPECT_EQ(error, "kept: Error opening Serial Port: No such file or directory");
  EXPECT_EQ(host().calls().back(), "get_int uhf serial_port_timeout true");
  EXPECT_EQ(t640_module, nullptr);
}

TEST_F(Init, FailsWithTheTextOfTheRadioStepThatFailed) {
  const std::vector<std::pair<std::vector<std::vector<unsigned char>>, std::string>> failures{
      {{{}}, "Could no set Work Area"},
      {{WORK_AREA_SET, {}}, "Could no read Transmit power"},
      {{WORK_AREA_SET, hex("7F 01 B7 00 02 00 01 BB 7E"), {}}, "Could no set Transmit power"},
      {{WORK_AREA_SET, POWER_IS_2600, {}}, "Could no set Working Channel"},
  };
  for (const auto& [answers, text] : failures) {
    error = "kept: ";
    EXPECT_FALSE(initWith(answers));
    EXPECT_EQ(error, "kept: " + text);
    EXPECT_NE(t640_module, nullptr) << "the reader stays";
  }
}

TEST_F(Init, ASecondOneReplacesTheReaderAndLeaksNoDescriptor) {
  ASSERT_TRUE(initWith(ALL_GOOD)) << error;
  const auto descriptors = openDescriptors();
  ASSERT_TRUE(initWith(ALL_GOOD)) << error;
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(Init, ASecondOneThatCannotOpenItsPortKeepsTheReader) {
  ASSERT_TRUE(initWith(ALL_GOOD)) << error;
  const auto* before = t640_module.get();
  host().set("serial_port_path", "/dev/no such device");
  EXPECT_FALSE(init(&plugin, &error));
  EXPECT_EQ(t640_module.get(), before);
}

TEST(Cases, AreThoseOfAsciiLettersAlone) {
  EXPECT_EQ(toLower("@AMZ[`amz{\xC3"), "@amz[`amz{\xC3");
  EXPECT_EQ(toUpper("@AMZ[`amz{\xC3"), "@AMZ[`AMZ{\xC3");
}

TEST(OperationModeSetting, IsAWordInAnyCase) {
  const std::vector<std::pair<std::string, int>> words{
      {"inhibit", 0},    {"INHIBIT", 0}, {"trigger", 1},  {"TRIGGER", 1},  {"tRiGgEr", 1},  {"continuous", 2},
      {"Continuous", 2}, {"", 2},        {"TRIGGER ", 2}, {" inhibit", 2}, {"triggers", 2}, {"0", 2}};
  for (const auto& [word, mode] : words) {
    host().reset();
    host().set("operation_mode", word);
    EXPECT_EQ(readOperationMode(), mode) << '"' << word << '"';
  }
  host().reset();
  EXPECT_EQ(readOperationMode(), 2) << "no setting";
}
