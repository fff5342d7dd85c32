#include "door/services/identifier_service.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <stdlib.h>

#include <array>
#include <atomic>
#include <ctime>
#include <stdexcept>

#include "door/services/schedule_text.h"
#include "door/tests/service_fixture.h"
#include "refhost/bus_view.h"
#include "refhost/tests/captured_log.h"

namespace achost::test {
namespace {

using Texts = std::vector<std::string>;

class Identifier : public Services {
 protected:
  Identifier() {
    users.bind(0xFFFFFFFFFFFFFFFF, 7, "");
    clock.look(0, true);  // time begins with the tests
    set("away_time", 0);
    identify_by(users);
    watch({{"identifier_decision", {"value", "device_id", "uuid", "outcome", "user_id", "user_name"}},
           {"actuator_open_door", {"id", "reason"}}});
  }

  static void present(std::int64_t card) {
    refhost::send("identifier_new_card", {{"value", card}, {"device_id", std::int64_t{1}}, {"uuid", "u"}});
  }

  UserStore users{directory(), UserStore::Access::read_write};
  Alarms alarms;
  SettingsChanges changes{settings(), alarms};
  std::atomic<bool> lets_open = true;
  std::atomic<bool> is_locked = false;
  Recorder<std::string> order;  // what was noted and what was sent, in their order
  const Bookkeeping books{.note = [this](const Entry& entry) { order.add(text_of_entry(entry)); },
                          .lets_open = [this] { return lets_open.load(); }};
  std::atomic<std::int64_t> now = 1000;          // ms since 1970
  std::atomic<std::int64_t> steady = 1'000'000;  // ms
  Visits visits;
  ClockTrust clock;
  std::optional<IdentifierService> identifier = std::nullopt;
  void identify_by(const UserStore& store) {
    identifier.reset();
    identifier.emplace(
        IdentifierService::Needs{store, changes, books, visits, clock, [this] { return is_locked.load(); }}, [this] {
          return IdentifierService::Moment{.wall = now,
                                           .steady = Visits::Time(std::chrono::milliseconds(steady.load()))};
        });
  }

