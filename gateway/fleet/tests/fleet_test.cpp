// achost-fleet as a process, a real broker, and doors that are none.
#include <algorithm>
#include <atomic>

#include "gateway/fleet/entry_line.h"
#include "gateway/fleet/tests/fleet_fixture.h"

namespace fleet::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr const char* kPeople = "id,name,card\n7,Ana,33\n8,Lena,44\n";

TEST_F(Fleet, ListsDoorsAsTheyAre) {
  const TestDoor open(broker_, "gate-1", {{"lock", "open"}, {"revision", 3}, {"drift", 2}});
  { const TestDoor gone(broker_, "gate-2"); }
  const auto lines = output({"list"});
  const auto first = Json::parse(lines.substr(0, lines.find('\n')));
  EXPECT_EQ(first.at("door"), "gate-1");
  EXPECT_EQ(first.at("online"), true);
  EXPECT_EQ(first.at("lock"), "open");
  const auto second = Json::parse(lines.substr(lines.find('\n') + 1));
  EXPECT_EQ(second.at("door"), "gate-2");
  EXPECT_EQ(second.at("online"), false);
  EXPECT_EQ(output({"list", "*-2"}), lines.substr(lines.find('\n') + 1));
}

// Of what a door has told, and the broker keeps, the newest.
TEST_F(Fleet, ADoorThatHasGoneWasSeenWhenItToldSomethingLast) {
  { const TestDoor gone(broker_, "gate-1"); }
  EXPECT_EQ(Json::parse(output({"list"})).at("seen"), TestDoor::kSeen);
  for (const auto& [what, at] : {std::pair("figures", 60'000), std::pair("health", 90'000)}) {
    broker_.stranger("mosquitto_pub", "gate-1",
                     {"-t", mqtt::topics::of("gate-1", what), "-r", "-m", Json{{"at", TestDoor::kSeen + at}}.dump()});
    EXPECT_EQ(Json::parse(output({"list"})).at("seen"), TestDoor::kSeen + at) << what;
  }
}

TEST_F(Fleet, ListsDoorsInATableOnATerminal) {
  const TestDoor door(broker_, "gate-1", {{"revision", 3}, {"alarms", {"x"}}});
  broker_.stranger("mosquitto_pub", "centre",
                   {"-t", "doors/gate-1/desired", "-r", "-m", R"({"revision":4,"parts":[]})"});
  achost::test::Achost list(ACHOST_FLEET, words({"list"}), achost::test::Output::terminal);
  EXPECT_THAT(list.next_line(), StartsWith("DOOR    IS      READER     LOCK    REVISION  DRIFT  ALARMS  LAST SEEN"));
  EXPECT_THAT(list.next_line(), StartsWith("gate-1  online  answering  closed  3 of 4    0      1       now"));
}

TEST_F(Fleet, AnEntryIsALineOnATerminal) {
  EXPECT_EQ(entry_line("gate-1", {{"time", "2026-11-22T10:40:11.123+01:00"},
                                  {"kind", "identification"},
                                  {"card", "33"},
                                  {"fields", {{"outcome", "a\033[2Jb"}, {"also", 7}, {"fates", Json::array()}}}}),
            "2026-11-22 10:40:11  gate-1  identification  card=33  outcome=a?[2Jb  also=7");
  EXPECT_EQ(entry_line("gate-1", Json::object()), "-  gate-1  -");
}

TEST_F(Fleet, ADifferenceIsALineForAPerson) {
  EXPECT_EQ(drift_line({{"user", 7},
                        {"desired", {{"name", "Ana"}, {"cards", {"33"}}}},
                        {"stored", {{"name", "Eve"}, {"cards", {"33"}}}}}),
            "user 7: name is Eve, wanted Ana");
  EXPECT_EQ(drift_line({{"user", 7}, {"desired", nullptr}, {"stored", {{"name", "Eve"}}}}), "user 7 is not wanted");
  EXPECT_EQ(drift_line({{"user", 7}, {"desired", {{"name", "Ana"}}}, {"stored", nullptr}}), "user 7 is not there");
  EXPECT_EQ(drift_line({{"setting", "uhf.region"}, {"desired", "EU"}, {"stored", "US"}}),
            "setting uhf.region is US, wanted EU");
}

