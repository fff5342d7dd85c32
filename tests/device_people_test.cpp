// Users and cards of a small door, changed by commands beside the host that runs.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/device_fixture.h"

namespace device_test {

using testing::HasSubstr;

class People : public Device {
 protected:
  // The outcome of the card of user 7, held to the reader.
  json present() {
    output({"field", "add", kKnown});
    auto event = next_event("identification");
    output({"field", "clear"});
    // On a slow machine it was announced once more: what comes before this is not the next one's.
    is_up_ = !is_up_;
    output({"gpio", "set", "9", is_up_ ? "1" : "0"});
    next_event("gpio");
    return event;
  }

  // A file with that content, beside the state.
  std::string file(const std::string& name, const std::string& content) const {
    const std::string path = state() + "-" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  void start_fast() { start({"--set", "read_interval=250"}); }

 private:
  bool is_up_ = false;  // line 9
};

TEST_F(People, WhatACommandChangesCountsForTheNextCardOfAHostThatRuns) {
  start_fast();
  output({"card", "add", "1", "--user", "7"});
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(present().at("outcome"), "opens");
    output({"card", "remove", "1"});
    EXPECT_EQ(present().at("outcome"), "unknown");
    output({"card", "add", "1", "--user", "7"});
    output({"user", "block", "7"});
    EXPECT_EQ(present().at("outcome"), "blocked");
    output({"user", "unblock", "7"});
  }
  output({"user", "put", "7", "--name", "Ana", "--until", "2020-01-01"});
  const auto late = present();
  EXPECT_EQ(late.at("outcome"), "no_longer_valid");
  EXPECT_EQ(late.at("user_name"), "Ana");
  output({"user", "put", "7", "--from", "2200-01-01", "--until", "none"});
  EXPECT_EQ(present().at("outcome"), "not_yet_valid");
  output({"user", "put", "7", "--from", "none"});
  EXPECT_EQ(present().at("outcome"), "opens");
}

TEST_F(People, OutsideHisScheduleAUsersCardOpensNothingAndWhyNamesTheNextWindow) {
  std::filesystem::create_directory(state());
  EXPECT_EQ(output({"schedule", "import",
                    file("s",
                         "name,days,from,to\nalways,mon-sun holiday,00:00,24:00\n"
                         "never,holiday,00:00,24:00\n")}),
            "2 schedules and 0 holidays are stored, in place of those before\n");
  output({"card", "add", "1", "--user", "7"});
  output({"user", "put", "7", "--name", "Ana", "--schedule", "always"});
  start_fast();
  EXPECT_EQ(present().at("outcome"), "opens");
  EXPECT_EQ(output({"user", "put", "7", "--schedule", "never"}), "Ana (7) is changed, in never\n");
  EXPECT_EQ(present().at("outcome"), "outside_schedule");
  EXPECT_THAT(output({"why", "1"}),
              HasSubstr("schedule never of its user Ana (7) was shut, and opens next at no time within a year"));
  EXPECT_THAT(output({"schedule", "list"}), HasSubstr("never     shut  holiday 00:00-24:00"));
  EXPECT_EQ(command({"schedule", "remove", "never"}).err,
            "achost: schedule never is that of Ana (7), and would go: give all who have it another first, such as "
            "--schedule none\n");
  const auto exported = output({"schedule", "export"});
  EXPECT_EQ(output({"schedule", "import", file("s", exported)}),
            "2 schedules and 0 holidays are stored, in place of those before\n");
  EXPECT_THAT(command({"schedule", "import", file("s", "name,days,from,to\nx,mon,8,9\n")}).err,
              HasSubstr(":2: \"8\" is no time of the day: give 00:00 to 23:59"));
  EXPECT_EQ(output({"schedule", "export"}), exported);
  output({"user", "put", "7", "--schedule", "none"});
  EXPECT_EQ(present().at("outcome"), "opens");
  EXPECT_EQ(output({"schedule", "remove", "never"}), "schedule never is removed\n");
}

TEST_F(People, EachChangeIsInTheJournalWithWhoMadeItAlsoWhenNoHostRuns) {
  start_fast();
  const auto office = file("s", "name,days,from,to\noffice,mon-fri,08:00,18:00\n");
  EXPECT_EQ(output({"schedule", "import", office, "--dry-run"}),
            "made schedule office: mon-fri 08:00-18:00\nnothing is stored; it would be 1 schedule and 0 holidays\n");
  EXPECT_EQ(output({"schedule", "list", "--json"}), "");
  output({"card", "add", "1", "--user", "7"});
  output({"schedule", "import", office});
  output({"config", "set", "host.door_open_time=4000"});
  end();
  output({"user", "put", "7", "--name", "Ana", "--schedule", "office"});
  output({"config", "set", "host.door_open_time=5000"});
  EXPECT_THAT(command({"schedule", "import", file("s", "name,days,from,to\n"), "--dry-run"}).err,
              HasSubstr("schedule office is that of Ana (7), and would go"));
  output({"user", "remove", "7"});
  std::vector<std::string> made;
  std::string lines = output({"journal", "--json"});
  for (std::istringstream in(lines); std::getline(in, lines);) {
    const auto entry = json::parse(lines);
    const auto& fields = entry.at("fields");
    if (fields.contains("by_uid") && fields.at("by_uid") == getuid()) {
      made.push_back(entry.at("kind").get<std::string>() + " " + fields.value("change", fields.value("value", "")));
    }
  }
  EXPECT_EQ(made, (std::vector<std::string>{"user_change made", "card_change added", "schedule_change made",
                                            "setting_change 4000", "user_change changed", "setting_change 5000",
                                            "card_change removed", "user_change removed"}));
  EXPECT_EQ(command({"check"}).status, 0);
}

TEST_F(People, BetweenTwoEntriesOfAUserLiesHisPause) {
  start_fast();
  output({"card", "add", "1", "--user", "7"});
  EXPECT_EQ(output({"user", "put", "7", "--pause", "1h 30min"}), "user 7 is changed, 90 min between entries\n");
  EXPECT_EQ(present().at("outcome"), "opens");
  EXPECT_EQ(present().at("outcome"), "too_soon_after_entry");
  EXPECT_THAT(output({"why", "1"}), HasSubstr("its user 7 had come in already, and could again from "));
  output({"user", "put", "7", "--pause", "none"});
  EXPECT_EQ(present().at("outcome"), "opens");
}

// Shortened: five seconds for ten, and six for hours. It is announced once meanwhile: its readings alone tell that it
// stays.
TEST_F(People, ACardThatStaysOpensOnceAndAgainWhenItHasLeft) {
  start({"--set", "read_interval=60000", "--set", "host.away_time=5000"});
  output({"card", "add", "1", "--user", "7"});
  output({"field", "add", kKnown});
  EXPECT_EQ(next_event("identification").at("outcome"), "opens");
  const auto stays_until = std::chrono::steady_clock::now() + std::chrono::seconds(6);
  while (std::chrono::steady_clock::now() < stays_until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  output({"config", "set", "read_interval", "250"});
  EXPECT_EQ(next_event("identification").at("outcome"), "still_here");
  const auto ask = [this] { return json::parse(output({"why", "1", "--json"})); };
  auto why = ask();
  for (int i = 0; i < 100 && why.at("reasons").at(0).at("code") != "still_here";
       ++i) {  // on a busy machine it is later
    why = ask();
  }
  EXPECT_EQ(why.at("reasons").at(0).at("code"), "still_here") << why.at("answer");
  output({"field", "clear"});
  const auto left = next_event("departure");
  EXPECT_EQ(left.at("card"), 1);
  EXPECT_GE(left.at("seconds"), 5);
  output({"field", "add", kKnown});
  EXPECT_EQ(next_event("identification").at("outcome"), "opens");
  end();
  const auto count = [this](const std::string& kind) {
    const auto all = output({"journal", "--kind", kind, "--json"});
    return std::ranges::count(all, '\n');
  };
  EXPECT_EQ(count("opening"), 2);
  EXPECT_LE(count("identification"), 5) << "of an hour it says so a minute";
}

TEST_F(People, AreExportedAndImportedAsTheyWere) {
  std::filesystem::create_directory(state());
  const auto text = file("in.csv", "id,name,card,until\r\n7,\"Ana, \"\"x\"\"\",33,2026-01-31\r\n8,'=B,0x22,\r\n");
  EXPECT_EQ(output({"user", "import", text, "--dry-run"}).substr(0, 20), "add Ana, \"x\" (7), un");
  EXPECT_EQ(output({"user", "list", "--json"}), "");
  EXPECT_THAT(output({"user", "import", text}), testing::StartsWith("users: 2 added, 0 changed, 0 removed"));
  EXPECT_THAT(output({"user", "list"}), HasSubstr("=B"));
  for (const char* const form : {"csv", "jsonl"}) {
    const auto exported = output({"user", "export", "--format", form});
    output({"user", "remove", "7"});
    EXPECT_THAT(output({"user", "import", file("out", exported)}), HasSubstr("users: 1 added"));
    EXPECT_EQ(output({"user", "export", "--format", form}), exported);
  }
}

TEST_F(People, AnImportWithAnErrorNamesTheLineAndStoresNothing) {
  std::filesystem::create_directory(state());
  const auto text = file("in.csv", "id,name,card\n7,Ana,33\n8,Ben,x\n");
  const auto result = command({"user", "import", text});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "achost: " + text + ":3: \"x\" is no card: give a number such as 33 or 0x21\n");
  EXPECT_EQ(output({"user", "list", "--json"}), "");
  EXPECT_EQ(command({"user", "import", state() + "-none"}).err,
            "achost: cannot read " + state() + "-none: No such file or directory\n");
}

std::string many_people(const std::string& name) {
  std::string text = "id,name,card\n";
  for (int i = 1; i <= 3000; ++i) {
    text += std::to_string(i) + "," + name + "," + std::to_string(i) + "\n";
  }
  return text;
}

TEST_F(People, AnImportThatIsKilledIsStoredAsAWholeOrNotAtAll) {
  start();
  const std::string files[] = {file("a.csv", many_people("A")), file("b.csv", many_people("B"))};
  output({"user", "import", files[1]});
  int whole = 0;
  std::string last = "B";
  for (int i = 0; i < 20; ++i) {
    Achost import({"user", "import", files[static_cast<std::size_t>(i % 2)], "--state", state()});
    std::this_thread::sleep_for(std::chrono::milliseconds(3 * i));  // the moment of the kill, not a wait
    import.signal(SIGKILL);
    import.wait();
    const auto exported = output({"user", "export"});
    const bool has_a = exported.find(",A,") != std::string::npos;
    const bool has_b = exported.find(",B,") != std::string::npos;
    EXPECT_NE(has_a, has_b) << "killed after " << 3 * i << " ms";
    whole += last == (has_a ? "A" : "B") ? 0 : 1;
    last = has_a ? "A" : "B";
    EXPECT_EQ(command({"check"}).status, 0);
  }
  std::cout << whole << " of 20 imports were stored before they were killed\n";
}

TEST_F(People, AnImportWhoseHostIsKilledIsStoredAsAWholeOrNotAtAllAndIsThereWhenItWasSaid) {
  std::filesystem::create_directory(state());
  const std::string files[] = {file("a.csv", many_people("A")), file("b.csv", many_people("B"))};
  output({"user", "import", files[1]});
  int said = 0;
  for (int i = 0; i < 10; ++i) {
    start();
    const char* const name = i % 2 == 0 ? ",A," : ",B,";
    Achost import({"user", "import", files[static_cast<std::size_t>(i % 2)], "--state", state()});
    std::this_thread::sleep_for(std::chrono::milliseconds(6 * i));  // the moment of the kill, not a wait
    host().signal(SIGKILL);
    host().wait();
    const bool is_said = import.wait().status == 0;
    const auto exported = output({"user", "export"});
    const bool has_a = exported.find(",A,") != std::string::npos;
    const bool has_b = exported.find(",B,") != std::string::npos;
    EXPECT_NE(has_a, has_b) << "killed after " << 6 * i << " ms";
    EXPECT_TRUE(!is_said || exported.find(name) != std::string::npos) << "killed after " << 6 * i << " ms";
    said += is_said ? 1 : 0;
  }
  std::cout << said << " of 10 imports were said to be stored before the host was killed\n";
}

}  // namespace device_test
