#include "door/services/settings_changes.h"

#include <gmock/gmock.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "ac/message_enqueuer.h"
#include "door/base/failure.h"
#include "door/tests/service_fixture.h"
#include "refhost/delivery.h"
#include "refhost/tests/captured_log.h"

namespace achost::test {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Texts = std::vector<std::string>;

constexpr RetryTimes kQuick{.answer = kPatience, .first_retry = milliseconds(1), .longest_retry = milliseconds(4)};
constexpr RetryTimes kOnceOnly{.answer = kPatience, .first_retry = hours(1), .longest_retry = hours(1)};

// Listens to changes, writes down "VALUE after PREVIOUS" and does what it is told to.
class Listener {
 public:
  explicit Listener(const std::string& name)
      : subscriber_(name, {on("config_param_set", [this](ac::Message* message) { handle(*message); })}) {}
  ~Listener() {
    fails = false;
    release.set();
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  Texts seen(std::size_t count) { return seen_.wait_for(count); }

  std::atomic<bool> fails = false;
  std::atomic<bool> records = false;  // before it fails
  std::atomic<bool> hangs = false;
  Event release;  // from hanging
  std::function<void(const std::string& value)> does = [](const std::string&) {};

 private:
  void handle(const ac::Message& message) {
    std::string value;
    std::string previous;
    message.get_string("value", &value);
    message.get_string("previous_value", &previous);
    seen_.add(value + " after " + previous);
    does(value);
    if (hangs) {
      release.wait();
    }
    if (records) {
      refhost::Delivery::mark();
    }
    if (fails) {
      throw std::runtime_error("it cannot");
    }
  }

  Recorder<std::string> seen_;
  refhost::Subscriber subscriber_;  // last: it stops using the others before they go
};

class Changes : public Services {
 protected:
  Changes() {
    watch({{"alarm", {"name", "text", "standing"}}});
    capture_log();
  }
  ~Changes() override { captured_log(); }

  void begin(RetryTimes times) {
    changes.emplace(settings(), alarms, times);
    changes->plugin_has_started();
  }

  // The texts of what does not come into force.
  Texts change(const std::string& value, const std::string& key = "operation_mode") {
    Texts texts;
    for (const auto& one : changes->change({{"uhf", key, value}})) {
      texts.push_back(achost::text_of(one));
    }
    return texts;
  }