 private:
  static std::string text_of_entry(const Entry& entry) {
    std::string text = std::string(name_of(entry.kind)) + " " + std::to_string(entry.card.value()) + " " +
                       std::to_string(entry.user.value_or(0));
    for (const auto& [name, value] : entry.fields) {
      const auto* const words = std::get_if<std::string>(&value);
      text += (name == "outcome" ? " " : " " + name + "=") +
              (words != nullptr ? *words : std::to_string(std::get<std::int64_t>(value)));
    }
    return text;
  }
};

const std::string kKnownOpens = "identifier_decision value=-1 device_id=1 uuid=u outcome=opens user_id=7";

TEST_F(Identifier, ADoorThatIsLockedOpensForNoCard) {
  is_locked = true;
  present(-1);
  EXPECT_EQ(seen(1), Texts({"identifier_decision value=-1 device_id=1 uuid=u outcome=door_locked user_id=7"}));
  EXPECT_EQ(order.wait_for(1).at(0), "identification 18446744073709551615 7 door_locked");
  is_locked = false;
  present(-1);
  EXPECT_EQ(seen(3).at(2), "actuator_open_door id=1 reason=0");
}

TEST_F(Identifier, AKnownCardOpensTheDoor) {
  present(-1);
  EXPECT_EQ(seen(2), Texts({kKnownOpens, "actuator_open_door id=1 reason=0"}));
}

// The decision about the card of user 7.
std::string decision(const std::string& outcome, const std::string& name = "") {
  return "identifier_decision value=-1 device_id=1 uuid=u outcome=" + outcome + " user_id=7" +
         (name.empty() ? "" : " user_name=" + name);
}

TEST_F(Identifier, ABlockedUsersCardOpensNothing) {
  users.put({.id = 7, .name = "Ana", .blocked = true});
  present(-1);
  EXPECT_EQ(seen(1), Texts({decision("blocked", "Ana")}));
  users.put({.id = 7, .name = "Ana"});
  present(-1);
  EXPECT_EQ(seen(3), Texts({decision("blocked", "Ana"), decision("opens", "Ana"), "actuator_open_door id=1 reason=0"}));
}

TEST_F(Identifier, ACardOpensFromItsUsersFirstMomentOnAndUntilHisLast) {
  users.put({.id = 7, .from = 1000, .until = 2000});
  const std::pair<std::int64_t, const char*> moments[] = {
      {999, "not_yet_valid"}, {1000, "opens"}, {1999, "opens"}, {2000, "no_longer_valid"}};
  Texts expected;
  for (const auto& [moment, outcome] : moments) {
    now = moment;
    present(-1);
    expected.push_back(decision(outcome));
    if (std::string(outcome) == "opens") {
      expected.emplace_back("actuator_open_door id=1 reason=0");
    }
    EXPECT_EQ(seen(expected.size()), expected) << moment;
  }
}

TEST_F(Identifier, WithoutALimitAUserIsValidAtAnyTime) {
  for (const std::int64_t moment : {std::int64_t{0}, std::int64_t{1} << 60U}) {
    now = moment;
    present(-1);
  }
  EXPECT_EQ(seen(4)[2], decision("opens"));
}

TEST_F(Identifier, ABlockIsToldBeforeATimeAndASuppressionBeforeBoth) {
  users.put({.id = 7, .until = 1, .blocked = true});
  present(-1);
  EXPECT_EQ(seen(1).back(), decision("blocked"));
  refhost::send("identifier_supress_actions");
  present(-1);
  EXPECT_EQ(seen(2).back(), decision("held_back"));
}

TEST_F(Identifier, AnUnknownCardIsReported) {
  present(33);
  present(-1);
  EXPECT_EQ(seen(3), Texts({"identifier_decision value=33 device_id=1 uuid=u outcome=unknown", kKnownOpens,
                            "actuator_open_door id=1 reason=0"}));
}

TEST_F(Identifier, EachIdentificationIsNotedBeforeAnythingComesOfIt) {
  const refhost::BusTap tap([this](const ac::Message& message) {
    if (message.type() == "identifier_decision" || message.type() == "actuator_open_door") {
      order.add(message.type());
    }
  });
  present(33);
  present(-1);
  EXPECT_EQ(order.wait_for(5),
            Texts({"identification 33 0 unknown", "identifier_decision", "identification 18446744073709551615 7 opens",
                   "identifier_decision", "actuator_open_door"}));
}

TEST_F(Identifier, AllThatHoldsACardBackIsNotedWithItsTimes) {
  constexpr const char* kEntry = "identification 18446744073709551615 7 ";
  users.put({.id = 7, .from = 2000, .until = 3000, .blocked = true});
  lets_open = false;
  present(-1);
  EXPECT_EQ(order.wait_for(1).at(0), std::string(kEntry) + "blocked also=not_yet_valid journal_unwritable from=2000");
  lets_open = true;
  now = 3000;
  refhost::send("identifier_supress_actions");
  present(-1);
  EXPECT_EQ(order.wait_for(2).at(1), std::string(kEntry) + "held_back also=blocked no_longer_valid until=3000");
  present(33);
  EXPECT_EQ(order.wait_for(3).at(2), "identification 33 0 held_back also=unknown");
}

TEST_F(Identifier, WhereTheJournalIsRequiredAndCannotBeWrittenNothingOpens) {
  lets_open = false;
  present(-1);
  seen(1);
  lets_open = true;
  present(-1);
  EXPECT_EQ(seen(3), Texts({"identifier_decision value=-1 device_id=1 uuid=u outcome=journal_unwritable user_id=7",
                            kKnownOpens, "actuator_open_door id=1 reason=0"}));
  EXPECT_EQ(order.wait_for(1).at(0), "identification 18446744073709551615 7 journal_unwritable");
}

TEST_F(Identifier, SuppressedActionsAreHeldBackUntilAllowed) {
  refhost::send("identifier_supress_actions");
  present(-1);
  refhost::send("identifier_allow_actions");
  present(-1);
  EXPECT_EQ(seen(3), Texts({"identifier_decision value=-1 device_id=1 uuid=u outcome=held_back user_id=7", kKnownOpens,
                            "actuator_open_door id=1 reason=0"}));
}

TEST_F(Identifier, EachSuppressionNeedsItsOwnRelease) {
  refhost::send("identifier_allow_actions");  // of nothing
  refhost::send("identifier_supress_actions");
  refhost::send("identifier_supress_actions");
  refhost::send("identifier_allow_actions");
  present(33);
  refhost::send("identifier_allow_actions");
  present(33);
  EXPECT_EQ(seen(2), Texts({"identifier_decision value=33 device_id=1 uuid=u outcome=held_back",
                            "identifier_decision value=33 device_id=1 uuid=u outcome=unknown"}));
}

TEST_F(Identifier, UsersInMemoryOpenAlsoWhenTheirFileCannotBeRead) {
  SQLite::Database(directory() / "users.db", SQLite::OPEN_READWRITE).exec("DROP TABLE cards");
  present(-1);
  EXPECT_EQ(seen(2), Texts({kKnownOpens, "actuator_open_door id=1 reason=0"}));
}

TEST_F(Identifier, UsersThatCannotBeReadOpenNothing) {
  const UserStore reader(directory(), UserStore::Access::read_only);  // has none in memory
  identify_by(reader);
  SQLite::Database(directory() / "users.db", SQLite::OPEN_READWRITE).exec("DROP TABLE cards");
  refhost::test::capture_log();
  present(-1);
  EXPECT_EQ(seen(1), Texts({"identifier_decision value=-1 device_id=1 uuid=u outcome=failed"}));
  const std::string log = refhost::test::captured_log();
  EXPECT_NE(log.find("the door stays shut"), std::string::npos) << log;
  EXPECT_NE(log.find("users.db"), std::string::npos) << log;
  const auto noted = order.wait_for(1).at(0);
  EXPECT_TRUE(noted.starts_with("identification 18446744073709551615 0 failed reason=")) << noted;
  EXPECT_NE(noted.find("users.db"), std::string::npos) << noted;
  identifier.reset();
}

TEST_F(Identifier, AMessageWithoutItsCardIsLogged) {
  refhost::test::capture_log();
  refhost::send("identifier_new_card", {{"uuid", "u"}});
  present(33);
  EXPECT_EQ(seen(1).front(), "identifier_decision value=33 device_id=1 uuid=u outcome=unknown");
  EXPECT_NE(refhost::test::captured_log().find("without an int64 \"value\""), std::string::npos);
}

// Schedules are in UTC then.
class IdentifierWithRules : public Identifier {
 protected:
  IdentifierWithRules() {
    setenv("TZ", "UTC0", 1);
    tzset();
    users.replace_schedules(
        parse_schedules("name,days,from,to\nmorning,thu,00:00,12:00\nnever,holiday,00:00,24:00\n", "f"));
  }
  ~IdentifierWithRules() override {
    unsetenv("TZ");
    tzset();
  }

