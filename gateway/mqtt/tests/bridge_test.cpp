// A door over a real broker, as a stranger's client sees it.
#include <algorithm>
#include <chrono>
#include <set>

#include "gateway/mqtt/document.h"
#include "gateway/mqtt/tests/bridge_fixture.h"
#include "gateway/mqtt/topics.h"

namespace mqtt::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

std::int64_t now() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
}

TEST_F(Bridged, WhatTheJournalKeepsIsToldOnceAndInOrder) {
  is_online();
  for (int i = 0; i < 5; ++i) {
    output({"door", "mode", i % 2 == 0 ? "locked" : "normal", "--for", "60s"});
  }
  const auto last = [&] { return numbers_of(listener_->all()); };
  EXPECT_TRUE(comes_true([&] { return last().size() >= 7; }));
  const auto numbers = last();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    EXPECT_EQ(numbers[i], static_cast<std::int64_t>(i) + 1);
  }
  const auto entry = told("doors/gate-1/journal/command");
  ASSERT_TRUE(entry.has_value());
  EXPECT_EQ(entry->content.at("door"), "gate-1");
  EXPECT_FALSE(entry->content.at("journal").get<std::string>().empty());
  EXPECT_FALSE(entry->content.at("boot").get<std::string>().empty());
}

TEST_F(Bridged, ABridgeThatIsKilledGoesOnWhereTheBrokerAcknowledged) {
  is_online();
  EXPECT_TRUE(told("doors/gate-1/journal/start"));
  kill_bridge();
  EXPECT_TRUE(told("doors/gate-1/state", [](const json& content) { return !content.value("online", true); }));
  output({"rex"});
  bridge();
  EXPECT_TRUE(told("doors/gate-1/journal/exit_request"));
  const auto numbers = numbers_of(listener_->all());
  const std::set<std::int64_t> different(numbers.begin(), numbers.end());
  EXPECT_EQ(static_cast<std::int64_t>(different.size()), *different.rbegin());
}

