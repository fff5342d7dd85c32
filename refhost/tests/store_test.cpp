#include "refhost/settings_store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ac/post_office.h"
#include "refhost/subscriber.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

using Access = SettingsStore::Access;

class Store : public testing::Test {
 protected:
  std::filesystem::path state() const { return directory_.path() / "state"; }
  std::filesystem::path file() const { return state() / "settings.db"; }

  // What a process that opens the store later finds.
  std::string stored(const std::string& key) const {
    return SettingsStore(state(), Access::read_only).get("uhf", key).value();
  }

 private:
  TemporaryDirectory directory_;
};

TEST_F(Store, BeginsWithTheDefaults) {
  const SettingsStore store(state(), Access::read_write);
  EXPECT_EQ(store.get("uhf", "region"), "BRAZIL");
  EXPECT_EQ(store.get_int("uhf", "read_interval"), 3000);
  EXPECT_EQ(store.get_int("host", "device_id"), 1);
}

TEST_F(Store, WrittenValueIsThereAfterReopening) {
  SettingsStore(state(), Access::read_write).set("uhf", "read_interval", "4000");
  const SettingsStore store(state(), Access::read_write);
  EXPECT_EQ(store.get("uhf", "read_interval"), "4000");
  EXPECT_EQ(store.get_int("uhf", "read_interval"), 4000);
}

TEST_F(Store, WriteIsInTheFileWhenSetReturns) {
  SettingsStore store(state(), Access::read_write);
  store.set("uhf", "region", "europe");
  EXPECT_EQ(stored("region"), "europe");
}

TEST_F(Store, ValueThatIsNotAllowedChangesNothing) {
  SettingsStore store(state(), Access::read_write);
  store.set("uhf", "transmit_power", "1000");
  EXPECT_THROW(store.set("uhf", "transmit_power", "65536"), SettingError);
  EXPECT_THROW(store.set("uhf", "transmit_powr", "1"), SettingError);
  EXPECT_EQ(store.get_int("uhf", "transmit_power"), 1000);
  EXPECT_EQ(stored("transmit_power"), "1000");
}

TEST_F(Store, ACheckSaysWhatSetWouldAndChangesNothing) {
  SettingsStore store(state(), Access::read_write);
  store.keep({{.of = {{"uhf", "transmit_power"}},
               .fault = [](const auto& values) { return values("uhf", "transmit_power") == "2" ? "too loud" : ""; },
               .safe = {}}});
  store.set("uhf", "transmit_power", "1");
  EXPECT_NO_THROW(store.check({{"uhf", "transmit_power", "3"}}));
  EXPECT_THROW(store.check({{"uhf", "transmit_power", "2"}}), SettingError);
  EXPECT_THROW(store.check({{"uhf", "transmit_power", "65536"}}), SettingError);
  EXPECT_EQ(store.get_int("uhf", "transmit_power"), 1);
}

TEST_F(Store, OverrideIsForThisRunOnly) {
  {
    SettingsStore store(state(), Access::read_write);
    store.override_for_run("uhf", "read_interval", "9000");
    EXPECT_EQ(store.get("uhf", "read_interval"), "9000");
    EXPECT_EQ(store.get_int("uhf", "read_interval"), 9000);
  }
  EXPECT_EQ(stored("read_interval"), "3000");
}

TEST_F(Store, OverrideIsCheckedToo) {
  SettingsStore store(state(), Access::read_write);
  EXPECT_THROW(store.override_for_run("uhf", "read_interval", "soon"), SettingError);
  EXPECT_THROW(store.override_for_run("uhf", "reed_interval", "1"), SettingError);
  EXPECT_EQ(store.get_int("uhf", "read_interval"), 3000);
}

TEST_F(Store, SetAfterAnOverrideStoresTheValueEvenWhenItIsTheSame) {
  SettingsStore store(state(), Access::read_write);
  int changes = 0;
  store.on_change([&](const SettingsStore::Change&) { ++changes; });
  store.override_for_run("uhf", "read_interval", "9000");
  store.set("uhf", "read_interval", "9000");
  EXPECT_EQ(stored("read_interval"), "9000");
  EXPECT_EQ(changes, 0) << "the value of the run did not change";
}

