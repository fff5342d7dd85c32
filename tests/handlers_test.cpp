// All threads of the built uhf.so at once, on a simulated reader, with the delivery threads of a host: settings change,
// inputs flip, audit events arrive, cards are enrolled and cards are read. Nothing is lost, nothing stands still, and
// the thread sanitizer has nothing to say.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "globals.h"
#include "loaded_plugin.h"
#include "second_host.h"
#include "uhfsim/simulated_reader.h"

using second_host::deliver;
using second_host::entry;
using second_host::Fields;
using second_host::global;
using second_host::host;
using second_host::Listeners;
using second_host::make_message;

namespace {

constexpr std::chrono::seconds kDuration(10);

// Far less than a loaded machine does in that time under the sanitizer; a thread that stands still does not get there.
constexpr std::size_t kPlenty = 50;

// Settings that the plug-in follows, with two values that they may have.
const std::vector<std::array<std::string, 3>> kChanges{
    {"operation_mode", "continuous", "inhibit"},
    {"trig_idle", "0", "1"},
    {"trigger_timeout", "0", "1"},
    {"read_interval", "100", "251"},
    {"read_interval_diff_tags", "0", "101"},
    {"probe_interval", "1", "2"},
    {"tag_detector_enabled", "0", "1"},
    {"transmit_power", "2600", "2500"},
    {"work_channel", "0-3", "4"},
    {"region", "EUROPE", "KOREA"},
};

void change_setting(const Listeners& listeners, std::size_t round) {
  const auto& [key, first, second] = kChanges[round % kChanges.size()];
  const auto& value = round / kChanges.size() % 2 == 0 ? second : first;
  host().set(key, value);
  deliver(listeners, make_message("config_param_set", {{"module", "uhf"}, {"param", key}, {"value", value}}));
}

void flip_inputs(const Listeners& listeners, std::size_t round) {
  const int level = static_cast<int>(round % 2);
  deliver(listeners, make_message("gpio_notified", {{"gpio", 5}, {"value", level}}));
  deliver(listeners, make_message("sec_box_rex_changed", {{"active", level}}));
}

void report_event(const Listeners& listeners, std::size_t round) {
  const std::array types{"audit_logs_new_api",       "audit_logs_new_usb",    "audit_logs_new_network",
                         "ac_util_system_clock_set", "audit_logs_new_online", "audit_logs_new_menu",
                         "audit_logs_new_boot"};
  deliver(listeners, make_message(types.at(round % types.size()), {{"details", "something"}}));
}

// A request and its outcome.
void enroll(const Listeners& listeners, std::size_t /*round*/) {
  deliver(listeners, make_message("enroller_remote_enroll", {{"type", "card"}, {"user_id", std::int64_t{7}}}));
  deliver(listeners, make_message("enroll_rfid_successful", {{"user_card", std::int64_t{9}}}));
}

void prepare(const std::string& port) {
  for (const auto& change : kChanges) {
    host().set(change[0], change[1]);
  }
  host().set("serial_port_path", port);
  host().set("serial_port_timeout", 1000);
  host().set("trig_gpio", 5);
  host().set("watchdog_timeout", 5);
  host().set("tag_detector_relay", 2);
  host().set("identification_bits", 32);
  host().answer_with([](const auto&) { return Fields{{"value", 0}}; });
}

}  // namespace

TEST(Handlers, RunAtTheSameTimeAsTheReader) {
  static uhfsim::SimulatedReader reader(uhfsim::Options{.seed = 1, .baud = 0});
  for (unsigned char number = 1; number <= 20; ++number) {
    reader.field().add({.epc = {0, 0, 0, number}});
  }
  prepare(reader.path());
  ac::Plugin record;
  std::string error;
  ASSERT_TRUE(entry<second_host::InitEntry>("init")(&record, &error)) << error;
  const Listeners listeners = second_host::record_of(record).interested;
  std::thread(entry<second_host::RunEntry>("run")).detach();

  std::atomic<bool> end = false;
  const auto repeat = [&](void (*handle)(const Listeners&, std::size_t)) {
    return std::async(std::launch::async, [&end, &listeners, handle] {
      std::size_t round = 0;
      for (; !end; ++round) {
        handle(listeners, round);
        std::this_thread::sleep_for(std::chrono::microseconds(500));
      }
      return round;
    });
  };
  auto changes = repeat(change_setting);
  auto flips = repeat(flip_inputs);
  auto events = repeat(report_event);
  auto enrollments = repeat(enroll);
  std::this_thread::sleep_for(kDuration);
  end = true;

  const std::size_t changed = changes.get();
  const std::size_t flipped = flips.get();
  const std::size_t reported = events.get();
  const std::size_t enrolled = enrollments.get();
  EXPECT_GT(std::min({changed, flipped, reported, enrolled}), kPlenty);
  EXPECT_EQ(host().audit_records().size(), changed + reported);
  EXPECT_EQ(host().messages("actuator_open_door").size(), (flipped + 1) / 2);
  EXPECT_TRUE(host().wait_until([&] { return host().messages("identifier_allow_actions").size() >= enrolled; }));
  EXPECT_EQ(host().messages("enroll_card").size(), enrolled);
  EXPECT_GT(host().messages("identifier_new_card").size(), 5U);
  EXPECT_GT(reader.counters().notices, 20 * kPlenty);
  EXPECT_EQ(std::to_string(global<std::atomic<int>>("trigger_idle_")), host().get("uhf", "trig_idle"));
  EXPECT_EQ(std::to_string(global<std::atomic<std::int64_t>>("same_tag_timeout_")), host().get("uhf", "read_interval"));
}
