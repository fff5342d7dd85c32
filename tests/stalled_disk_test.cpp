// A disk that does not answer, below a real host: it is an alarm, it is named by whoever ends because of it, and no end
// waits for it.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <signal.h>

#include "held_host.h"

using achost::ControlClient;
using achost::Json;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

namespace {

class StalledDisk : public held::HeldHost {
 protected:
  // Ask for a change of a setting; nobody waits for the answer.
  void change(const std::string& value) {
    client_.emplace(state());
    client_->send({{"command", "config_set"}, {"section", "uhf"}, {"key", "read_interval"}, {"value", value}});
  }

  std::string stored_interval() {
    return ask({{"command", "config_get"}, {"section", "uhf"}, {"key", "read_interval"}}).at("value");
  }

  // The next alarm of the disk on standard output: a setting whose record is not written has one too.
  Json next_alarm() {
    for (std::string line; !(line = host().next_line()).empty();) {
      if (auto event = Json::parse(line); event.at("event") == "alarm" && event.at("name") == "disk") {
        return event;
      }
    }
    ADD_FAILURE() << "the host has ended without an alarm";
    return {};
  }

 private:
  std::optional<ControlClient> client_;
};

}  // namespace

TEST_F(StalledDisk, IsAnAlarmWithinFiveSecondsUntilItAnswers) {
  start();
  stall_disk(state() + "/settings.db");
  const auto begin = steady_clock::now();
  change("700");
  const Json raised = next_alarm();
  EXPECT_LE(steady_clock::now() - begin, seconds(5));
  EXPECT_EQ(raised.at("standing"), true);
  EXPECT_THAT(std::string(raised.at("text")),
              testing::AllOf(HasSubstr(state() + "/settings.db"), HasSubstr("a setting"), HasSubstr("dmesg")));
  EXPECT_EQ(ask({{"command", "status"}}).at("alarms").size(), 1U);
  let_disk_go();
  EXPECT_EQ(next_alarm().at("standing"), false);
}

TEST_F(StalledDisk, IsNamedByTheWatchdogThatEndsAHandlerWhichWaitsForIt) {
  start({"--watchdog-limit", "1"});
  stall_disk(state() + "/audit.db");
  change("700");
  EXPECT_EQ(next_alarm().at("standing"), true) << "the alarm comes before the end";
  const auto result = host().wait();
  EXPECT_EQ(result.status, 7);
  EXPECT_THAT(result.err, HasSubstr("delivery to uhf has not reported"));
  EXPECT_THAT(result.err, HasSubstr("; the disk below " + state() + "/audit.db does not answer for "));
}

TEST_F(StalledDisk, KeepsNoEndWaiting) {
  start();
  ASSERT_EQ(ask({{"command", "config_set"}, {"section", "uhf"}, {"key", "read_interval"}, {"value", "650"}}).at("ok"),
            true);
  stall_disk(state());
  change("700");
  const auto begin = steady_clock::now();
  host().signal(SIGTERM);
  const auto result = host().wait();
  EXPECT_LE(steady_clock::now() - begin, seconds(4));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(
      result.err,
      HasSubstr("not closed, as the disk does not answer: the control socket, users and cards, the settings, the audit "
                "log, the journal; nothing that was stored is lost\n"));
  let_disk_go();
  start();
  EXPECT_THAT(stored_interval(), testing::AnyOf("650", "700"));
}

TEST_F(StalledDisk, ThatOnlyAnotherProgramLocksIsAnAlarmUntilSomethingIsStored) {
  start();
  SQLite::Database audit(state() + "/audit.db", SQLite::OPEN_READWRITE);
  audit.exec("BEGIN IMMEDIATE");
  change("700");
  EXPECT_THAT(std::string(next_alarm().at("text")), HasSubstr("an audit record is not stored: database is locked"));
  audit.exec("ROLLBACK");
  change("750");
  EXPECT_EQ(next_alarm().at("standing"), false);
}