TEST_F(Store, ChangeIsToldWithTheValueBefore) {
  SettingsStore store(state(), Access::read_write);
  std::vector<std::string> changes;
  store.on_change([&](const SettingsStore::Change& change) {
    changes.push_back(change.setting.section + "." + change.setting.key + " " + change.previous_value + ">" +
                      change.value + " stored " + stored(change.setting.key));
  });
  store.set("uhf", "read_interval", "4000");
  store.set("uhf", "read_interval", "5000");
  EXPECT_EQ(changes, std::vector<std::string>(
                         {"uhf.read_interval 3000>4000 stored 4000", "uhf.read_interval 4000>5000 stored 5000"}));
}

TEST_F(Store, SettingTheValueThatItHasIsNoChangeAndWritesNothing) {
  SettingsStore store(state(), Access::read_write);
  int changes = 0;
  store.on_change([&](const SettingsStore::Change&) { ++changes; });
  store.set("uhf", "read_interval", "3000");
  EXPECT_EQ(changes, 0);
  EXPECT_EQ(SQLite::Database(file().string()).execAndGet("SELECT count(*) FROM settings").getInt(), 0);
}

TEST_F(Store, AnnouncesAChangeOnTheBus) {
  Recorder<std::string> announced;
  const Subscriber subscriber("s", {on("config_param_set", [&](ac::Message* m) {
                                std::string text;
                                for (const char* field : {"module", "param", "value", "previous_value"}) {
                                  std::string value = "(missing)";
                                  m->get_string(field, &value);
                                  text += value + " ";
                                }
                                int sys_config = -1;
                                m->get_int("sys_config", &sys_config);
                                announced.add(text + std::to_string(sys_config));
                              })});
  SettingsStore store(state(), Access::read_write);
  store.on_change([](const SettingsStore::Change& change) { ac::PostOffice::send_message(announcement_of(change)); });
  store.set("uhf", "region", "KOREA");
  EXPECT_EQ(announced.wait_for(1), std::vector<std::string>({"uhf region KOREA BRAZIL 0"}));
}

TEST_F(Store, UnknownKeyHasNoValue) {
  const SettingsStore store(state(), Access::read_write);
  EXPECT_EQ(store.get("uhf", "nothing"), std::nullopt);
  EXPECT_EQ(store.get("host", "region"), std::nullopt);
  EXPECT_EQ(store.get_int("uhf", "nothing"), std::nullopt);
}

TEST_F(Store, TextIsNoNumber) {
  const SettingsStore store(state(), Access::read_write);
  EXPECT_EQ(store.get_int("uhf", "region"), std::nullopt);
  EXPECT_EQ(store.get_int("uhf", "work_channel_enable"), std::nullopt);
}

TEST_F(Store, DirectoryAndFileAreForTheUserAlone) {
  const SettingsStore store(state() / "deeper", Access::read_write);
  const auto mode = [](const std::filesystem::path& path) {
    struct stat file {};
    EXPECT_EQ(stat(path.c_str(), &file), 0) << path;
    return file.st_mode & 07777U;
  };
  EXPECT_EQ(mode(state()), 0700U);
  EXPECT_EQ(mode(state() / "deeper"), 0700U);
  EXPECT_EQ(mode(state() / "deeper" / "settings.db"), 0600U);
}

TEST_F(Store, FileIsWrittenThroughALogAndSynchronously) {
  SettingsStore(state(), Access::read_write).set("uhf", "region", "KOREA");
  SQLite::Database database(file().string());
  EXPECT_EQ(database.execAndGet("PRAGMA journal_mode").getString(), "wal");
  EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), 2);
}