TEST_F(Fleet, ADriftIsShownAsTheDoorTellsIt) {
  TestDoor door(broker_, "gate-1");
  door.answer("drift", {{"revision", 3},
                        {"lines", {{{"drift", {{"user", 7}, {"desired", nullptr}, {"stored", {{"name", "Eve"}}}}}}}}});
  const auto line = Json::parse(output({"drift"}));
  EXPECT_EQ(line.at("door"), "gate-1");
  EXPECT_EQ(line.at("lines").at(0).at("drift").at("user"), 7);
}

TEST_F(Fleet, ANameThatNoDoorHasIsRefusedWithThoseThatThereAre) {
  const TestDoor door(broker_, "gate-1");
  for (const auto& command : std::vector<std::vector<std::string>>{{"list", "gat-*"},
                                                                   {"open", "gat-1"},
                                                                   {"why", "gat-1", "33"},
                                                                   {"drift", "gat-1"},
                                                                   {"mode", "gat-*", "locked"}}) {
    const auto result = run(command);
    EXPECT_EQ(result.status, 2) << command.front();
    EXPECT_THAT(result.err, AllOf(HasSubstr("no door is called"), HasSubstr("there are gate-1"))) << command.front();
  }
}

TEST_F(Fleet, WhatKeepsItFromTheBrokerIsSaid) {
  const auto nobody = achost::test::run_program(ACHOST_FLEET, {"list", "--broker", "localhost:1"});
  EXPECT_EQ(nobody.status, 4);
  EXPECT_THAT(nobody.err, HasSubstr("localhost:1"));
  const auto no_port = achost::test::run_program(ACHOST_FLEET, {"list", "--broker", "localhost:x"});
  EXPECT_EQ(no_port.status, 2);
  EXPECT_THAT(no_port.err, HasSubstr("localhost:x"));
  const mqtt::test::Authority foreign("foreign");
  foreign.sign("centre");
  const auto refused = achost::test::run_program(
      ACHOST_FLEET, {"list", "--broker", broker_.address(), "--ca", broker_.file("ca.pem"), "--certificate",
                     foreign.file("centre.pem"), "--key", foreign.file("centre.key")});
  EXPECT_EQ(refused.status, 4);
  EXPECT_THAT(refused.err, HasSubstr("certificate"));
  const auto no_file =
      achost::test::run_program(ACHOST_FLEET, {"list", "--broker", broker_.address(), "--ca", "/nowhere/ca.pem"});
  EXPECT_THAT(no_file.err, HasSubstr("/nowhere/ca.pem"));
}

TEST_F(Fleet, OptionsMayStandInAFile) {
  const TestDoor door(broker_, "gate-1");
  const auto config = written("options", "broker=" + broker_.address() + "\nca=" + broker_.file("ca.pem") +
                                             "\ncertificate=" + broker_.file("centre.pem") +
                                             "\nkey=" + broker_.file("centre.key") + "\n");
  const auto result = achost::test::run_program(ACHOST_FLEET, {"list", "--config", config});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("gate-1"));
  const auto wrong = achost::test::run_program(ACHOST_FLEET, {"list", "--config", written("wrong", "brocker=x\n")});
  EXPECT_EQ(wrong.status, 2);
  EXPECT_THAT(wrong.err, HasSubstr("brocker"));
}

