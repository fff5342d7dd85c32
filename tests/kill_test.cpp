// The host is killed, without a chance to do anything, while settings, audit records and enrollments are written and
// the door opens. What it had acknowledged is there afterwards, every opening is in the journal, and the databases open
// clean.
//
// The environment variable KILLS gives how often.
#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "door/control/control.h"
#include "door/journal/journal.h"
#include "door/services/user_store.h"
#include "door/tests/process.h"
#include "refhost/audit_log.h"
#include "refhost/settings_store.h"
#include "refhost/tests/support.h"

using achost::ControlClient;
using achost::Json;
using achost::test::Achost;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kLongestLife(USUAL_LIFE);  // of a host once it is ready

// What a host has acknowledged. Each member is written by one thread and read when that has ended.
struct Acknowledged {
  std::map<std::int64_t, std::string> records;  // details by number
  std::map<std::uint64_t, std::int64_t> cards;  // users
  std::string setting, attempted;
  int changes = 0;   // of settings
  int openings = 0;  // of the door, that were seen
};

// Each request with its answer, until the host has gone.
template <class Step>
void until_the_end(const std::filesystem::path& state, Step step) {
  try {
    ControlClient client(state);
    for (;;) {
      step(client);
    }
  } catch (const ac::ac_exception&) {  // killed
  }
}

void change_settings(const std::filesystem::path& state, std::size_t& number, Acknowledged& acknowledged) {
  until_the_end(state, [&](ControlClient& client) {
    acknowledged.attempted = std::to_string(1000 + ++number % 60'000);
    client.send({{"command", "config_set"},
                 {"section", "uhf"},
                 {"key", "read_interval_diff_tags"},
                 {"value", acknowledged.attempted}});
    if (client.receive().at("ok").get<bool>()) {
      acknowledged.setting = acknowledged.attempted;
      ++acknowledged.changes;
    }
  });
}

// A record is announced once it is written.
void follow_records(const std::filesystem::path& state, Acknowledged& acknowledged) {
  until_the_end(state, [&](ControlClient& client) {
    static const Json kFollow{{"command", "events"}, {"types", "audit_log_created"}};
    client.send(kFollow);
    for (;;) {
      const Json event = client.receive();
      if (event.contains("fields")) {
        const auto& fields = event.at("fields");
        acknowledged.records[fields.at("id")] = fields.at("details");
      }
    }
  });
}

// The exit button, each time that the door has closed again.
void open_door(const std::filesystem::path& state, Acknowledged& acknowledged) {
  until_the_end(state, [&](ControlClient& button) {
    ControlClient door(state);
    static const Json kWatch{{"command", "events"}, {"types", "door_state"}};
    door.send(kWatch);
    door.receive();
    for (;;) {
      button.send({{"command", "rex"}});
      button.receive();
      for (bool is_open = true; is_open;) {
        const Json event = door.receive();
        is_open = event.at("fields").at("open") == 1;
        acknowledged.openings += is_open ? 1 : 0;
      }
    }
  });
}

std::string epc_of(std::size_t number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "E2801170%016zX", number);
  return text.data();
}

// A card for each enrollment, held to the reader while it runs.
void enroll(const std::filesystem::path& state, std::size_t& number, Acknowledged& acknowledged) {
  until_the_end(state, [&](ControlClient& client) {
    const auto user = static_cast<std::int64_t>(++number);
    client.send({{"command", "enroll"}, {"user", user}, {"wait", true}});
    ControlClient field(state);
    field.send({{"command", "field"}, {"line", "add " + epc_of(number)}});
    field.receive();
    const Json answer = client.receive();
    if (answer.at("ok").get<bool>()) {
      acknowledged.cards[answer.at("card")] = user;
    }
    field.send({{"command", "field"}, {"line", "clear"}});
    field.receive();
  });
}

class Kill : public testing::Test {
 protected:
  std::filesystem::path state() const { return directory_.path() / "state"; }

