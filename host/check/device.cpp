// Chapter 7: watchdog, threads' names, log, utilities and the device.
#include <pthread.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <string_view>
#include <thread>
#include <vector>

#include "ac/config_util.h"
#include "ac/util.h"
#include "ac/vexlog.h"
#include "ac_dal/device.h"
#include "alive.h"
#include "examination.h"
#include "report.h"
#include "waiting.h"

namespace hostcheck {
namespace {

// On a thread of its own, which holds a lock that nobody else must want, so that a call that hangs is found.
void expect_well(ClauseId clause, const std::string& call, std::function<void()> action) {
  const auto outcome = outcome_of([action = std::move(action)] {
    std::mutex of_the_plugin;
    const std::lock_guard lock(of_the_plugin);
    action();
  });
  if (!outcome.is_well()) {
    report().found(clause, call + " " + words_of(outcome));
  }
}

void examine_watchdog() {
  report().examine({"7.1"});
  for (const auto& name : names_kept_alive()) {
    expect_well("7.1", "keep_alive() of a name of " + std::to_string(name.size()) + " bytes",
                [name] { keep_alive_from_now_on(name); });
  }
}

void examine_thread_names() {
  report().examine({"7.3"});
  const auto names = std::make_shared<Seen<std::string>>();
  expect_well("7.3", "set_thread_name() of 17 bytes", [names] {
    std::array<char, 64> kept{};
    ac::util::set_thread_name("hostcheck_threads", pthread_self());
    pthread_getname_np(pthread_self(), kept.data(), kept.size());
    names->add(kept.data());
  });
  if (names->count() != 0 && names->all().front() != "hostcheck_threa") {
    report().found("7.3",
                   "a thread that was named \"hostcheck_threads\" has the name \"" + names->all().front() + "\"");
  }
}

void examine_system() {
  report().examine({"7.4"});
  const int status = ac::util::system("exit 3");
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 3) {
    report().found("7.4", "system(\"exit 3\") returned " + std::to_string(status) + " and not the wait status 768");
  }
}

std::string date_of_now() {
  constexpr char kUntouched = '#';
  std::array<char, 256> buffer{};
  buffer.fill(kUntouched);
  ac::util::get_formatted_date_and_time_ms(buffer.data());
  const auto* const end = static_cast<const char*>(std::memchr(buffer.data(), 0, 64));
  if (end == nullptr) {
    report().found("7.5", "the date has no final zero within 64 bytes");
    return "";
  }
  for (std::size_t i = 64; i < buffer.size(); ++i) {
    if (buffer.at(i) != kUntouched) {
      report().found("7.5", "the date wrote byte " + std::to_string(i) + " of a buffer of 64");
      break;
    }
  }
  return buffer.data();
}

void examine_date() {
  report().examine({"7.5"});
  const auto first = date_of_now();
  Gate().pass(std::chrono::milliseconds(20));
  if (const auto second = date_of_now(); first == second) {
    report().found("7.5", "the date was \"" + first + "\" twice, 20 ms apart");
  }
}

// As RFC 4122 has it, with the version 4 and the variant 10.
bool is_random_uuid(std::string_view uuid) {
  constexpr std::string_view kForm = "xxxxxxxx-xxxx-4xxx-vxxx-xxxxxxxxxxxx";
  const auto fits = [](char form, char c) {
    constexpr std::string_view kHex = "0123456789abcdefABCDEF";
    constexpr std::string_view kVariant = "89abAB";
    return form == 'x' ? kHex.find(c) != kHex.npos : form == 'v' ? kVariant.find(c) != kVariant.npos : form == c;
  };
  return std::ranges::equal(kForm, uuid, fits);
}

void examine_uuids() {
  constexpr std::size_t kThreads = 4;
  constexpr std::size_t kEach = 500;
  report().examine({"7.6", "7.7"});
  const auto uuids = std::make_shared<Seen<std::string>>();
  for (std::size_t i = 0; i < kThreads; ++i) {
    std::thread([uuids] {
      for (std::size_t made = 0; made < kEach; ++made) {
        uuids->add(ac::util::identifier::generate_new_uuid());
      }
    }).detach();
  }
  uuids->wait_for(kThreads * kEach);
  std::set<std::string> different;
  for (const auto& uuid : uuids->all()) {
    if (!is_random_uuid(uuid)) {
      report().found("7.6", "\"" + uuid + "\" is no uuid of version 4");
    }
    different.insert(uuid);
  }
  if (const auto made = uuids->count(); different.size() != made) {
    report().found("7.7", "of " + std::to_string(made) + " uuids of four threads only " +
                              std::to_string(different.size()) + " were different");
  }
}

void examine_log() {
  report().examine({"7.8"});
  const std::vector<std::string> texts = {
      "", "two\nlines", "%s%n%d", std::string("zero\0byte", 9), "\xFF\xFE", std::string(100'000, 'x')};
  for (const auto& text : texts) {
    expect_well("7.8", "debug() of a text of " + std::to_string(text.size()) + " bytes",
                [text] { ac::vexlog::debug(text, "hostcheck", "examine_log", 1); });
  }
}

void examine_relays() {
  report().examine({"7.9"});
  int relay = 0;
  thrown_by([&relay] { relay = ac::config_util::get_int("uhf", "tag_detector_relay", false); });  // 6.4 tells of that
  expect_well("7.9", "relay_gpio() of relay " + std::to_string(relay), [relay] { ac::config_util::relay_gpio(relay); });
  expect_well("7.9", "relay_enabled() of relay " + std::to_string(relay),
              [relay] { ac::config_util::relay_enabled(relay, true); });
}

void examine_identity() {
  report().examine({"7.10"});
  const auto first = ac_dal::device::this_id();
  const auto second = std::make_shared<Seen<std::int64_t>>();
  expect_well("7.10", "this_id()", [second] { second->add(ac_dal::device::this_id()); });
  if (second->count() != 0 && second->all().front() != first) {
    report().found("7.10",
                   "this_id() was " + std::to_string(first) + ", and then " + std::to_string(second->all().front()));
  }
}

}  // namespace

void examine_device() {
  examine_watchdog();
  examine_thread_names();
  examine_system();
  examine_date();
  examine_uuids();
  examine_log();
  examine_relays();
  examine_identity();
}

}  // namespace hostcheck