TEST_F(Fleet, APushIsWhatEachOfTheDoorsHas) {
  const TestDoor one(broker_, "gate-1");
  const TestDoor two(broker_, "gate-2");
  const TestDoor other(broker_, "yard");
  const auto out = output({"push", written("people.csv", kPeople), "--to", "gate-*", "--schedules",
                           written("s.csv", "name,days,from,to\noffice,mon,08:00,18:00\n"), "--settings",
                           written("set.conf", "read_interval=900\n")});
  EXPECT_THAT(out, HasSubstr(R"({"door":"gate-1","revision":1,"applied":true})"));
  EXPECT_THAT(out, HasSubstr(R"({"door":"gate-2","revision":1,"applied":true})"));
  Document wanted;
  wanted.users = user_lines(kPeople, "");
  wanted.schedules = schedule_lines("name,days,from,to\noffice,mon,08:00,18:00\n", "");
  wanted.settings = setting_lines("read_interval=900\n", "");
  EXPECT_EQ(one.document(), wanted);
  EXPECT_EQ(two.document(), wanted);
  EXPECT_EQ(other.document(), Document());
}

TEST_F(Fleet, OfAChangedCardOnlyItsPartIsSentAndTheOldOneGoes) {
  const TestDoor door(broker_, "gate-1");
  std::string people = "id,name,card\n";
  for (int id = 1; id <= 3000; ++id) {
    people += std::to_string(id) + ",Somebody with a name," + std::to_string(id + 1'000'000) + "\n";
  }
  output({"push", written("people.csv", people), "--to", "gate-1"});
  const auto before = door.fetched();
  EXPECT_GT(before, 3U);
  people.replace(people.find("1000007"), 7, "5");
  const auto out = output({"push", written("people.csv", people), "--to", "gate-1"});
  EXPECT_THAT(out, AllOf(HasSubstr(R"("change":"users: 1 changed")"), HasSubstr(R"("parts":1)")));
  EXPECT_EQ(door.fetched(), before + 1);
  EXPECT_EQ(door.document().users, user_lines(people, ""));
  EXPECT_EQ(retained("doors/gate-1/desired/parts/+").size(), before);
}

TEST_F(Fleet, WhatIsNotGivenStaysAsItWas) {
  const TestDoor door(broker_, "gate-1");
  output({"push", written("people.csv", kPeople), "--to", "gate-1", "--settings",
          written("set.conf", "read_interval=900\n")});
  output({"push", "--to", "gate-1", "--settings", written("set.conf", "read_interval=800\n")});
  EXPECT_EQ(door.document().users, user_lines(kPeople, ""));
  EXPECT_EQ(door.document().settings, setting_lines("read_interval=800\n", ""));
}

TEST_F(Fleet, SchedulesAreTheDoorsOwnUntilSomethingIsSaidOfThem) {
  const TestDoor door(broker_, "gate-1");
  const auto people = written("people.csv", kPeople);
  output({"push", people, "--to", "gate-1"});
  EXPECT_FALSE(door.document().schedules.has_value());
  output({"push", "--to", "gate-1", "--schedules", written("s.csv", "name,days,from,to\n")});
  EXPECT_EQ(door.document().schedules, std::set<std::string>());
  output({"push", people, "--to", "gate-1"});
  EXPECT_EQ(door.document().schedules, std::set<std::string>()) << "what was said of them stays";
}