  Alarms alarms;
  Listener plugin{"plugin"};
  std::optional<SettingsChanges> changes;
};

const std::string kNotTaken =
    "setting uhf.operation_mode is stored as inhibit, but not in force (continuous is): plugin: it cannot";
const std::string kRaised = "alarm name=uhf.operation_mode text=" + kNotTaken + " standing=1";
const std::string kCleared = "alarm name=uhf.operation_mode text=" + kNotTaken + " standing=0";

TEST_F(Changes, AreInForceOnceTheirHandlersHaveRun) {
  begin(kQuick);
  EXPECT_THAT(change("inhibit"), IsEmpty());
  EXPECT_THAT(plugin.seen(1), ElementsAre("inhibit after continuous"));
  EXPECT_THAT(changes->awaited(), IsEmpty());
  EXPECT_THAT(alarms.standing(), IsEmpty());
}

TEST_F(Changes, ThatAHandlerDoesNotTakeAreToldApartWithAnAlarm) {
  begin(kOnceOnly);
  plugin.fails = true;
  EXPECT_THAT(change("inhibit"), ElementsAre(kNotTaken));
  EXPECT_EQ(settings().get("uhf", "operation_mode"), "inhibit");
  EXPECT_EQ(changes->awaited("uhf", "operation_mode")->in_force, "continuous");
  EXPECT_FALSE(changes->awaited("uhf", "region").has_value());
  ASSERT_EQ(alarms.standing().size(), 1U);
  EXPECT_THAT(seen(1), ElementsAre(kRaised));
}

TEST_F(Changes, AreTriedAgainUntilTheyAreInForceAndTheAlarmIsOver) {
  begin(kQuick);
  plugin.fails = true;
  change("inhibit");
  plugin.seen(5);
  plugin.fails = false;
  EXPECT_THAT(seen(2), ElementsAre(kRaised, kCleared));
  EXPECT_THAT(changes->awaited(), IsEmpty());
}

TEST_F(Changes, AreToldAgainAsTheyWereToOneWhoMayHaveToWriteItsRecord) {
  begin(kQuick);
  plugin.fails = true;
  change("inhibit");
  EXPECT_EQ(plugin.seen(3)[2], "inhibit after continuous");
}

TEST_F(Changes, AreToldAgainAsNoChangeToOneWhoHasWrittenItsRecord) {
  begin(kQuick);
  plugin.fails = true;
  plugin.records = true;
  change("inhibit");
  const auto seen = plugin.seen(3);
  EXPECT_EQ(seen[0], "inhibit after continuous");
  EXPECT_EQ(seen[1], "inhibit after inhibit");
  EXPECT_EQ(seen[2], "inhibit after inhibit");
}

TEST_F(Changes, AreNotToldAgainToThoseWhoHaveTakenThem) {
  Listener other("other");
  begin(kQuick);
  plugin.fails = true;
  change("inhibit");
  plugin.seen(5);
  plugin.fails = false;
  seen(2);
  EXPECT_THAT(change("trigger"), IsEmpty());
  EXPECT_THAT(other.seen(2), ElementsAre("inhibit after continuous", "trigger after inhibit"));
}

TEST_F(Changes, AreHeardOfInTheirOrderByOneWhoHasNotTakenThemAll) {
  begin(kOnceOnly);
  plugin.fails = true;
  change("inhibit");
  EXPECT_THAT(change("trigger"), ElementsAre(StartsWith("setting uhf.operation_mode is stored as trigger")));
  plugin.fails = false;
  EXPECT_THAT(change("continuous"), IsEmpty());
  EXPECT_THAT(plugin.seen(5),
              ElementsAre("inhibit after continuous", "inhibit after continuous", "inhibit after continuous",
                          "trigger after inhibit", "continuous after trigger"));
}

TEST_F(Changes, ToTheValueThatIsStoredAlreadyAreTriedAtOnceWhileItIsNotInForce) {
  begin(kOnceOnly);
  plugin.fails = true;
  change("inhibit");
  EXPECT_THAT(change("inhibit"), ElementsAre(kNotTaken));
  plugin.fails = false;
  EXPECT_THAT(change("inhibit"), IsEmpty());
  EXPECT_THAT(alarms.standing(), IsEmpty());
}

TEST_F(Changes, OfSeveralSettingsNameThoseThatAreNotInForce) {
  begin(kOnceOnly);
  plugin.does = [](const std::string& value) {
    if (value == "2000") {
      throw std::runtime_error("the reader is silent");
    }
  };
  const auto awaited = changes->change({{"uhf", "operation_mode", "inhibit"}, {"uhf", "transmit_power", "2000"}});
  ASSERT_EQ(awaited.size(), 1U);
  EXPECT_EQ(achost::text_of(awaited[0]),
            "setting uhf.transmit_power is stored as 2000, but not in force (2600 is): plugin: the reader is silent");
}

TEST_F(Changes, OfTheHostsOwnSettingsAreInForceAtOnceButNotTakenByAll) {
  begin(kOnceOnly);
  plugin.fails = true;
  const auto awaited = changes->change({{"host", "door_open_time", "5000"}});
  ASSERT_EQ(awaited.size(), 1U);
  EXPECT_EQ(achost::text_of(awaited[0]),
            "setting host.door_open_time is stored as 5000, but not everybody has taken that: plugin: it cannot");
}

TEST_F(Changes, WaitForAHandlerThatHangsAsLongAsIsSaid) {
  begin({.answer = milliseconds(1000), .first_retry = milliseconds(1), .longest_retry = milliseconds(1)});
  plugin.hangs = true;
  EXPECT_THAT(change("inhibit"), ElementsAre(HasSubstr(": plugin has not answered for 1 s")));
  EXPECT_EQ(alarms.standing().size(), 1U);
  plugin.hangs = false;
  plugin.release.set();
  EXPECT_THAT(seen(2)[1], HasSubstr("standing=0"));
  EXPECT_THAT(plugin.seen(1), ElementsAre("inhibit after continuous"));
}

TEST_F(Changes, ThatNobodyWaitsForAreWatchedTheSame) {
  begin({.answer = milliseconds(100), .first_retry = milliseconds(1), .longest_retry = milliseconds(1)});
  plugin.fails = true;
  settings().set("uhf", "operation_mode", "inhibit");
  EXPECT_THAT(seen(1), ElementsAre(kRaised));
  plugin.fails = false;
  EXPECT_THAT(seen(2)[1], HasSubstr("standing=0"));
  plugin.hangs = true;
  settings().set("uhf", "operation_mode", "trigger");
  EXPECT_THAT(seen(3)[2], HasSubstr("plugin has not answered"));
}

TEST_F(Changes, ThatAHandlerMakesAreWaitedForByTheCommandOfTheFirst) {
  begin(kQuick);
  plugin.does = [this](const std::string& value) {
    if (value == "100") {
      settings().set("uhf", "read_interval", "250");
    }
  };
  EXPECT_THAT(change("100", "read_interval"), IsEmpty());
  EXPECT_EQ(settings().get("uhf", "read_interval"), "250");
  EXPECT_THAT(changes->awaited(), IsEmpty());
  EXPECT_THAT(plugin.seen(2), ElementsAre("100 after 3000", "250 after 100"));
}

TEST_F(Changes, OfAPluginsOwnQueueAreInForceOnceThatHasHandledThem) {
  ac::MessageEnqueuer queue;
  std::atomic<bool> handled = false;
  const ac::MessageListener listener = on("config_param_set", [&](ac::Message*) { handled = true; });
  queue.listen(&listener, 1);
  const refhost::Subscriber mover("mover", {on("config_param_set", [&](ac::Message* m) { m->transfer(&queue); })});
  struct Enough {};
  std::atomic<bool> over = false;
  std::jthread worker([&] {
    try {
      queue.process(1, [&] {
        if (over) {
          throw Enough();
        }
      });
    } catch (const Enough&) {
    }
  });
  begin(kQuick);
  EXPECT_THAT(change("inhibit"), IsEmpty());
  EXPECT_TRUE(handled);
  over = true;
}

TEST_F(Changes, AreRefusedUntilThePluginHasStartedSinceItWouldNotHearOfThem) {
  changes.emplace(settings(), alarms,
                  RetryTimes{.answer = milliseconds(20), .first_retry = hours(1), .longest_retry = hours(1)});
  EXPECT_EQ(failure_of([&] { change("inhibit"); }), "nothing is stored: the plug-in has not started yet; try again");
  EXPECT_EQ(settings().get("uhf", "operation_mode"), "continuous");
}

TEST_F(Changes, WaitForThePluginsStart) {
  changes.emplace(settings(), alarms, kQuick);
  std::jthread start([&] { changes->plugin_has_started(); });
  EXPECT_THAT(change("inhibit"), IsEmpty());
}

TEST_F(Changes, ToAValueThatIsNotAllowedChangeNothing) {
  begin(kQuick);
  EXPECT_THROW(change("sometimes"), refhost::SettingError);
  EXPECT_THAT(changes->awaited(), IsEmpty());
}

TEST_F(Changes, ComeFromManyAtTheSameTime) {
  begin(kQuick);
  plugin.fails = true;
  {
    std::vector<std::jthread> threads;
    for (const char* key : {"read_interval", "transmit_power", "trigger_timeout"}) {
      threads.emplace_back([this, key] {
        for (int i = 0; i < 20; ++i) {
          settings().set("uhf", key, std::to_string(1000 + i));
          plugin.fails = i % 3 != 2;
          changes->awaited();
        }
        plugin.fails = false;
        EXPECT_THAT(change("2500", key), testing::SizeIs(testing::Le(1)));
      });
    }
  }
  EXPECT_THAT(change("2500", "read_interval"), IsEmpty());
  EXPECT_THAT(change("2500", "transmit_power"), IsEmpty());
  EXPECT_THAT(change("2500", "trigger_timeout"), IsEmpty());
  EXPECT_THAT(changes->awaited(), IsEmpty());
}

class AnnouncementsTest : public Services {
 protected:
  AnnouncementsTest() { capture_log(); }
  ~AnnouncementsTest() override { captured_log(); }

