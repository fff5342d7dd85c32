// Audit records: what is written for each kind of event, and that the inserts take turns.
#include "audit.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>

#include "ac/exception.h"
#include "globals.h"
#include "message_handling.h"

using second_host::Fields;
using second_host::host;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Handler = void (*)(ac::Message*);

class Audit : public testing::Test {
 protected:
  void SetUp() override { host().reset(); }

  static std::string detailsOfChange(const Fields& fields) {
    host().reset();
    EXPECT_EQ(handle(create_config_audit_log_callback, "config_param_set", fields).failure, "");
    const auto records = host().audit_records();
    return records.empty() ? "no record" : records.at(0).details;
  }
};

const std::vector<std::pair<Handler, int>> OF_DETAILS{{create_api_audit_log_callback, 2},
                                                      {create_usb_audit_log_callback, 3},
                                                      {create_network_audit_log_callback, 4},
                                                      {create_online_audit_log_callback, 6},
                                                      {create_menu_audit_log_callback, 7}};

}  // namespace

TEST_F(Audit, DetailsOfTheMessageAreTheRecords) {
  for (const auto& [handler, type] : OF_DETAILS) {
    host().reset();
    const auto handled = handle(handler, "audit_logs_new", {{"details", "what ção \n happened"}});
    ASSERT_EQ(host().audit_records().size(), 1U) << type;
    EXPECT_EQ(host().audit_records()[0].type, type);
    EXPECT_EQ(host().audit_records()[0].details, "what ção \n happened");
    EXPECT_EQ(host().audit_records()[0].time, second_host::kNow);
    EXPECT_FALSE(handled.marked());
  }
}

TEST_F(Audit, WithoutDetailsTheRecordIsWrittenAllTheSame) {
  for (const auto& [handler, type] : OF_DETAILS) {
    host().reset();
    handle(handler, "audit_logs_new");
    handle(handler, "audit_logs_new", {{"details", 5}});
    ASSERT_EQ(host().audit_records().size(), 2U) << type;
    for (const auto& record : host().audit_records()) {
      EXPECT_EQ(record.type, type);
      EXPECT_EQ(record.details, "");
    }
  }
}

TEST_F(Audit, ClockChangeTellsTheTimeBefore) {
  handle(create_time_audit_log_callback, "ac_util_system_clock_set", {{"previous_time", "2024-01-01 10:00:00"}});
  handle(create_time_audit_log_callback, "ac_util_system_clock_set", {{"details", "not read"}});
  ASSERT_EQ(host().audit_records().size(), 2U);
  EXPECT_EQ(host().audit_records()[0].type, 5);
  EXPECT_EQ(host().audit_records()[0].details, "Time changed, previous value was 2024-01-01 10:00:00");
  EXPECT_EQ(host().audit_records()[0].time, second_host::kNow);
  EXPECT_EQ(host().audit_records()[1].details, "Time changed, previous value was ");
}

TEST_F(Audit, BootHasAFixedText) {
  handle(create_boot_audit_log_callback, "audit_logs_new_boot", {{"details", "not read"}});
  create_boot_audit_log_callback(nullptr);
  ASSERT_EQ(host().audit_records().size(), 2U);
  for (const auto& record : host().audit_records()) {
    EXPECT_EQ(record.type, 8);
    EXPECT_EQ(record.details, "Device boot occurred");
  }
}

TEST_F(Audit, ConfigChangeNamesModuleKeyAndValue) {
  handle(
      create_config_audit_log_callback, "config_param_set",
      {{"module", "uhf"}, {"param", "region"}, {"value", "EUROPE"}, {"previous_value", "BRAZIL"}, {"sys_config", 0}});
  ASSERT_EQ(host().audit_records().size(), 1U);
  EXPECT_EQ(host().audit_records()[0].type, 1);
  EXPECT_EQ(host().audit_records()[0].details, "Config changed: [uhf]>[region] [value=EUROPE]");
  EXPECT_EQ(host().audit_records()[0].time, second_host::kNow);
}