TEST_F(Fleet, ThatMostOfThePeopleGoIsSaidOnPurpose) {
  const TestDoor door(broker_, "gate-1");
  const auto nobody = written("nobody.csv", "id,name,card\n");
  EXPECT_THAT(run({"push", nobody, "--to", "gate-1"}).err, HasSubstr("--remove-most")) << "whoever is there";
  EXPECT_THAT(retained("doors/gate-1/desired/#"), IsEmpty());
  const std::string four = "id,name,card\n7,Ana,33\n8,Lena,44\n9,Ben,55\n10,Carl,66\n";
  output({"push", written("people.csv", four), "--to", "gate-1"});
  const auto half = written("half.csv", four.substr(0, four.find("8,")));  // a copy that was ended too early
  for (const auto& table : {half, nobody}) {
    const auto result = run({"push", table, "--to", "gate-1"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("is the table whole?"));
    EXPECT_THAT(output({"push", table, "--to", "gate-1", "--dry-run"}), HasSubstr("remove Lena (8)"));
  }
  EXPECT_EQ(door.document().users, user_lines(four, ""));
  output({"push", half, "--to", "gate-1", "--remove-most"});
  EXPECT_EQ(door.document().users.size(), 1U);
  output({"push", nobody, "--to", "gate-1", "--remove-most"});
  EXPECT_TRUE(door.document().users.empty());
  EXPECT_EQ(run({"push", "--to", "gate-1", "--settings", written("set.conf", "read_interval=900\n")}).status, 0)
      << "which is of nobody";
}

TEST_F(Fleet, WhatStaysIsWhatItsNameSays) {
  const TestDoor door(broker_, "gate-1");
  output({"push", written("people.csv", kPeople), "--to", "gate-1"});
  const auto parts = retained("doors/gate-1/desired/parts/+");
  ASSERT_EQ(parts.size(), 1U);
  broker_.stranger("mosquitto_pub", "centre", {"-r", "-t", parts.begin()->first, "-m", R"({"user":666})"});
  const auto result = run({"push", "--to", "gate-1", "--settings", written("set.conf", "read_interval=800\n")});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("push with --anew"));
}

TEST_F(Fleet, TheFirstPushToADoorHasPeople) {
  const TestDoor door(broker_, "gate-1");
  const auto result = run({"push", "--to", "gate-1", "--settings", written("set.conf", "read_interval=800\n")});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("all who are there would go"));
  EXPECT_THAT(retained("doors/gate-1/desired/#"), IsEmpty());
}

TEST_F(Fleet, TheSameAgainIsNoNewRevision) {
  const TestDoor door(broker_, "gate-1");
  output({"push", written("people.csv", kPeople), "--to", "gate-1"});
  const auto out = output({"push", written("people.csv", kPeople), "--to", "gate-1"});
  EXPECT_THAT(out, AllOf(HasSubstr(R"("revision":1)"), Not(HasSubstr("applied"))));
  EXPECT_THAT(output({"push", written("people.csv", kPeople), "--to", "gate-1", "--anew"}),
              HasSubstr(R"({"door":"gate-1","revision":2,"applied":true})"));
}

TEST_F(Fleet, ADryRunTellsAndChangesNothing) {
  const TestDoor door(broker_, "gate-1");
  EXPECT_THAT(output({"push", written("people.csv", kPeople), "--to", "gate-1", "--dry-run"}),
              HasSubstr("add Ana (7)"));
  EXPECT_THAT(retained("doors/gate-1/desired/#"), IsEmpty());
}

