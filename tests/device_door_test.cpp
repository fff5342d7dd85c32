// A door with a contact, and its modes, in real processes.
#include <fstream>

#include "device_fixture.h"

namespace device_test {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class DeviceDoor : public Device {
 protected:
  json door() const { return json::parse(output({"door", "--json"})); }
  json contact(const std::string& state) {
    return next_event("door_contact", [&](const json& event) { return event.at("state") == state; });
  }
  json mode(const std::string& mode) {
    return next_event("door_mode", [&](const json& event) { return event.at("mode") == mode; });
  }
  static bool comes_true(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + refhost::test::kPatience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
    }
    return true;
  }
  json alarm(const std::string& name, bool stands) {
    return next_event("alarm",
                      [&](const json& event) { return event.at("name") == name && event.at("standing") == stands; });
  }
};

TEST_F(DeviceDoor, ThatOpensWithoutAReleaseIsForcedUntilItIsShut) {
  start({"--set", "host.door_contact=CONTACT"});
  output({"gpio", "set", "257", "1"});
  EXPECT_FALSE(alarm("door_forced", true).is_null());
  EXPECT_THAT(output({"status"}), HasSubstr("the door was forced"));
  output({"gpio", "set", "257", "0"});
  EXPECT_FALSE(alarm("door_forced", false).is_null());
  EXPECT_EQ(door().at("contact"), "closed");
  EXPECT_TRUE(comes_true([&] {
    return output({"journal", "--kind", "contact"}).find("was forced: opened without a release") != std::string::npos;
  }));
}

TEST_F(DeviceDoor, ThatIsReleasedAndUsedRelocksAndWhySaysSo) {
  start({"--set", "host.door_contact=CONTACT", "--set", "host.door_open_time=600000", "--set",
         "host.door_relock=closed"});
  output({"card", "add", "1", "--user", "7"});
  output({"field", "add", kKnown});
  next_event("door_open");
  output({"field", "clear"});
  output({"gpio", "set", "257", "1"});
  EXPECT_FALSE(contact("opened").is_null());
  output({"gpio", "set", "257", "0"});
  EXPECT_EQ(next_event("relay").at("on"), false);
  EXPECT_TRUE(comes_true([&] {
    return output({"why", "1"}).find("the door itself was opened at") != std::string::npos;
  }));
}

TEST_F(DeviceDoor, ThatIsLockedLetsNobodyInAndEverybodyOut) {
  start({"--set", "read_interval=250"});
  output({"card", "add", "1", "--user", "7"});
  EXPECT_THAT(output({"door", "mode", "locked"}), HasSubstr("locked, by command"));
  EXPECT_FALSE(mode("locked").is_null());
  output({"field", "add", kKnown});
  EXPECT_EQ(next_event("identification").at("outcome"), "door_locked");
  output({"rex"});
  EXPECT_EQ(next_event("door_open").at("reason"), "exit request");
  output({"door", "mode", "auto"});
  EXPECT_FALSE(mode("normal").is_null());
  EXPECT_FALSE(
      next_event("identification", [](const json& event) { return event.at("outcome") == "opens"; }).is_null());
}

TEST_F(DeviceDoor, ThatIsUnlockedIsSoAgainAfterAKillAndShutInBetween) {
  start();
  output({"door", "mode", "unlocked"});
  EXPECT_EQ(next_event("relay").at("on"), true);
  EXPECT_THAT(output({"gpio"}), HasSubstr("18"));
  host().signal(SIGKILL);
  host().wait();
  EXPECT_EQ(command({"door"}).status, 1) << "no host runs";
  start();
  EXPECT_EQ(next_event("door_open").at("reason"), "unlocked");
  EXPECT_EQ(door().at("lock"), "open");
  output({"door", "mode", "normal"});
  EXPECT_EQ(next_event("relay", [](const json& event) { return event.at("on") == false; }).at("relay"), 2);
}

TEST_F(DeviceDoor, IsUnlockedByItsScheduleAndAnotherNameIsAnAlarm) {
  std::filesystem::create_directories(state());
  std::ofstream(state() + "/always.csv") << "name,days,from,to\nalways,mon-sun holiday,00:00,24:00\n";
  output({"schedule", "import", state() + "/always.csv"});
  start({"--set", "host.unlocked_schedule=always"});
  EXPECT_EQ(next_event("door_open").at("reason"), "unlocked");
  EXPECT_EQ(door().at("by"), "schedule");
  output({"config", "set", "host.locked_schedule=alway"});
  EXPECT_THAT(alarm("door_schedule", true).at("text").get<std::string>(),
              HasSubstr("host.locked_schedule names the schedule \"alway\", and there is none"));
  output({"config", "set", "host.locked_schedule=always"});
  EXPECT_FALSE(alarm("door_schedule", false).is_null());
  EXPECT_FALSE(mode("locked").is_null()) << "what locks is over what unlocks";
}

TEST_F(DeviceDoor, HasAModeForATimeOfWhichTheJournalKnowsTheMaker) {
  start();
  EXPECT_THAT(output({"door", "mode", "unlocked", "--for", "1s"}), HasSubstr("unlocked, by command, for 1 s more"));
  EXPECT_FALSE(mode("unlocked").is_null());
  EXPECT_FALSE(mode("normal").is_null());
  output({"door", "open"});
  EXPECT_EQ(next_event("door_open").at("reason"), "command");
  std::string journal;
  EXPECT_TRUE(comes_true([&] {
    journal = output({"journal", "--kind", "command"});
    return journal.find("opened the door by command") != std::string::npos;
  }));
  EXPECT_THAT(journal, AllOf(HasSubstr("told the door to be unlocked for 1 s"), Not(HasSubstr("the device"))));
}

TEST_F(DeviceDoor, RefusesWhatCannotBeWithTheWayOut) {
  std::filesystem::create_directories(state());
  EXPECT_EQ(output({"door", "mode", "locked"}), "host.door_mode = locked, for the next run\n");
  EXPECT_THAT(command({"door", "mode", "locked", "--for", "1h"}).err, HasSubstr("no host runs"));
  for (const auto& [words, fault] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"door", "mode", "lokced"}, "\"lokced\" is none of auto, normal, locked, unlocked"},
           {{"door", "mode", "locked", "--for", "10"}, "\"10\" is no length of time: it is such as 90s"},
           {{"door", "opne"}, "there is no command \"door opne\""}}) {
    const auto result = command(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr(fault));
  }
  start();
  EXPECT_EQ(door().at("mode"), "locked") << "it was stored";
  EXPECT_THAT(command({"door", "mode", "auto", "--for", "1h"}).err, HasSubstr("cannot be \"auto\" for a time"));
  EXPECT_THAT(command({"door", "mode", "normal", "--for", "0s"}).err, HasSubstr("it is 1 to 31622400 s"));
  EXPECT_THAT(command({"config", "set", "host.door_held_warning=90"}).err,
              HasSubstr("host.door_held_warning 90 is to be less than host.door_held_alarm, 60, or 0"));
}

}  // namespace device_test
