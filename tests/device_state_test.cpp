// What a small door keeps, and what it does when that is damaged, lost or somebody else's.
#include <SQLiteCpp/SQLiteCpp.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "tests/device_fixture.h"

namespace device_test {

using testing::HasSubstr;

TEST_F(Device, AnImportThatIsKilledIsStoredAsAWholeOrNotAtAll) {
  start();
  const std::array<std::string, 2> values = {"600", "700"};
  std::array<std::string, 2> copies;
  for (std::size_t i = 0; i < copies.size(); ++i) {
    copies[i] = state() + values[i] + ".txt";
    std::ofstream copy(copies[i]);
    for (const char* const key : {"read_interval", "trigger_timeout", "serial_port_timeout", "host.door_open_time"}) {
      copy << key << '=' << values[i] << '\n';
    }
  }
  output({"config", "import", copies[1]});
  for (int i = 0; i < 20; ++i) {
    Achost import({"config", "import", copies[static_cast<std::size_t>(i % 2)], "--state", state()});
    std::this_thread::sleep_for(std::chrono::milliseconds(i));  // the moment of the kill, not a wait
    import.signal(SIGKILL);
    import.wait();
    output({"config", "set", "system", "usb_port_enabled", "1"});  // what was asked for before is done by then
    std::set<std::string> stored;
    std::istringstream settings(output({"config", "export"}));
    for (std::string line; std::getline(settings, line);) {
      if (line.ends_with("=600") || line.ends_with("=700")) {
        stored.insert(line.substr(line.find('=')));
      }
    }
    EXPECT_EQ(stored.size(), 1U) << "killed after " << i << " ms";
  }
}

TEST_F(Device, WhatIsInTheStateDirectoryIsForItsUserAlone) {
  const mode_t before = umask(0);
  start();
  output({"card", "add", "1", "--user", "7"});
  output({"config", "set", "read_interval", "500"});
  umask(before);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(state())) {
    names.push_back(entry.path().filename());
    EXPECT_EQ(entry.status().permissions() & std::filesystem::perms(077), std::filesystem::perms::none) << entry.path();
  }
  EXPECT_THAT(names, testing::IsSupersetOf({"settings.db", "settings.db-wal", "settings.db-shm", "audit.db",
                                            "audit.db-wal", "users.db", "lock", "control.sock"}));
  EXPECT_EQ(std::filesystem::status(state()).permissions(), std::filesystem::perms::owner_all);
}

TEST_F(Device, UsersAndCardsAreKeptWithoutAHostToo) {
  std::filesystem::create_directory(state());
  EXPECT_EQ(output({"user", "put", "7", "--name", "Ana \xC3\xA7"}), "Ana \xC3\xA7 (7) is added\n");
  EXPECT_EQ(output({"card", "add", "0x21", "--user", "7"}), "card 33 (0x21) is now of Ana \xC3\xA7 (7)\n");
  EXPECT_EQ(output({"card", "add", "34", "--user", "8"}), "card 34 (0x22) is now of user 8, who is new\n");
  EXPECT_THAT(output({"user", "list"}), testing::ContainsRegex("7 +1 +Ana \xC3\xA7\n8 +1 +\n"));
  EXPECT_EQ(json::parse(output({"user", "list", "--json"}).substr(0, output({"user", "list", "--json"}).find('\n'))),
            json({{"user", 7},
                  {"name", "Ana \xC3\xA7"},
                  {"cards", 1},
                  {"from", nullptr},
                  {"until", nullptr},
                  {"blocked", false},
                  {"schedule", nullptr},
                  {"pause", 0}}));
  EXPECT_THAT(output({"card", "list"}), testing::ContainsRegex("33 +0x21 +7 "));
  const auto taken = command({"card", "add", "33", "--user", "9"});
  EXPECT_EQ(taken.status, 1);
  EXPECT_EQ(taken.err, "achost: card 33 (0x21) is of Ana \xC3\xA7 (7) already: remove it first\n");
  EXPECT_EQ(output({"card", "remove", "33"}), "card 33 (0x21) is taken from Ana \xC3\xA7 (7)\n");
  EXPECT_EQ(command({"card", "remove", "33"}).err, "achost: card 33 (0x21) is nobody's: achost card list shows all\n");
  EXPECT_EQ(output({"user", "remove", "8"}), "user 8 is removed, with 1 card\n");
  EXPECT_EQ(output({"card", "list", "--json"}), "");
  EXPECT_EQ(command({"user", "remove", "8"}).err, "achost: there is no user 8: achost user list shows all\n");
}