  // A host that answers, with its plug-in running.
  std::unique_ptr<Achost> start() const {
    auto host = std::make_unique<Achost>(
        std::vector<std::string>{"run", "--plugin", UHF_SO, "--state", state(), "--json", "--simulate", "--interactive",
                                 "--set", "probe_interval=1", "--set", "read_interval=250", "--set",
                                 "host.enroll_timeout=1000", "--set", "host.door_open_time=20"});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline && !is_ready()) {
      std::this_thread::sleep_for(milliseconds(2));
    }
    return host;
  }

  // What one host has acknowledged before it was killed.
  Acknowledged live_and_die(milliseconds life) {
    const auto host = start();
    Acknowledged acknowledged;
    std::thread settings([&] { change_settings(state(), settings_, acknowledged); });
    std::thread records([&] { follow_records(state(), acknowledged); });
    std::thread door([&] { open_door(state(), acknowledged); });
    std::thread cards([&] { enroll(state(), users_, acknowledged); });
    std::this_thread::sleep_for(life);
    host->signal(SIGKILL);
    settings.join();
    records.join();
    cards.join();
    door.join();
    host->wait();
    return acknowledged;
  }

  void check(const Acknowledged& acknowledged) {
    std::map<std::int64_t, std::string> records;
    refhost::AuditLog::read(state(), {}, [&](const refhost::AuditEntry& entry) {
      EXPECT_EQ(entry.id, static_cast<std::int64_t>(records.size()) + 1) << "a hole in the audit log";
      records[entry.id] = entry.record.details;
    });
    for (const auto& [id, details] : acknowledged.records) {
      EXPECT_EQ(records[id], details) << "audit record " << id;
    }
    const achost::UserStore users(state(), achost::UserStore::Access::read_only);
    for (const auto& [card, user] : acknowledged.cards) {
      EXPECT_EQ(users.owner_of(card), user) << "card " << card;
    }
    const refhost::SettingsStore settings(state(), refhost::SettingsStore::Access::read_only);
    const auto stored = settings.get("uhf", "read_interval_diff_tags");
    if (!acknowledged.setting.empty()) {
      EXPECT_THAT(stored, testing::AnyOf(acknowledged.setting, acknowledged.attempted));
    }
    check_journal(acknowledged);
    for (const auto& entry : std::filesystem::directory_iterator(state())) {
      EXPECT_EQ(entry.path().string().find("damaged"), std::string::npos) << entry.path();
    }
  }

 private:
  // Of what was noted nothing is lost: neither an opening whose relay has moved, nor a change that was answered.
  void check_journal(const Acknowledged& acknowledged) {
    { const achost::Journal takes_what_the_spool_has(state()); }
    std::map<achost::Kind, int> counts;
    last_entry_ = achost::Journal::read(state(), {.after = last_entry_},
                                        [&](const achost::JournalEntry& entry) { ++counts[entry.entry.kind]; });
    EXPECT_GE(counts[achost::Kind::opening], acknowledged.openings);
    EXPECT_LE(counts[achost::Kind::opening], acknowledged.openings + 1) << "one may have been under way";
    EXPECT_GE(counts[achost::Kind::setting_change], acknowledged.changes);
    EXPECT_EQ(counts[achost::Kind::start], 1);
    EXPECT_EQ(counts[achost::Kind::gap], 0);
    EXPECT_THAT(achost::Journal::inspect(state()).faults, testing::IsEmpty());
  }

  bool is_ready() const {
    try {
      ControlClient client(state());
      client.send({{"command", "status"}});
      return !client.receive().at("plugin").is_null();
    } catch (const ac::ac_exception&) {
      return false;
    }
  }

  refhost::test::TemporaryDirectory directory_;
  std::size_t settings_ = 0;
  std::size_t users_ = 0;
  std::int64_t last_entry_ = 0;
};

}  // namespace

TEST_F(Kill, WhatWasAcknowledgedIsThereAfterwards) {
  const char* const wanted = std::getenv("KILLS");
  const int kills = wanted == nullptr ? USUAL_KILLS : std::atoi(wanted);
  std::mt19937 random(1);
  std::size_t records = 0;
  std::size_t cards = 0;
  int settings = 0;
  int openings = 0;
  for (int i = 0; i < kills; ++i) {
    const auto acknowledged = live_and_die(milliseconds(random() % static_cast<unsigned>(kLongestLife.count())));
    check(acknowledged);
    ASSERT_FALSE(HasFailure()) << "kill " << i;
    records += acknowledged.records.size();
    cards += acknowledged.cards.size();
    openings += acknowledged.openings;
    settings += acknowledged.setting.empty() ? 0 : 1;
  }
  std::cout << kills << " kills: " << records << " audit records, " << cards << " enrolled cards and " << settings
            << " last settings were acknowledged, the door opened " << openings << " times, and none was lost\n";
  EXPECT_GT(records, static_cast<std::size_t>(kills));
  EXPECT_GT(cards, static_cast<std::size_t>(kills) / 10);
  EXPECT_GT(settings, kills / 2);
  EXPECT_GT(openings, kills / 2);
}