// A door that has gone is known to have been there when it was heard last.
TEST_F(Bridged, AWillSaysWhenTheDoorWasThereAndAGoodbyeWhenItWent) {
  is_online();
  const auto online = told("doors/gate-1/state", [](const json& content) { return content.contains("at"); });
  ASSERT_TRUE(online.has_value());
  kill_bridge();
  const auto will = told("doors/gate-1/state", [](const json& content) { return !content.value("online", true); });
  ASSERT_TRUE(will.has_value());
  EXPECT_LE(will->content.value("at", INT64_MAX), online->content.at("at").get<std::int64_t>());
  EXPECT_GT(will->content.value("at", 0LL), online->content.at("at").get<std::int64_t>() - 60'000);
  listen("#");
  bridge();
  is_online();
  const auto asked_to_end = now();
  bridge_->signal(SIGTERM);
  EXPECT_EQ(bridge_->wait().status, 0);
  EXPECT_TRUE(told("doors/gate-1/state", [&](const json& content) {
    return !content.value("online", true) && content.value("at", 0LL) >= asked_to_end;
  }));
}

// How long a door has been away is known to a minute, by the figures.
TEST_F(Bridged, WhatIsRetainedSaysWhenItWasTold) {
  const auto from = now();
  is_online();
  for (const char* const what : {"state", "health", "figures"}) {
    EXPECT_TRUE(told(topics::of("gate-1", what), [&](const json& content) {
      const auto at = content.value("at", 0LL);
      return at >= from - 60'000 && at <= now();
    })) << what;
  }
}

TEST_F(Bridged, WhoComesUnderTheDoorsNameDoesNotCutItOff) {
  is_online();
  publish("elsewhere", "{}", {"-i", "gate-1"});
  EXPECT_TRUE(asked("status", json::object()).value("ok", false));
  EXPECT_FALSE(listener_->find(
      [](const Told& one) { return one.topic == "doors/gate-1/state" && !one.content.value("online", true); }));
}

// A backup may take the door back to an earlier revision, without the broker being told.
TEST_F(Bridged, ADoorThatWasRestoredBecomesWhatIsDesired) {
  is_online();
  const auto desire = [&](int revision, const std::string& name) {
    const std::string line = R"({"user": 7, "name": ")" + name + R"("})" + "\n";
    publish(topics::desired_part("gate-1", hash_of(line)), line, {"-r"});
    publish(topics::desired("gate-1"),
            json{{"revision", revision}, {"parts", {{{"hash", hash_of(line)}, {"bytes", line.size()}}}}}.dump(),
            {"-r"});
    ASSERT_TRUE(told("doors/gate-1/desired/answer", [&](const json& content) {
      return content.value("revision", 0) == revision && content.value("applied", false);
    }));
  };
  const auto revision_is = [this](int revision) {
    return comes_true([&] {
      const auto desired = status().value("desired", json::object());
      return desired.value("revision", json()) == revision;
    });
  };
  desire(1, "Ana");
  const std::string backup = own_state() + "/backup";
  output({"backup", backup});
  desire(2, "Anna");
  EXPECT_TRUE(revision_is(2));
  output({"restore", backup});
  EXPECT_TRUE(told("doors/gate-1/journal/gap", [](const json& gap) { return gap.value("reason", "") == "restored"; }));
  EXPECT_TRUE(revision_is(2));
  EXPECT_THAT(output({"user", "list", "--json"}), HasSubstr("Anna"));
}

TEST_F(Bridged, ABridgeThatIsEndedTellsNothingTwice) {
  is_online();
  EXPECT_TRUE(told("doors/gate-1/journal/start"));
  bridge_->signal(SIGTERM);
  EXPECT_EQ(bridge_->wait().status, 0);
  EXPECT_TRUE(told("doors/gate-1/state", [](const json& content) { return !content.value("online", true); }));
  output({"rex"});
  bridge();
  EXPECT_TRUE(told("doors/gate-1/journal/exit_request"));
  const auto numbers = numbers_of(listener_->all());
  EXPECT_EQ(std::set(numbers.begin(), numbers.end()).size(), numbers.size());
}

TEST_F(Bridged, TheDoorOpensForWhoeverMayTellItAndTheJournalKeepsHim) {
  is_online();
  const json answer = asked("open", {{"by", "Ana"}, {"at", now()}});
  EXPECT_EQ(answer.value("ok", false), true) << answer;
  EXPECT_EQ(next_event("door_open").value("reason", ""), "command");
  const auto entry = told("doors/gate-1/journal/command");
  ASSERT_TRUE(entry.has_value());
  EXPECT_EQ(entry->content.at("fields").value("on_behalf_of", ""), "Ana");
}

TEST_F(Bridged, AnOldCommandIsNotDone) {
  is_online();
  EXPECT_THAT(asked("open", {{"at", now() - 31'000}}).value("error", ""), HasSubstr("not of now"));
  EXPECT_THAT(asked("open", {{"at", now() + 31'000}}).value("error", ""), HasSubstr("not of now"));
  EXPECT_EQ(output({"journal", "--kind", "command"}).find("open"), std::string::npos);
}

TEST_F(Bridged, ARetainedCommandIsNotDone) {
  is_online();
  EXPECT_THAT(asked("open", json::object(), {"-r"}).value("error", ""),
              HasSubstr("a retained command would be done again"));
  EXPECT_EQ(output({"journal", "--kind", "command"}).find("open"), std::string::npos);
}

TEST_F(Bridged, ACommandIsAnsweredWhereItWasAskedFor) {
  is_online();
  const auto result = achost::test::run_program(
      "/usr/bin/mosquitto_rr", {"-V", "5", "-p", std::to_string(broker_->port()), "-t", "doors/gate-1/cmd/config", "-e",
                                "me/answers", "-m", R"({"get": "uhf.region"})", "-W", "20"});
  EXPECT_EQ(json::parse(result.out).value("key", ""), "region") << result.err;
}

TEST_F(Bridged, MoreThanItsShareIsRefused) {
  is_online();
  for (int i = 0; i < 40; ++i) {
    publish("doors/gate-1/cmd/status", "{}");
  }
  EXPECT_TRUE(told("doors/gate-1/answer/status", [](const json& content) {
    return content.value("error", "") == "the door is asked too much: try again in a moment";
  }));
}

TEST_F(Bridged, WhoMissesAnEntryGetsItAgain) {
  is_online();
  EXPECT_TRUE(told("doors/gate-1/journal/start"));
  EXPECT_TRUE(asked("replay", {{"after", 0}}).value("ok", false));
  EXPECT_TRUE(comes_true([&] {
    const auto numbers = numbers_of(listener_->all());
    return std::ranges::count(numbers, 1) == 2;
  }));
}

TEST_F(Bridged, TheStateFollowsTheDoor) {
  is_online();
  output({"door", "mode", "unlocked", "--for", "60s"});
  EXPECT_TRUE(told("doors/gate-1/state", [](const json& content) {
    return content.value("mode", "") == "unlocked" && content.value("lock", "") == "open";
  }));
  EXPECT_TRUE(
      told("doors/gate-1/health", [](const json& content) { return content.value("state", "") == "answering"; }));
  EXPECT_TRUE(told("doors/gate-1/figures", [](const json& content) { return content.contains("stages"); }));
}

TEST_F(Bridged, ADoorWithoutItsDaemonIsNotOnline) {
  is_online();
  end();
  EXPECT_TRUE(told("doors/gate-1/state", [](const json& content) { return !content.value("online", true); }));
  start();
  kill_bridge();
  bridge();
  EXPECT_TRUE(comes_true([&] {
    return listener_->all().back().content.value("online", false) || numbers_of(listener_->all()).size() > 3;
  }));
}

TEST_F(Bridged, ABrokerThatWasAwayGetsWhatItMissed) {
  listen("#", "centre");
  is_online();  // the state is retained
  EXPECT_TRUE(asked("replay", {{"after", 0}}).value("ok", false));
  EXPECT_TRUE(told("doors/gate-1/journal/start"));
  broker_->kill(SIGTERM);
  output({"rex"});
  broker_->start();
  EXPECT_TRUE(told("doors/gate-1/journal/exit_request"));
}

TEST_F(Bridged, EachConnectionIsToldHowTheDoorStands) {
  const auto healths = [this] {
    return std::ranges::count(listener_->all(), std::string("doors/gate-1/health"), &Told::topic);
  };
  ASSERT_TRUE(told("doors/gate-1/health"));
  const auto before = healths();
  bridge_->signal(SIGHUP);
  EXPECT_TRUE(comes_true([&] { return healths() > before; }));
}

TEST_F(Bridged, OfManyDifferencesTheFirstAreTold) {
  is_online();
  const refhost::test::TemporaryDirectory files;
  const std::string desired = files.path() / "desired";
  const std::string people = files.path() / "people";
  std::ofstream(desired) << "{\"user\": 1000}\n";
  output({"desired", "apply", desired, "--revision", "1"});
  std::ofstream table(people);
  table << "id,name\n";
  for (int id = 1; id <= 501; ++id) {
    table << id << ",x\n";
  }
  table.close();
  output({"user", "import", people});
  const auto drift = asked("drift", nlohmann::json::object());
  EXPECT_EQ(drift.value("lines", nlohmann::json()).size(), 500U);
  EXPECT_TRUE(drift.value("more", false));
}

TEST_F(Bridged, HomeAssistantIsToldOnlyWhenThatIsWanted) {
  is_online();
  EXPECT_FALSE(listener_->find([](const Told& one) { return one.topic.starts_with("homeassistant/"); }));
  kill_bridge();
  bridge({"--without-tls", "--discovery"});
  const auto lock = told("homeassistant/lock/gate-1/lock/config");
  ASSERT_TRUE(lock.has_value());
  EXPECT_EQ(lock->content.at("command_topic"), "doors/gate-1/cmd/mode");
  for (const char* topic : {"binary_sensor/gate-1/contact", "binary_sensor/gate-1/alarms",
                            "binary_sensor/gate-1/reader", "button/gate-1/open", "tag/gate-1/reader"}) {
    EXPECT_TRUE(told(std::string("homeassistant/") + topic + "/config")) << topic;
  }
  const json request = json::parse(lock->content.at("payload_unlock").get<std::string>());
  EXPECT_EQ(asked("mode", request).value("mode", ""), "unlocked");
}

TEST_F(Bridged, ACommandWithoutTlsNeedsTheFlag) {
  const auto result = achost::test::run_program(ACHOST_MQTT, {"run", "--door", "gate-1", "--broker", "localhost",
                                                              "--state", own_state(), "--host-state", state()});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("give --ca, or --without-tls"));
}

// The same over TLS, with a certificate of the door's.
class SafelyBridged : public Bridged {
 protected:
  void SetUp() override {
    authority_.sign("broker");
    authority_.sign("gate-1");
    start();
    broker_.emplace(Mosquitto::with_tls(authority_));
  }

  void bridge_with(const Authority& authority) {
    bridge({"--ca", authority_.file("ca.pem"), "--certificate", authority.file("gate-1.pem"), "--key",
            authority.file("gate-1.key")});
  }

  // The text of the bridge's alarm; empty when none stands.
  std::string alarm() const {
    for (const json& one : status().value("alarms", json::array())) {
      if (one.at("name") == "gateway.mqtt") {
        return one.at("text");
      }
    }
    return "";
  }

  const Authority authority_;
};

TEST_F(SafelyBridged, AForeignCertificateIsAnAlarmUntilThereIsAnother) {
  const Authority other("other");
  other.sign("gate-1");
  bridge_with(other);
  EXPECT_TRUE(comes_true([&] { return alarm().find("gate-1.pem") != std::string::npos; })) << alarm();
  for (const char* const file : {"gate-1.pem", "gate-1.key"}) {
    std::filesystem::copy_file(authority_.file(file), other.file(file),
                               std::filesystem::copy_options::overwrite_existing);
  }
  EXPECT_TRUE(comes_true([&] { return alarm().empty(); })) << alarm();
}

TEST_F(SafelyBridged, AnExpiredCertificateIsAnAlarm) {
  authority_.sign("gate-1", -1);
  bridge_with(authority_);
  EXPECT_TRUE(comes_true([&] { return alarm().find("has expired") != std::string::npos; })) << alarm();
}

// The greeting and OpenSSL's start use more, which is given back.
TEST_F(SafelyBridged, ItsMemoryIsSmallOnceItHasConnected) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer has much of its own";
#endif
  bridge_with(authority_);
  const auto resident = [&] {
    const auto result = achost::test::run_program(
        "/usr/bin/awk", {"/^VmRSS/ {print $2}", "/proc/" + std::to_string(bridge_->pid()) + "/status"});
    return std::atoi(result.out.c_str());
  };
  EXPECT_TRUE(comes_true([&] {
    return achost::test::run_program("/bin/grep", {"-c", "connected to", errors_of_bridge()}).out == "1\n" &&
           resident() < 8'000;
  })) << resident()
      << " kB";
}

TEST_F(SafelyBridged, ANewCertificateIsTakenWhileItRuns) {
  bridge_with(authority_);
  const auto connections = [&] {
    const auto result = achost::test::run_program("/bin/grep", {"-c", "connected to", errors_of_bridge()});
    return std::atoi(result.out.c_str());
  };
  EXPECT_TRUE(comes_true([&] { return connections() == 1; }));
  authority_.sign("gate-1");
  EXPECT_TRUE(comes_true([&] { return connections() == 2; }));
  bridge_->signal(SIGHUP);
  EXPECT_TRUE(comes_true([&] { return connections() == 3; }));
}

}  // namespace
}  // namespace mqtt::test
