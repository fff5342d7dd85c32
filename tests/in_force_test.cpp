// Settings that are stored and not in force, in real processes: achost with the built plug-in on a simulated reader,
// and what keeps the plug-in from taking a change.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <thread>

#include "tests/device_fixture.h"

using nlohmann::json;
using testing::HasSubstr;

namespace {

constexpr int kNotInForce = 9;

class InForce : public device_test::Device {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(state());
    output({"card", "add", "1", "--user", "7"});
    start({"--set", "host.door_open_time=100", "--set", "read_interval=250", "--set", "serial_port_timeout=300"});
  }

  // The names of those that stand.
  std::vector<std::string> alarms() const {
    std::vector<std::string> names;
    const json now = status();
    for (const auto& alarm : now.at("alarms")) {
      names.push_back(alarm.at("name"));
    }
    return names;
  }

  // The setting's object of config list --json.
  json listed(const std::string& key) const {
    std::istringstream lines(output({"config", "list", "--json"}));
    for (std::string line; std::getline(lines, line);) {
      if (auto object = json::parse(line); object.at("key") == key) {
        return object;
      }
    }
    return nullptr;
  }

  std::size_t records_of(const std::string& details) const {
    std::istringstream lines(output({"audit", "list", "--json"}));
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
      number += json::parse(line).at("details") == details ? 1 : 0;
    }
    return number;
  }
};

// What another program does to the audit log.
class LockedAuditLog {
 public:
  explicit LockedAuditLog(const std::string& state) : database_(state + "/audit.db", SQLite::OPEN_READWRITE) {
    database_.exec("BEGIN IMMEDIATE");
  }
  void release() { database_.exec("ROLLBACK"); }

 private:
  SQLite::Database database_;
};

// The locked audit log is an alarm of its own.
bool stands(const json& event) { return event.at("standing") && event.at("name") != "disk"; }
bool is_over(const json& event) { return !event.at("standing") && event.at("name") != "disk"; }

}  // namespace

TEST_F(InForce, AModeWhoseRecordCannotBeWrittenIsToldApartAndComesIntoForceOnce) {
  LockedAuditLog lock(state());
  const auto set = command({"config", "set", "uhf", "operation_mode", "inhibit"});
  EXPECT_EQ(set.status, kNotInForce);
  EXPECT_EQ(set.out, "");
  EXPECT_THAT(set.err,
              testing::MatchesRegex("achost: setting uhf.operation_mode is stored as inhibit, but not in force "
                                    "\\(continuous is\\): uhf: the audit log .*/audit.db cannot be used: "
                                    "database is locked; the host tries again until it is\n"));

  const auto get = command({"config", "get", "operation_mode"});
  EXPECT_EQ(get.out, "inhibit\n");
  EXPECT_THAT(
      get.err,
      HasSubstr(
          "achost: setting uhf.operation_mode is stored as inhibit, but not in force (continuous is): uhf: the audit"));
  EXPECT_THAT(output({"config", "list"}), HasSubstr("set, but continuous is in force"));
  EXPECT_EQ(listed("operation_mode").at("value"), "inhibit");
  EXPECT_EQ(listed("operation_mode").at("in_force"), "continuous");
  EXPECT_FALSE(listed("region").contains("in_force"));

  EXPECT_THAT(alarms(), testing::Contains("uhf.operation_mode"));
  EXPECT_EQ(status().at("not_in_force").at(0).at("in_force"), "continuous");
  EXPECT_THAT(output({"status"}), HasSubstr("inhibit (in force: continuous)"));
  EXPECT_EQ(next_event("alarm", stands).at("name"), "uhf.operation_mode");

  lock.release();
  EXPECT_EQ(next_event("alarm", is_over).at("name"), "uhf.operation_mode");
  EXPECT_EQ(command({"config", "get", "operation_mode"}).err, "");
  EXPECT_THAT(alarms(), testing::Not(testing::Contains("uhf.operation_mode")));
  EXPECT_EQ(status().at("not_in_force"), json::array());
  EXPECT_EQ(records_of("Config changed: [uhf]>[operation_mode] [value=inhibit]"), 1U);
}

// The plug-in does not know of the mode yet, so it announces cards whatever the input says.
TEST_F(InForce, NoCardOpensUntilAStoredInhibitIsButTheExitButtonDoes) {
  LockedAuditLog lock(state());
  EXPECT_EQ(command({"config", "set", "operation_mode", "inhibit"}).status, kNotInForce);
  output({"gpio", "set", "1", "1"});
  output({"field", "add", device_test::kKnown});
  EXPECT_EQ(next_event("identification").at("outcome"), "mode_awaited");
  output({"field", "clear"});
  output({"rex"});
  EXPECT_EQ(next_event("door_open").at("reason"), "exit request") << "and not the card";

  lock.release();
  next_event("alarm", is_over);
  output({"field", "add", device_test::kKnown});
  output({"rex"});
  EXPECT_EQ(next_event("door_open").at("reason"), "exit request") << "the plug-in keeps the card back itself";
}

// The record of the change is written before the reader is asked: it is not written again.
TEST_F(InForce, APowerThatTheReaderDoesNotTakeIsToldApartAndComesIntoForceOnce) {
  output({"field", "fault", "silence", "1"});
  const auto set = command({"config", "set", "transmit_power", "2000"});
  EXPECT_EQ(set.status, kNotInForce);
  EXPECT_EQ(set.err,
            "achost: setting uhf.transmit_power is stored as 2000, but not in force (2600 is): uhf: Could no read "
            "Transmit power; the host tries again until it is\n");
  EXPECT_EQ(listed("transmit_power").at("in_force"), "2600");
  EXPECT_EQ(next_event("alarm", stands).at("name"), "uhf.transmit_power");

  output({"field", "fault", "silence", "0"});
  EXPECT_EQ(next_event("alarm", is_over).at("name"), "uhf.transmit_power");
  EXPECT_EQ(listed("transmit_power").count("in_force"), 0U);
  EXPECT_EQ(records_of("Config changed: [uhf]>[transmit_power] [value=2000]"), 1U);
}

TEST_F(InForce, OfACopyThoseThatAreNotAreNamed) {
  output({"field", "fault", "silence", "1"});
  const auto copy = state() + ".txt";
  std::ofstream(copy) << "read_interval=500\ntransmit_power=2500\n";
  const auto imported = command({"config", "import", copy});
  EXPECT_EQ(imported.status, kNotInForce);
  EXPECT_THAT(imported.err,
              HasSubstr("setting uhf.transmit_power is stored as 2500, but not in force (2600 is): uhf: "));
  EXPECT_THAT(imported.err, testing::Not(HasSubstr("read_interval")));
  EXPECT_EQ(output({"config", "get", "read_interval"}), "500\n");
}

TEST_F(InForce, AHandlerThatDoesNotComeBackIsNamedAfterTenSeconds) {
  output({"field", "fault", "silence", "1"});
  LockedAuditLog lock(state());
  // Each of them waits two seconds for the audit log, one after the other.
  const auto copy = state() + ".txt";
  std::ofstream(copy) << "read_interval=500\nread_interval_diff_tags=600\ntransmit_power=2500\ntrigger_timeout=100\n"
                         "probe_interval=20\ntrig_idle=1\nregion=KOREA\nidentification_bits=64\n";
  const auto begin = std::chrono::steady_clock::now();
  const auto imported = command({"config", "import", copy});
  EXPECT_EQ(imported.status, kNotInForce);
  EXPECT_THAT(imported.err, HasSubstr("uhf has not answered for 10 s"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
  lock.release();
}