TEST_F(Device, ASecondHostIsRefusedWithTheProcessThatHoldsTheState) {
  start();
  const auto result = command({"run", "--plugin", UHF_SO, "--simulate"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("is in use by process " + std::to_string(host().pid())));
  EXPECT_EQ(status().at("plugin"), "uhf") << "the first one is still reached";
}

TEST_F(Device, DamagedDatabasesAreKeptAsideAndSaid) {
  std::filesystem::create_directories(state());
  for (const char* name : {"settings.db", "audit.db", "users.db"}) {
    std::ofstream(state() + "/" + name) << std::string(5000, *name);
  }
  start();
  std::map<std::string, int> kept;
  for (const auto& entry : std::filesystem::directory_iterator(state())) {
    const std::string name = entry.path().filename();
    if (name.find(".damaged-") != std::string::npos) {
      EXPECT_EQ(refhost::test::content_of(entry.path()), std::string(5000, name[0]));
      ++kept[name.substr(0, name.find('.'))];
    }
  }
  EXPECT_EQ(kept, (std::map<std::string, int>{{"audit", 1}, {"settings", 1}, {"users", 1}}));
  const auto errors = end().err;
  for (const char* noun : {"settings database", "audit log", "user database"}) {
    EXPECT_THAT(errors, testing::ContainsRegex(std::string("the ") + noun + " .* is damaged .*: it is kept as "));
  }
}

TEST_F(Device, AnAuditLogWithADamagedPageIsAnAlarmOnceTheDoorReadsAndIsBegunAnew) {
  start();
  end();
  const auto file = state() + "/audit.db";
  SQLite::Database(file, SQLite::OPEN_READWRITE)
      .exec(
          "INSERT INTO audit_logs(time, type, details) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
          "WHERE i < 20000) SELECT 't', 1, 'details that take some room in a page' FROM n");
  std::fstream(file, std::ios::in | std::ios::out).seekp(100 * 4096) << std::string(4096, 'x');
  start();
  const auto alarm = next_event("alarm");
  EXPECT_EQ(alarm.at("name"), "audit.db");
  EXPECT_THAT(std::string(alarm.at("text")), HasSubstr("the audit log " + file + " is damaged ("));
  EXPECT_THAT(status().at("alarms").dump(), HasSubstr("it is kept as " + file + ".damaged-"));
  output({"config", "set", "read_interval", "500"});
  EXPECT_THAT(output({"audit", "list"}), HasSubstr("[value=500]"));
  EXPECT_EQ(command({"check"}).status, 0);
}

TEST_F(Device, AJournalWithADamagedPageIsAnAlarmOnceTheDoorReadsAndItsNumbersGoOn) {
  start();
  end();
  const auto file = state() + "/journal.db";
  SQLite::Database(file, SQLite::OPEN_READWRITE)
      .exec(
          "INSERT INTO entries(kind, at, zone, monotonic, boot, trusted, fields, sum) WITH RECURSIVE n(i) AS "
          "(SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 20000) SELECT 1, i, 0, 0, 1, 0, '{}', 0 FROM n");
  std::fstream(file, std::ios::in | std::ios::out).seekp(100 * 4096) << std::string(4096, 'x');
  start();
  auto alarm = next_event("alarm");
  while (std::string(alarm.at("text")).find("is damaged (") == std::string::npos) {
    alarm = next_event("alarm");  // of the checksums, which are wrong
  }
  EXPECT_EQ(alarm.at("name"), "journal.db");
  EXPECT_THAT(status().at("alarms").dump(), HasSubstr("it is kept as " + file + ".damaged-"));
  output({"rex"});
  EXPECT_THAT(output({"journal", "--json", "--kind", "gap"}), HasSubstr("is damaged ("));
  EXPECT_EQ(output({"journal", "--json", "--after", "0", "--until", "1970-01-02"}), "")
      << "the old ones are kept apart";
  EXPECT_EQ(command({"check"}).status, 0);
}

TEST_F(Device, ADamagedWriteAheadLogIsAnAlarmAndTheDoorOpens) {
  start();
  output({"config", "set", "read_interval", "500"});
  output({"config", "set", "read_interval", "501"});
  host().signal(SIGKILL);
  host().wait();
  EXPECT_EQ(command({"check"}).status, 0);
  std::fstream wal(state() + "/settings.db-wal", std::ios::in | std::ios::out | std::ios::binary);
  constexpr int kInTheFirstFrame = 100;
  wal.seekg(kInTheFirstFrame);
  const int byte = wal.get();
  wal.seekp(kInTheFirstFrame);
  wal.put(static_cast<char>(byte ^ 1));
  wal.close();
  const auto result = command({"check"});
  EXPECT_EQ(result.status, 10);
  EXPECT_THAT(result.out, HasSubstr("settings.db-wal cannot be read, because it is damaged"));
  start();
  EXPECT_THAT(status().at("alarms").dump(), HasSubstr("1 flipped bit hid"));
  EXPECT_EQ(output({"config", "get", "read_interval"}), "501\n");
  output({"rex"});
  EXPECT_EQ(next_event("door_open").is_null(), false);
  EXPECT_EQ(command({"check"}).status, 0) << "also beside a host";
}

TEST_F(Device, CommandsWithoutAHostWaitForEachOther) {
  std::filesystem::create_directory(state());
  std::vector<std::unique_ptr<Achost>> commands;
  for (int i = 1; i <= 8; ++i) {
    const auto number = std::to_string(i);
    commands.push_back(std::make_unique<Achost>(
        std::vector<std::string>{"card", "add", number, "--user", number, "--state", state()}));
  }
  for (auto& command : commands) {
    const auto result = command->wait();
    EXPECT_EQ(result.status, 0) << result.err;
  }
  const auto cards = output({"card", "list", "--json"});
  EXPECT_EQ(std::ranges::count(cards, '\n'), 8) << cards;
}

TEST_F(Device, StoredSettingsThatWouldDisableTheDoorAreNotUsed) {
  std::filesystem::create_directory(state());
  output({"config", "set", "read_interval", "3000"});
  {
    // As an earlier version, which did not refuse them, has stored them.
    SQLite::Database database(state() + "/settings.db", SQLite::OPEN_READWRITE);
    database.exec(
        "ALTER TABLE settings DROP COLUMN sum; PRAGMA user_version = 1;"
        "INSERT INTO settings VALUES('uhf', 'probe_interval', '31000'), ('uhf', 'watchdog_timeout', "
        "'3600000'), ('uhf', 'tag_detector_enabled', '1'), ('uhf', 'tag_detector_relay', '2')");
  }
  start();
  EXPECT_EQ(output({"config", "get", "probe_interval"}), "10\n");
  EXPECT_EQ(output({"config", "get", "watchdog_timeout"}), "1000\n");
  EXPECT_EQ(output({"config", "get", "tag_detector_enabled"}), "0\n");
  for (const auto& wanted :
       std::vector<std::vector<std::string>>{{"probe_interval", "30000"}, {"tag_detector_enabled", "1"}}) {
    EXPECT_EQ(command({"config", "set", wanted[0], wanted[1]}).status, 2) << wanted[0];
  }
  // The detector's relay is the one of the start until the next one.
  output({"config", "set", "tag_detector_relay", "3"});
  EXPECT_EQ(command({"config", "set", "tag_detector_enabled", "1"}).status, 2);
  output({"config", "set", "host", "door_relay", "4"});
  output({"config", "set", "tag_detector_enabled", "1"});
  const auto errors = end().err;
  EXPECT_THAT(errors, HasSubstr("probe_interval 31000 with serial_port_timeout 150 is not possible"));
  EXPECT_THAT(errors, HasSubstr("this run has probe_interval 10"));
  EXPECT_THAT(errors, HasSubstr("this run has tag_detector_enabled 0"));
}

TEST_F(Device, StoredPowerAndChannelsThatTheRegionDoesNotAllowAreNotUsed) {
  std::filesystem::create_directory(state());
  output({"config", "set", "read_interval", "3000"});
  {
    SQLite::Database database(state() + "/settings.db", SQLite::OPEN_READWRITE);
    database.exec(
        "ALTER TABLE settings DROP COLUMN sum; PRAGMA user_version = 1;"
        "INSERT INTO settings VALUES('uhf', 'region', 'europe'), ('uhf', 'transmit_power', '3000')");
  }
  start();
  EXPECT_EQ(output({"config", "get", "transmit_power"}), "2600\n");
  EXPECT_EQ(output({"config", "get", "work_channel"}), "0-10\n");
  EXPECT_EQ(output({"config", "set", "work_channel", "0-14"}), "0-14\n");
  const auto errors = end().err;
  EXPECT_THAT(errors, HasSubstr("this run has transmit_power 2600"));
  EXPECT_THAT(errors, HasSubstr("this run has work_channel 0-10"));
}

TEST_F(Device, ADoorWhoseSettingsAreLostKeepsTheLastGoodOnesOrItsSafestMode) {
  std::filesystem::create_directory(state());
  output({"config", "set", "operation_mode", "trigger"});
  for (const char* const mode : {"trigger", "inhibit"}) {
    std::ofstream(state() + "/settings.db") << std::string(5000, 'x');
    start();
    EXPECT_EQ(output({"config", "get", "operation_mode"}), std::string(mode) + "\n");
    EXPECT_EQ(status().at("settings").at("operation_mode"), mode);
    end();
    std::filesystem::remove(state() + "/settings.good");
  }
}

TEST_F(Device, AuditRecordsAreExported) {
  start();
  output({"config", "set", "transmit_power", "2500"});
  next_event("audit");
  const auto csv = output({"audit", "export", "--format", "csv"});
  EXPECT_THAT(csv, testing::StartsWith("id,written,type,details,time\r\n1,"));
  EXPECT_THAT(csv, HasSubstr(",config,Config changed: [uhf]>[transmit_power] [value=2500],"));
  const auto record = json::parse(output({"audit", "list", "--json", "--last", "1"}));
  EXPECT_EQ(record.at("type"), "config");
  EXPECT_EQ(output({"audit", "list", "--json", "--type", "boot"}), "");
}

TEST_F(Device, ATemporaryStateGoesWithTheRun) {
  const refhost::test::TemporaryDirectory place;
  setenv("TMPDIR", place.path().c_str(), 1);
  const auto result =
      achost::test::achost({"run", "--plugin", UHF_SO, "--temporary-state", "--simulate", "--seconds", "0.3"});
  unsetenv("TMPDIR");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(std::filesystem::is_empty(place.path()));
}

}  // namespace device_test