TEST_F(Store, ReadOnlyWritesNothing) {
  SettingsStore store(state(), Access::read_only);
  EXPECT_EQ(store.get("uhf", "region"), "BRAZIL");
  EXPECT_THROW(store.set("uhf", "region", "KOREA"), ac::ac_exception);
  EXPECT_EQ(store.get("uhf", "region"), "BRAZIL");
  EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(Store, StoredValueThatIsNotAllowedIsLoggedAndCountsAsTheDefault) {
  { const SettingsStore store(state(), Access::read_write); }
  SQLite::Database(file().string(), SQLite::OPEN_READWRITE)
      .exec(
          "ALTER TABLE settings DROP COLUMN sum; PRAGMA user_version = 1;"  // as an earlier version has it
          "INSERT INTO settings VALUES('uhf', 'transmit_power', 'lots'), ('uhf', 'gone', '1'), "
          "('uhf', 'region', 'KOREA')");
  capture_log();
  const SettingsStore store(state(), Access::read_write);
  const std::string log = captured_log();
  EXPECT_EQ(store.get("uhf", "transmit_power"), "2600");
  EXPECT_EQ(store.get("uhf", "region"), "KOREA");
  EXPECT_NE(log.find("setting transmit_power cannot be \"lots\""), std::string::npos) << log;
  EXPECT_NE(log.find("there is no setting gone"), std::string::npos) << log;
}

class DamagedStore : public Store, public testing::WithParamInterface<Access> {
 protected:
  // Opening fails with a line that names the file and holds the text, and the file stays as it is.
  void expect_refusal(const std::string& text) {
    const std::string before = content_of(file());
    const std::string failure = failure_of([&] { SettingsStore(state(), GetParam()); });
    EXPECT_NE(failure.find(file().string()), std::string::npos) << failure;
    EXPECT_NE(failure.find(text), std::string::npos) << failure;
    EXPECT_EQ(failure.find('\n'), std::string::npos) << failure;
    EXPECT_EQ(content_of(file()), before);
  }
};

TEST_P(DamagedStore, DatabaseOfSomethingElseIsRefused) {
  std::filesystem::create_directories(state());
  SQLite::Database(file().string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE).exec("CREATE TABLE other(a)");
  expect_refusal("is no readable settings database (no such table: settings)");
}

TEST_P(DamagedStore, NewerVersionIsRefused) {
  { const SettingsStore store(state(), Access::read_write); }
  SQLite::Database(file().string(), SQLite::OPEN_READWRITE).exec("PRAGMA user_version = 3");
  expect_refusal("is a settings database of version 3, newer than this program knows (2)");
}

INSTANTIATE_TEST_SUITE_P(BothWays, DamagedStore, testing::Values(Access::read_only, Access::read_write));

TEST_F(Store, FileThatIsNoDatabaseIsRefusedToReadAndKeptAsideToWrite) {
  std::filesystem::create_directories(state());
  std::ofstream(file()) << std::string(5000, 'x');
  EXPECT_NE(failure_of([&] {
              SettingsStore(state(), Access::read_only);
            }).find("restore a copy of it, or move it away with settings.good to begin with the defaults"),
            std::string::npos);
  capture_log();
  SettingsStore store(state(), Access::read_write);
  EXPECT_NE(captured_log().find("it is kept as "), std::string::npos);
  EXPECT_EQ(store.get("uhf", "region"), "BRAZIL");
}

class LostStore : public Store {
 protected:
  std::filesystem::path copy() const { return state() / "settings.good"; }

  void damage() const { std::ofstream(file()) << std::string(5000, 'x'); }

  std::string mode() const {
    return std::string(SettingsStore(state(), Access::read_write).get("uhf", "operation_mode").value());
  }
};

TEST_F(LostStore, GoesOnWithTheLastGoodCopy) {
  {
    SettingsStore store(state(), Access::read_write);
    store.set("uhf", "operation_mode", "trigger");
    store.set("host", "device_id", "12");
  }
  damage();
  capture_log();
  {
    const SettingsStore store(state(), Access::read_write);
    EXPECT_EQ(store.get("uhf", "operation_mode"), "trigger");
    EXPECT_EQ(store.get("host", "device_id"), "12");
  }
  EXPECT_NE(captured_log().find("are those of the last good copy"), std::string::npos);
  EXPECT_EQ(stored("operation_mode"), "trigger") << "and keeps it";
}

TEST_F(LostStore, WithoutAGoodCopyHasItsSafestModeUntilSomebodySaysOtherwise) {
  for (const bool is_there : {false, true}) {
    SettingsStore(state(), Access::read_write).set("uhf", "operation_mode", "trigger");
    damage();
    is_there ? static_cast<void>(std::fstream(copy(), std::ios::in | std::ios::out) << "X")
             : static_cast<void>(std::filesystem::remove(copy()));
    capture_log();
    EXPECT_EQ(mode(), "inhibit");
    EXPECT_NE(captured_log().find("uhf.operation_mode=inhibit holds until achost config set says otherwise"),
              std::string::npos);
    EXPECT_EQ(mode(), "inhibit") << "also at the next start";
  }
  SettingsStore(state(), Access::read_write).set("uhf", "operation_mode", "continuous");
  EXPECT_EQ(mode(), "continuous");
}

// As a flipped bit makes it, which SQLite does not see.
TEST_F(LostStore, ASettingThatIsNotAsItWasStoredIsThatOfTheCopy) {
  SettingsStore(state(), Access::read_write).set("uhf", "operation_mode", "inhibit");
  SQLite::Database(file().string(), SQLite::OPEN_READWRITE).exec("UPDATE settings SET value = 'trigger'");
  EXPECT_EQ(SettingsStore::inspect(state()).faults.size(), 1U);
  capture_log();
  EXPECT_EQ(mode(), "inhibit");
  EXPECT_NE(captured_log().find("is damaged (what is stored is not what was written)"), std::string::npos);
  EXPECT_TRUE(SettingsStore::inspect(state()).faults.empty());
}

TEST_F(LostStore, WhatACrashDuringTheRepairLeftIsTheCopyToo) {
  SettingsStore(state(), Access::read_write).set("uhf", "operation_mode", "trigger");
  std::filesystem::remove(file());
  EXPECT_EQ(mode(), "trigger") << "the damaged file has left its place, no other has taken it";
  SQLite::Database(file().string(), SQLite::OPEN_READWRITE).exec("DELETE FROM settings");
  EXPECT_EQ(mode(), "trigger") << "the new one is still empty";
}

TEST_F(LostStore, TheCopyIsForItsOwnerAloneAndOfASoundFile) {
  SettingsStore(state(), Access::read_write).set("uhf", "operation_mode", "trigger");
  EXPECT_EQ(std::filesystem::status(copy()).permissions() & std::filesystem::perms(0777), std::filesystem::perms(0600));
  std::filesystem::remove(copy());
  EXPECT_EQ(mode(), "trigger");
  EXPECT_TRUE(std::filesystem::exists(copy())) << "made anew at the next start";
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(state())) {
    ++files;
  }
  EXPECT_EQ(files, 2U) << "the database and its copy";
}

TEST_F(Store, FailedWriteChangesNothing) {
  SettingsStore store(state(), Access::read_write);
  SQLite::Database other(file().string(), SQLite::OPEN_READWRITE);
  other.exec("DROP TABLE settings");
  const std::string failure = failure_of([&] { store.set("uhf", "region", "KOREA"); });
  EXPECT_NE(failure.find(file().string()), std::string::npos) << failure;
  EXPECT_EQ(store.get("uhf", "region"), "BRAZIL");
}

TEST_F(Store, ManyThreadsReadAndWrite) {
  SettingsStore store(state(), Access::read_write);
  std::atomic<bool> stop{false};
  std::vector<std::jthread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        const int number = store.get_int("uhf", "read_interval").value();
        ASSERT_TRUE(number == 3000 || (number >= 5000 && number < 5020)) << number;
        ASSERT_EQ(store.get("uhf", "read_interval")->size(), 4U);
      }
    });
  }
  for (int i = 0; i < 20; ++i) {
    store.set("uhf", "read_interval", std::to_string(5000 + i));
  }
  stop = true;
}

}  // namespace
}  // namespace refhost::test