  void announce(const std::string& value) {
    announcements.announce({refhost::SettingsSchema::builtin().at("uhf", "operation_mode"), value, "continuous"}, now);
  }

  Announcements::Clock::time_point now{};
  Recorder<int> reports;
  Listener plugin{"plugin"};
  Announcements announcements{RetryTimes(), [this] { reports.add(0); }};
};

TEST_F(AnnouncementsTest, TryAgainEverMoreSeldom) {
  plugin.fails = true;
  announce("inhibit");
  std::vector<int> pauses;
  for (std::size_t attempt = 1; attempt <= 8; ++attempt) {
    reports.wait_for(attempt);
    announcements.look(now);
    pauses.push_back(static_cast<int>((announcements.next_look() - now) / milliseconds(1)));
    now = announcements.next_look() - milliseconds(1);
    announcements.look(now);
    EXPECT_FALSE(announcements.is_under_way());
    now = announcements.next_look();
    announcements.look(now);
    EXPECT_TRUE(announcements.is_under_way());
  }
  EXPECT_THAT(pauses, ElementsAre(1000, 2000, 4000, 8000, 16000, 30000, 30000, 30000));
  plugin.seen(9);
}

TEST_F(AnnouncementsTest, TellOfOneWhoIsLate) {
  plugin.hangs = true;
  announce("inhibit");
  now += std::chrono::seconds(10) - milliseconds(1);
  announcements.look(now);
  EXPECT_EQ(announcements.reason(), "");
  EXPECT_EQ(announcements.next_look(), now + milliseconds(1));
  now += milliseconds(1);
  announcements.look(now);
  EXPECT_EQ(announcements.reason(), "plugin has not answered for 10 s");
}

TEST_F(AnnouncementsTest, KeepABoundedNumberForOneWhoTakesNone) {
  plugin.fails = true;
  constexpr int kMany = 400;
  for (int i = 0; i < kMany; ++i) {
    announce("value " + std::to_string(i));
  }
  plugin.fails = false;
  for (std::size_t attempt = 1; !announcements.is_over(); ++attempt) {
    ASSERT_GE(reports.wait_for(attempt).size(), attempt);
    announcements.look(now);
    now += std::chrono::seconds(1);
    announcements.look(now);
  }
  EXPECT_THAT(captured_log(),
              HasSubstr("too many changes wait for plugin: it is not told that uhf.operation_mode was value 1\n"));
  capture_log();
  const auto seen = plugin.seen(256);
  EXPECT_EQ(seen.back(), "value 399 after continuous");
  EXPECT_LE(seen.size(), 260U);
}

}  // namespace
}  // namespace achost::test