  // The rule of user 7.
  void give(const UserChange& change) { users.change_user(change, UserStore::Which::there); }

  // What the journal gets of the card of user 7; behind his number.
  std::string noted() {
    present(-1);
    const auto all = order.wait_for(++count_);
    const std::string kEntry = "identification 18446744073709551615 7 ";
    EXPECT_EQ(all.back().substr(0, kEntry.size()), kEntry);
    return all.back().substr(kEntry.size());
  }

 private:
  std::size_t count_ = 0;
};

constexpr std::int64_t kHour = 3'600'000;

TEST_F(IdentifierWithRules, ACardOpensWhileItsUsersScheduleHolds) {
  give({.id = 7, .schedule = "morning"});
  now = 0;  // 1970 begins on a Thursday
  EXPECT_EQ(noted(), "opens");
  now = 12 * kHour - 1;
  EXPECT_EQ(noted(), "opens");
  now = 12 * kHour;
  EXPECT_EQ(noted(), "outside_schedule schedule=morning next=" + std::to_string(7 * 24 * kHour));
  give({.id = 7, .schedule = "never"});
  EXPECT_EQ(noted(), "outside_schedule schedule=never") << "and no window comes";
  give({.id = 7, .schedule = ""});
  EXPECT_EQ(noted(), "opens");
}

TEST_F(IdentifierWithRules, TheDecisionTellsTheFactsToo) {
  users.put({.id = 7, .name = "Ana"});
  give({.id = 7, .schedule = "morning"});
  now = 12 * kHour;
  std::string line;
  const refhost::BusTap tap([&](const ac::Message& message) {
    if (message.type() == "identifier_decision") {
      order.add(refhost::line_of(message));
    }
  });
  present(-1);
  EXPECT_EQ(order.wait_for(2).at(1),
            "identifier_decision value=-1 device_id=1 uuid=u outcome=outside_schedule schedule=morning next=604800000 "
            "user_id=7 user_name=Ana");
}

TEST_F(IdentifierWithRules, BetweenTwoEntriesOfAUserLiesHisPause) {
  users.bind(34, 7, "");
  give({.id = 7, .pause = 60});
  EXPECT_EQ(noted(), "opens");
  steady = steady + 59'999;
  EXPECT_EQ(noted(), "too_soon_after_entry pause_ends=1001") << "ms, by the wall clock";
  now = now + kHour;  // it was set: the other clock counts
  EXPECT_EQ(noted(), "too_soon_after_entry pause_ends=3601001");
  present(34);
  EXPECT_EQ(order.wait_for(4).at(3), "identification 34 7 too_soon_after_entry pause_ends=3601001")
      << "with any of his cards";
  steady = steady + 1;
  present(34);
  EXPECT_EQ(order.wait_for(5).at(4), "identification 34 7 opens");
}

TEST_F(IdentifierWithRules, AnEntryThatIsRefusedBeginsNoPause) {
  give({.id = 7, .blocked = true, .pause = 60});
  EXPECT_EQ(noted(), "blocked");
  give({.id = 7, .blocked = false});
  EXPECT_EQ(noted(), "opens");
}

TEST_F(IdentifierWithRules, AnUntrustedClockIsUsedOrDeniesOrIsIgnored) {
  constexpr std::int64_t kLatestKnown = kHour * 24 * 364;  // a Thursday
  clock.know(kLatestKnown);
  now = 13 * kHour;
  give({.id = 7, .schedule = "morning"});
  EXPECT_EQ(noted(), "outside_schedule schedule=morning next=604800000");
  settings().override_for_run("host", "untrusted_clock", "ignore");
  EXPECT_EQ(noted(), "opens");
  settings().override_for_run("host", "untrusted_clock", "deny");
  EXPECT_EQ(noted(), "clock_untrusted clock_known=31449600000");
  now = 5 * kHour;
  EXPECT_EQ(noted(), "clock_untrusted clock_known=31449600000") << "also within his time";
  give({.id = 7, .until = 1, .schedule = ""});
  EXPECT_EQ(noted(), "clock_untrusted clock_known=31449600000");
  give({.id = 7, .until = 0});
  EXPECT_EQ(noted(), "opens") << "who has no rule of time";
  now = kLatestKnown;
  give({.id = 7, .schedule = "morning"});
  EXPECT_EQ(noted(), "opens") << "the clock is past that again";
}

TEST_F(IdentifierWithRules, ACardThatStaysOpensOnceAndIsToldSoOnceAMinute) {
  set("away_time", 10'000);
  EXPECT_EQ(noted(), "opens");
  steady = steady + 3000;
  EXPECT_EQ(noted(), "still_here here_since=-2000 away_time=10000") << "the wall clock stands still here";
  for (std::size_t i = 0; i < 19; ++i) {
    steady = steady + 3000;
    present(-1);
    present(99);
    EXPECT_EQ(order.wait_for(3 + i).at(2 + i), "identification 99 0 unknown") << "nothing more is said of the other";
  }
  steady = steady + 3000;
  present(-1);
  EXPECT_EQ(order.wait_for(22).at(21),
            "identification 18446744073709551615 7 still_here here_since=-62000 away_time=10000");
}

TEST_F(IdentifierWithRules, ACardThatLeftOpensAgain) {
  set("away_time", 10'000);
  EXPECT_EQ(noted(), "opens");
  steady = steady + 9900;
  EXPECT_EQ(noted(), "still_here here_since=-8900 away_time=10000");
  visits.read(std::array{std::uint64_t{0xFFFFFFFFFFFFFFFF}}, Visits::Time(std::chrono::milliseconds(steady + 5000)));
  steady = steady + 5000 + 10'100;
  EXPECT_EQ(noted(), "opens");
}

TEST_F(IdentifierWithRules, ACardThatIsRefusedIsOnNoVisit) {
  set("away_time", 10'000);
  give({.id = 7, .blocked = true});
  EXPECT_EQ(noted(), "blocked");
  give({.id = 7, .blocked = false});
  EXPECT_EQ(noted(), "opens");
  give({.id = 7, .blocked = true});
  steady = steady + 3000;
  EXPECT_EQ(noted(), "still_here also=blocked here_since=-2000 away_time=10000");
}

// A plug-in that cannot take its settings until it is let.
class IdentifierWithStubbornPlugin : public Identifier {
 protected:
  IdentifierWithStubbornPlugin() {
    changes.plugin_has_started();
    refhost::test::capture_log();
  }
  ~IdentifierWithStubbornPlugin() override {
    is_stubborn = false;
    refhost::test::captured_log();
  }

  std::atomic<bool> is_stubborn = true;

 private:
  const refhost::Subscriber plugin_{"plugin", {on("config_param_set", [this](ac::Message*) {
                                      if (is_stubborn) {
                                        throw std::runtime_error("no");
                                      }
                                    })}};
};

TEST_F(IdentifierWithStubbornPlugin, NoCardOpensWhileAModeThatLetsFewerInIsNotInForce) {
  const std::string held = "identifier_decision value=-1 device_id=1 uuid=u outcome=mode_awaited user_id=7";
  const std::string unknown = "identifier_decision value=33 device_id=1 uuid=u outcome=unknown";
  EXPECT_EQ(changes.change({{"uhf", "operation_mode", "inhibit"}}).size(), 1U);
  present(-1);
  present(33);
  EXPECT_EQ(seen(2), Texts({held, unknown}));
  EXPECT_EQ(changes.change({{"uhf", "operation_mode", "Trigger"}}).size(), 1U);
  present(-1);
  EXPECT_EQ(seen(3), Texts({held, unknown, held}));
  is_stubborn = false;
  EXPECT_EQ(changes.change({{"uhf", "operation_mode", "Trigger"}}).size(), 0U);
  present(-1);
  EXPECT_EQ(seen(5), Texts({held, unknown, held, kKnownOpens, "actuator_open_door id=1 reason=0"}));
}

TEST_F(IdentifierWithStubbornPlugin, CardsOpenWhileAModeThatLetsMoreInOrAnotherSettingIsNotInForce) {
  is_stubborn = false;
  EXPECT_EQ(changes.change({{"uhf", "operation_mode", "inhibit"}}).size(), 0U);
  is_stubborn = true;
  EXPECT_EQ(changes.change({{"uhf", "operation_mode", "Continuous"}}).size(), 1U);
  EXPECT_EQ(changes.change({{"uhf", "transmit_power", "2000"}}).size(), 1U);
  present(-1);
  EXPECT_EQ(seen(2), Texts({kKnownOpens, "actuator_open_door id=1 reason=0"}));
}

}  // namespace
}  // namespace achost::test
