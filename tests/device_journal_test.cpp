// The journal of a device in real processes.
#include <SQLiteCpp/SQLiteCpp.h>

#include <sstream>

#include "device_fixture.h"

namespace device_test {
namespace {

using testing::ElementsAre;

class DeviceJournal : public Device {
 protected:
  // The entries of these kinds: "opening exit request".
  std::vector<std::string> entries(const std::vector<std::pair<std::string, std::string>>& kinds_and_fields) {
    std::vector<std::string> words = {"journal", "--json"};
    for (const auto& [kind, field] : kinds_and_fields) {
      words.insert(words.end(), {"--kind", kind});
    }
    const std::map<std::string, std::string> fields(kinds_and_fields.begin(), kinds_and_fields.end());
    std::istringstream lines(output(words));
    std::vector<std::string> found;
    for (std::string line; std::getline(lines, line);) {
      const auto entry = json::parse(line);
      const auto kind = entry.at("kind").get<std::string>();
      found.push_back(kind + " " + entry.at("fields").value(fields.at(kind), ""));
    }
    return found;
  }
};

TEST_F(DeviceJournal, TellsOfARunThatWasKilledAndWhatHappenedInIt) {
  start();
  output({"field", "add", kUnknown});
  next_event("identification");
  output({"rex"});
  next_event("door_open");
  host().signal(SIGKILL);
  host().wait();
  start();
  end();
  EXPECT_THAT(
      entries({{"start", "run_before"}, {"identification", "outcome"}, {"opening", "reason"}, {"end", "reason"}}),
      ElementsAre("start ended", "identification unknown", "opening exit request", "start without an end",
                  "end asked for"));
}

TEST_F(DeviceJournal, WhereItIsRequiredNoCardOpensWhileItCannotBeWrittenAndTheExitButtonDoes) {
  std::filesystem::create_directory(state());
  output({"card", "add", "1", "--user", "7"});
  start({"--set", "host.journal_required=1", "--set", "read_interval=250", "--set", "host.door_open_time=20"});
  {
    SQLite::Database journal(state() + "/journal.db", SQLite::OPEN_READWRITE, 30'000);
    SQLite::Transaction lock(journal, SQLite::TransactionBehavior::IMMEDIATE);
    output({"rex"});
    EXPECT_EQ(next_event("door_open").at("reason"), "exit request");
    const auto alarm = next_event("alarm", [](const json& event) { return event.at("name") == "journal"; });
    EXPECT_THAT(alarm.at("text").get<std::string>(), testing::HasSubstr(state() + "/journal.db"));
    output({"field", "add", kKnown});
    EXPECT_EQ(next_event("identification").at("outcome"), "journal_unwritable");
    output({"rex"});
    EXPECT_EQ(next_event("door_open").at("reason"), "exit request");
  }
  next_event("alarm", [](const json& event) { return event.at("name") == "journal" && !event.at("standing"); });
  next_event("identification", [](const json& event) { return event.at("outcome") == "opens"; });
  EXPECT_EQ(next_event("door_open").at("reason"), "identification");
  end();
}

}  // namespace
}  // namespace device_test