TEST_F(Audit, ConfigDetailsByTheFieldsThatAreThere) {
  const std::vector<std::pair<Fields, std::string>> cases{
      {{{"value", "1"}}, "Config changed: [general]>[] [value=1]"},
      {{{"module", ""}, {"param", "p"}, {"value", "1"}}, "Config changed: []>[p] [value=1]"},
      {{{"module", "m"}, {"param", "p"}, {"previous_value", "1"}}, "Config changed: [m]>[p] [value=]"},
      {{{"module", "m"}, {"value", "1"}, {"sys_config", 1}}, "System config changed: [module=m]"},
      {{{"param", "usb_port_enabled"}, {"value", "1"}, {"sys_config", -1}}, "System config changed: [module=general]"},
      {{{"module", ""}, {"value", "1"}, {"sys_config", 1}}, "System config changed: [module=]"},
      {{{"module", "m"}, {"param", "p"}, {"value", "1"}, {"sys_config", "1"}}, "Config changed: [m]>[p] [value=1]"},
  };
  for (const auto& [fields, details] : cases) {
    EXPECT_EQ(detailsOfChange(fields), details);
  }
}

TEST_F(Audit, AChangeToTheSameValueWritesNothing) {
  EXPECT_EQ(detailsOfChange({{"param", "p"}, {"value", "5"}, {"previous_value", "5"}}), "no record");
  EXPECT_EQ(detailsOfChange({{"param", "p"}, {"value", ""}}), "no record") << "a missing text is empty";
  EXPECT_EQ(detailsOfChange({{"param", "p"}}), "no record");
  EXPECT_EQ(detailsOfChange({{"param", "p"}, {"value", "5"}, {"previous_value", "5 "}}),
            "Config changed: [general]>[p] [value=5]");
  EXPECT_EQ(
      detailsOfChange({{"param", "p"}, {"value", std::string("5\0a", 3)}, {"previous_value", std::string("5\0b", 3)}}),
      std::string("Config changed: [general]>[p] [value=5\0a]", 41));
}

TEST_F(Audit, InsertsTakeTurns) {
  std::atomic<int> inside = 0;
  std::atomic<int> most = 0;
  host().on_create([&] {
    most = std::max<int>(most, ++inside);
    EXPECT_FALSE(std::async(std::launch::async, [] { return db_create_mutex.try_lock(); }).get());
    --inside;
  });
  std::vector<std::thread> threads;
  for (const auto handler :
       {create_config_audit_log_callback, create_api_audit_log_callback, create_usb_audit_log_callback,
        create_network_audit_log_callback, create_time_audit_log_callback, create_online_audit_log_callback,
        create_menu_audit_log_callback, create_boot_audit_log_callback}) {
    threads.emplace_back([handler] {
      for (int i = 0; i < 20; ++i) {
        handle(handler, "event", {{"value", "1"}});
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(host().audit_records().size(), 8U * 20U);
  EXPECT_EQ(most, 1);
}

TEST_F(Audit, AFailedInsertLeavesWithItsReasonAndTheMutexFree) {
  host().on_create([] { throw ac::ac_exception("disk full", true); });
  EXPECT_EQ(handle(create_boot_audit_log_callback, "audit_logs_new_boot").failure, "disk full");
  ASSERT_TRUE(db_create_mutex.try_lock());
  db_create_mutex.unlock();
  EXPECT_THAT(host().audit_records(), IsEmpty());
}

TEST_F(Audit, HoldsTheMutexForNothingButTheInsert) {
  db_create_mutex.lock();
  std::thread writer([] { handle(create_boot_audit_log_callback, "audit_logs_new_boot"); });
  EXPECT_TRUE(host().wait_until([] { return !host().calls().empty(); })) << "the time is taken before";
  EXPECT_THAT(host().audit_records(), IsEmpty());
  db_create_mutex.unlock();
  writer.join();
  EXPECT_EQ(host().audit_records().size(), 1U);
}

TEST_F(Audit, EachTypeHasItsLabel) {
  EXPECT_THAT(auditTypeLabels, ElementsAre("[none]", "[config]", "[api]", "[usb]", "[network]", "[time]", "[online]",
                                           "[menu]", "[boot]"));
}