TEST_F(Fleet, ADoorThatIsAwayTakesItLater) {
  { const TestDoor gone(broker_, "gate-1"); }
  const auto result = run({"push", written("people.csv", kPeople), "--to", "gate-1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr(R"("applied":null)"));
  const TestDoor back(broker_, "gate-1");
  EXPECT_TRUE(comes_true([&] { return back.document().users == user_lines(kPeople, ""); }));
}

TEST_F(Fleet, ADoorThatHasNotJoinedIsNamedOnPurpose) {
  const auto people = written("people.csv", kPeople);
  EXPECT_EQ(run({"push", people, "--to", "gate-1"}).status, 2);
  EXPECT_EQ(run({"push", people, "--to", "gate-*", "--new"}).status, 2);
  EXPECT_EQ(run({"push", people, "--to", "gate-1", "--new"}).status, 0);
  const TestDoor door(broker_, "gate-1");
  EXPECT_TRUE(comes_true([&] { return door.document().users == user_lines(kPeople, ""); }));
}

TEST_F(Fleet, ADoorThatRefusesIsAFailure) {
  TestDoor door(broker_, "gate-1");
  door.refuse("no room on the disk");
  const auto result = run({"push", written("people.csv", kPeople), "--to", "gate-1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("no room on the disk"));
}

TEST_F(Fleet, AWrongTableChangesNothing) {
  const TestDoor door(broker_, "gate-1");
  const auto wrong = run({"push", written("people.csv", "id,card\n7,x\n"), "--to", "gate-1"});
  EXPECT_EQ(wrong.status, 2);
  EXPECT_THAT(wrong.err, HasSubstr("people.csv:2: "));
  const auto missing = run({"push", broker_.file("nowhere.csv"), "--to", "gate-1"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(missing.err, HasSubstr("nowhere.csv"));
  EXPECT_EQ(run({"push", "--to", "gate-1"}).status, 2);
  EXPECT_THAT(retained("doors/gate-1/desired/#"), IsEmpty());
}

TEST_F(Fleet, ARequestSaysWhoAsksAndWhen) {
  TestDoor door(broker_, "gate-1");
  const TestDoor other(broker_, "gate-2");
  EXPECT_THAT(output({"open", "gate-1"}), HasSubstr(R"("ok":true)"));
  const Json asked = door.asked("open");
  EXPECT_EQ(asked.at("by"), "centre");
  EXPECT_GT(asked.at("at").get<std::int64_t>(), 1'700'000'000'000);
  EXPECT_TRUE(other.asked("open").is_null());
  output({"mode", "gate-*", "locked", "--for", "10min"});
  EXPECT_EQ(door.asked("mode").at("mode"), "locked");
  EXPECT_EQ(door.asked("mode").at("seconds"), 600);
  EXPECT_EQ(other.asked("mode").at("mode"), "locked");
  output({"mode", "gate-1", "normal"});
  EXPECT_FALSE(door.asked("mode").contains("seconds"));
}

TEST_F(Fleet, TheStoryOfACardIsTheDoors) {
  TestDoor door(broker_, "gate-1");
  door.answer("why", {{"text", "card 33 was nobody's\n"}});
  EXPECT_THAT(output({"why", "gate-1", "0x21", "--last", "1h"}), HasSubstr("card 33 was nobody's"));
  const Json asked = door.asked("why");
  EXPECT_EQ(asked.at("card"), "33");
  EXPECT_EQ(asked.at("to").get<std::int64_t>() - asked.at("from").get<std::int64_t>(), 3'601'000);
  EXPECT_EQ(run({"why", "gate-1", "what"}).status, 2);
}

TEST_F(Fleet, WhatADoorRefusesIsAFailureWithItsWords) {
  TestDoor door(broker_, "gate-1");
  door.answer("open", {{"ok", false}, {"error", "the door is locked"}});
  const auto result = run({"open", "gate-1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.out, HasSubstr("the door is locked"));
}

TEST_F(Fleet, ADoorThatIsAwayIsNotAsked) {
  { const TestDoor gone(broker_, "gate-1"); }
  const auto result = run({"open", "gate-1"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("gate-1 is offline"));
}

TEST_F(Fleet, EachEntryIsShownOnce) {
  TestDoor door(broker_, "gate-1");
  TestDoor other(broker_, "yard");
  achost::test::Achost watch(ACHOST_FLEET, words({"watch", "gate-*"}));
  const auto entry = [](int number) {
    return Json{{"number", number}, {"kind", "opening"}, {"boot", "b"}, {"fields", Json::object()}};
  };
  std::atomic<bool> is_over = false;
  std::thread again([&] {  // what is told before it listens is not for it
    for (int number = 1; !is_over; ++number) {
      other.tell("journal/opening", entry(number));
      door.tell("live/opening", entry(number + 1));
      door.tell("journal/opening", entry(number));
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  std::set<std::int64_t> numbers;
  for (int line = 0; line < 20; ++line) {
    EXPECT_TRUE(numbers.insert(Json::parse(watch.next_line()).at("number").get<std::int64_t>()).second);
  }
  is_over = true;
  again.join();
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait().status, 0);
}

}  // namespace
}  // namespace fleet::test
