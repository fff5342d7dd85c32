// Every thread that the door needs is missed when it does not do its work: one after the other is stopped, without the
// program's help, and the process ends with its name.
#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <optional>

#include "held_host.h"

using achost::ControlClient;

namespace {

struct Watched {
  const char* name;
  std::size_t ordinal;  // among the threads of that name
  const char* reported;
};

constexpr Watched kWatched[] = {
    {"uhf:inputs", 0, "delivery to uhf:inputs"},
    {"door", 0, "delivery to door"},
    {"gpio", 0, "delivery to gpio"},
    {"door_timer", 0, "door_timer"},
    {"door_timer_2", 0, "door_timer_2"},
    {"door_look", 0, "door_look"},
    {"door_watch", 0, "delivery to door_watch"},
    {"identifier", 0, "delivery to identifier"},
    {"enroller", 0, "delivery to enroller"},
    {"enroll_timer", 0, "enroll_timer"},
    {"achost", 2, "delivery to achost"},
    {"uhf", 0, "delivery to uhf"},
    {"control", 0, "control"},
    {"plugin", 0, "uhf"},
    {"plugin", 2, "uhf_write_threads"},
    {"uhf_watchdog", 0, "uhf_worker"},
};

void PrintTo(const Watched& watched, std::ostream* out) { *out << watched.reported; }

constexpr std::chrono::seconds kLimit(2);
constexpr std::chrono::seconds kReports(1);  // a thread without work does so once in that time

class WatchedThread : public held::HeldHost, public testing::WithParamInterface<Watched> {
 protected:
  pid_t thread() const {
    std::size_t ordinal = GetParam().ordinal;
    for (const auto& [id, name] : threads()) {
      if (name == GetParam().name && ordinal-- == 0) {
        return id;
      }
    }
    ADD_FAILURE() << "there is no such thread";
    return -1;
  }
};

}  // namespace

TEST_P(WatchedThread, EndsTheProcessWithItsNameWhenItIsHeldUp) {
  start({"--watchdog-limit", std::to_string(kLimit.count()), "--set", "host.door_open_time=100", "--set",
         "host.enroll_timeout=1000", "--set", "watchdog_timeout=300", "--set", "read_interval_diff_tags=0"},
        ">/dev/null");
  // A thread of the plug-in's own is missed once it has reported.
  ASSERT_TRUE(held::comes_true([this] {
    const std::string reported = ask({{"command", "status"}}).at("threads").dump();
    return reported.find("uhf_worker") != std::string::npos && reported.find("uhf_write_threads") != std::string::npos;
  }));
  // Something to do for each of them.
  ControlClient client(state());
  const auto order = [&client](const achost::Json& request) { client.send(request); };
  order({{"command", "field"}, {"line", "add E28011700000020A00000021"}});
  client.receive(refhost::test::kPatience);
  const auto begin = std::chrono::steady_clock::now();
  held::StoppedThread stopped(thread());
  std::optional<ControlClient> another;
  another.emplace(state());
  order({{"command", "rex"}});
  order({{"command", "enroll"}, {"user", 1}});
  order({{"command", "config_set"}, {"section", "uhf"}, {"key", "read_interval"}, {"value", "400"}});
  stopped.await_end();
  const auto result = host().wait();
  EXPECT_EQ(result.status, 7);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, kLimit - kReports) << "it had no time to do it";
  EXPECT_THAT(result.err,
              testing::HasSubstr(std::string("watchdog: ") + GetParam().reported + " has not reported for "));
}

INSTANTIATE_TEST_SUITE_P(Each, WatchedThread, testing::ValuesIn(kWatched), [](const auto& instance) {
  std::string name = std::string(instance.param.name) + std::to_string(instance.param.ordinal);
  std::erase_if(name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; });
  return name;
});
