#include "gateway/fleet/document.h"

#include <gmock/gmock.h>

#include "cli/failure.h"
#include "gateway/fleet/change.h"
#include "gateway/fleet/json.h"
#include "gateway/fleet/parts.h"

namespace fleet {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

std::string user(std::int64_t id, const std::string& card) {
  return R"({"user":)" + std::to_string(id) + R"(,"name":"Somebody with a name","cards":[")" + card + "\"]}";
}

Document crowd(std::int64_t size) {
  Document document;
  for (std::int64_t id = 1; id <= size; ++id) {
    document.users[id] = user(id, std::to_string(id + 1'000'000));
  }
  return document;
}

Document joined(const Parts& parts) {
  Document document;
  for (const auto& [hash, text] : parts) {
    add_lines(document, text);
  }
  return document;
}

std::string error_of(const std::function<void()>& act) {
  try {
    act();
  } catch (const cli::Failure& failure) {
    return failure.what();
  }
  return "";
}

TEST(FleetDocument, AUserIsALineWithWhatIsSaidOfHimAndAllHisCards) {
  const auto lines = user_lines(
      "id,name,card,until,pause,blocked\n7,Ana,0x21,2030-01-01T00:00:00Z,5min,1\n7,,5,,,\n8,,,,,\n", "people.csv");
  EXPECT_THAT(
      lines,
      ElementsAre(
          Pair(7, R"({"user":7,"name":"Ana","until":1893456000000,"blocked":true,"pause":300,"cards":["5","33"]})"),
          Pair(8, R"({"user":8,"cards":[]})")));
}

TEST(FleetDocument, AWrongLineIsNamedWithItsFile) {
  EXPECT_THAT(error_of([] { user_lines("id,card\n7,33\n8,33\n", "people.csv"); }), HasSubstr("people.csv:3: card 33"));
  EXPECT_THAT(error_of([] { setting_lines("a=1\n\nnonsense\n", "set.conf"); }), HasSubstr("set.conf:3: \"nonsense\""));
  EXPECT_THAT(error_of([] { setting_lines("uhf.a=1\na=2\n", "set.conf"); }), HasSubstr("set.conf:2: uhf.a"));
}

TEST(FleetDocument, TheSameScheduleInOtherWordsIsTheSame) {
  const auto lines = schedule_lines("days,name,to,from\nmon-fri,office,18:00,8:00\n", "a");
  EXPECT_THAT(lines, ElementsAre(R"({"schedule":"office","days":"mon-fri","from":"08:00","to":"18:00"})"));
  EXPECT_EQ(lines, schedule_lines("name,days,from,to\r\noffice,monday tue wed thu fri,08:00,18:00:00\r\n", "b"));
}

TEST(FleetDocument, ASettingWithoutASectionIsThePlugIns) {
  EXPECT_THAT(setting_lines("# a copy\r\nread_interval = 900\r\nhost.away_time=0\n", "s"),
              ElementsAre(Pair("host.away_time", R"({"setting":"host.away_time","value":"0"})"),
                          Pair("uhf.read_interval", R"({"setting":"uhf.read_interval","value":"900"})")));
}

TEST(FleetDocument, AUserWithAScheduleThatIsNotThereIsRefused) {
  Document document;
  document.users = user_lines("id,schedule\n7,office\n", "p");
  EXPECT_EQ(error_of([&] { check_schedules(document); }), "") << "the door's own";
  document.schedules.emplace();
  EXPECT_THAT(error_of([&] { check_schedules(document); }), HasSubstr("user 7 has the schedule \"office\""));
  document.schedules = schedule_lines("name,days,from,to\noffice,mon,08:00,18:00\n", "s");
  EXPECT_EQ(error_of([&] { check_schedules(document); }), "");
}

TEST(FleetDocument, WhatIsNoLineOfADocumentIsRefused) {
  for (const char* line : {"x", "[]", "{}", R"({"user":"7"})", R"({"setting":7})", R"({"schedule":{}})"}) {
    Document document;
    EXPECT_THAT(error_of([&] { add_lines(document, line); }), HasSubstr("--anew")) << line;
  }
}

TEST(FleetJson, WhatSomebodyNestsHoweverDeepIsNothing) {
  const std::string deep = std::string(500'000, '[') + std::string(500'000, ']');
  EXPECT_TRUE(object_of("{\"online\": true, \"alarms\": " + deep + "}").empty());
  EXPECT_TRUE(flag_in(object_of("{\"online\": true, \"alarms\": [[]]}"), "online"));
}

TEST(FleetParts, TogetherAreTheDocument) {
  Document document = crowd(5000);
  document.schedules = schedule_lines("name,days,from,to\noffice,mon,08:00,18:00\n", "s");
  document.settings = setting_lines("read_interval=900\n", "s");
  EXPECT_EQ(joined(parts_of(document)), document);
}

TEST(FleetParts, SayWhereThereIsToBeNothing) {
  const auto lines = [](const Document& document) {
    std::set<std::string> all;
    for (const auto& [hash, text] : parts_of(document)) {
      all.insert(text);
    }
    return all;
  };
  Document document;
  EXPECT_THAT(lines(document), ElementsAre("{\"remove_users\":true}\n"));
  document.schedules.emplace();
  EXPECT_THAT(lines(document), ElementsAre("{\"remove_schedules\":true}\n", "{\"remove_users\":true}\n"));
  EXPECT_EQ(joined(parts_of(document)), document);
  document.users[7] = user(7, "33");
  EXPECT_EQ(joined(parts_of(document)), document);
  document.schedules.reset();
  EXPECT_EQ(joined(parts_of(document)), document);
}

TEST(FleetParts, NoneIsLargerThanAMessageMayBe) {
  for (const auto& [hash, text] : parts_of(crowd(20'000))) {
    EXPECT_LE(text.size(), kLargestPart);
    EXPECT_EQ(hash, hash_of(text));
  }
}

TEST(FleetParts, OneCardMoreChangesOnePart) {
  Document document = crowd(20'000);
  const auto before = parts_of(document);
  document.users[7] = user(7, "33");
  const auto after = parts_of(document);
  EXPECT_EQ(before.size(), after.size());
  EXPECT_EQ(std::ranges::count_if(after, [&](const auto& part) { return !before.contains(part.first); }), 1);
}

TEST(FleetParts, WhoJoinsChangesOnePartOrDividesIt) {
  Document document = crowd(3000);
  auto before = parts_of(document);
  for (std::int64_t id = 3001; id < 4000; ++id) {
    document.users[id] = user(id, "1");
    const auto after = parts_of(document);
    ASSERT_LE(std::ranges::count_if(after, [&](const auto& part) { return !before.contains(part.first); }), 2) << id;
    before = after;
  }
}

TEST(FleetParts, AUserWithTooManyCardsIsRefused) {
  Document document;
  document.users[7] = user(7, std::string(kLargestPart, '1'));
  EXPECT_THAT(error_of([&] { parts_of(document); }), HasSubstr("fits in no part"));
}

TEST(FleetParts, AHashIsTheFirstHalfOfTheSha256) { EXPECT_EQ(hash_of("abc"), "ba7816bf8f01cfea414140de5dae2223"); }

TEST(FleetManifest, ComesBackAsItWas) {
  const auto manifest = manifest_of(12, parts_of(crowd(2000)));
  const auto back = parse_manifest(text_of(manifest));
  EXPECT_EQ(back.revision, 12);
  EXPECT_EQ(back.parts, manifest.parts);
  EXPECT_TRUE(back.names(manifest.parts.front().hash));
  EXPECT_FALSE(back.names("00"));
}

TEST(FleetManifest, WhatIsNoneIsRefused) {
  for (const char* text : {"", "[]", R"({"revision":1})", R"({"revision":"1","parts":[]})",
                           R"({"revision":1,"parts":[7]})", R"({"revision":1,"parts":[{"hash":"../x","bytes":1}]})",
                           R"({"revision":1,"parts":[{"hash":"ba7816bf8f01cfea414140de5dae2223","bytes":-1}]})"}) {
    EXPECT_THROW(parse_manifest(text), cli::Failure) << text;
  }
}

TEST(FleetChange, TellsWhoAndWhatIsDifferent) {
  Document before;
  before.users = user_lines("id,name,card\n7,Ana,33\n8,Lena,\n", "p");
  before.settings = setting_lines("read_interval=900\n", "s");
  Document after;
  after.users = user_lines("id,name,card\n7,Ana M.,44\n9,,\n", "p");
  after.schedules = schedule_lines("name,days,from,to\noffice,mon,08:00,18:00\n", "s");
  after.settings = setting_lines("read_interval=800\n", "s");
  const auto change = change_between(before, after);
  EXPECT_EQ(change.text(), "users: 1 added, 1 changed, 1 removed; schedules: 1 added; settings: 1 changed");
  EXPECT_THAT(change.lines, ElementsAre("change Ana M. (7): name, cards", "add user 9", "remove Lena (8)",
                                        "add schedule office mon 08:00 18:00", "change uhf.read_interval = 800"));
  EXPECT_EQ(change_between(after, after).text(), "nothing");
}

}  // namespace
}  // namespace fleet
