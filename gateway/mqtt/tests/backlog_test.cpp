// Much that has waited, and how long what happens takes.
#include "gateway/mqtt/outbox.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <mosquitto.h>

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include "bench/full_journal.h"
#include "gateway/base/daemon.h"
#include "gateway/mqtt/broker.h"
#include "gateway/mqtt/tests/bridge_fixture.h"

namespace mqtt::test {
namespace {

using Clock = std::chrono::steady_clock;

int backlog() {
  const char* const wanted = std::getenv("MQTT_BACKLOG");
  return wanted != nullptr ? std::atoi(wanted) : 3000;
}

class Backlog : public Bridged {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(state());
    fill_journal(state(), backlog());
    prepare();
    start();
    broker_.emplace();
    listen_here();
  }

  // From now on, to the broker that is there.
  void listen_here() {
    client_.emplace(context_, Place{.host = "127.0.0.1", .port = broker_->port(), .client = "centre"},
                    Broker::Handlers{.message = [this](const Message& message) { take(message); }});
    client_->subscribe("doors/#");
    client_->subscribe("bare");
    client_->start();
    ASSERT_TRUE(runs_until([this] { return client_->is_up(); }));
  }

  // The journal, before anybody uses it.
  virtual void prepare() {}

  // "number": 7 of a payload.
  static std::int64_t number_in(std::string_view payload) {
    const auto at = payload.find("\"number\":");
    return at == std::string_view::npos ? 0 : std::atoll(payload.data() + at + 9);
  }

  // The day and the hour of "time": "2026-11-22T10:40:11.123+01:00".
  static std::string time_in(std::string_view payload) {
    const auto at = payload.find("\"time\":\"");
    return at == std::string_view::npos ? "" : std::string(payload.substr(at + 8, 16));
  }

  void take(const Message& message) {
    if (message.topic.starts_with("doors/gate-1/journal/")) {
      in_order_.push_back(number_in(message.payload));
      arrived_.try_emplace(in_order_.back(), Clock::now());
      oldest_ = oldest_.empty() ? time_in(message.payload) : oldest_;
    } else if (message.topic.starts_with("doors/gate-1/live/")) {
      ahead_.try_emplace(number_in(message.payload), Clock::now());
    } else if (message.topic == "bare") {
      bare_.try_emplace(std::atoll(std::string(message.payload).c_str()), Clock::now());
    }
  }

  bool runs_until(const std::function<bool()>& condition, std::chrono::seconds patience = std::chrono::seconds(60)) {
    const auto deadline = Clock::now() + patience;
    while (!condition() && Clock::now() < deadline) {
      context_.restart();
      context_.run_one_for(std::chrono::milliseconds(5));
      context_.poll();
    }
    return condition();
  }

  std::string of_bridge(const std::string& file) const {
    std::ifstream in("/proc/" + std::to_string(bridge_->pid()) + "/" + file);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  net::io_context context_{1};
  std::optional<Broker> client_;
  std::vector<std::int64_t> in_order_;
  std::string oldest_;  // when the first entry happened
  std::map<std::int64_t, Clock::time_point> arrived_;
  std::map<std::int64_t, Clock::time_point> ahead_;
  std::map<std::int64_t, Clock::time_point> bare_;
};

TEST_F(Backlog, ComesInOrderAndWhatHappensMeanwhileDoesNotWaitForIt) {
  client_.reset();
  broker_->kill(SIGTERM);
  bridge();
  ASSERT_TRUE(comes_true([this] {
    return achost::test::run_program("/bin/grep", {"-c", "refused", errors_of_bridge()}).out == "1\n";
  }));
  bridge_->signal(SIGSTOP);  // until somebody listens
  broker_->start();
  listen_here();
  bridge_->signal(SIGCONT);
  const auto from = Clock::now();
  ASSERT_TRUE(runs_until([this] { return in_order_.size() > 100; }));
  const auto before =
      nlohmann::json::parse(output({"journal", "--last", "1", "--json"})).at("number").get<std::int64_t>();
  const auto asked = Clock::now();
  output({"door", "mode", "locked", "--for", "60s"});
  ASSERT_TRUE(
      runs_until([&] { return static_cast<std::int64_t>(arrived_.size()) > before + 1; }, std::chrono::seconds(100)));
  const std::chrono::duration<double> all = Clock::now() - from;
  for (std::size_t i = 0; i < in_order_.size(); ++i) {
    ASSERT_EQ(in_order_[i], static_cast<std::int64_t>(i) + 1);
  }
  double latest = 0;
  for (const auto& [number, in_turn] : arrived_) {
    const auto ahead = ahead_.find(number);
    const auto first = ahead == ahead_.end() ? in_turn : std::min(in_turn, ahead->second);
    latest = number <= before ? 0 : std::max(latest, std::chrono::duration<double>(first - asked).count());
  }
  if (backlog() >= 50'000) {  // a week's, for whoever asks for figures
    EXPECT_LE(latest, 2.0);
  }
  std::printf(
      "%d entries from %s on in %.2f s after the broker was back; of those that happened meanwhile %zu came ahead, the "
      "last %.3f s after it was asked\n",
      backlog(), oldest_.c_str(), all.count(), ahead_.size(), latest);
}

// The outbox in this process, which can be met between two of its steps.
class OutboxHere : public Backlog {
 protected:
  void SetUp() override {
    Backlog::SetUp();
    daemon_.emplace(context_, state());
    door_.emplace(context_, Place{.host = "127.0.0.1", .port = broker_->port(), .client = "gate-1"},
                  Broker::Handlers{.up = [this] { outbox_->broker_is_up(); },
                                   .down = [this](const Fault&) { outbox_->broker_is_down(); }});
    outbox_.emplace(Outbox::Needs{.context = context_,
                                  .daemon = *daemon_,
                                  .broker = *door_,
                                  .door = "gate-1",
                                  .file = file(),
                                  .began = {},
                                  .seen = {},
                                  .say = [](const std::string& text) { ADD_FAILURE() << text; }});
    net::co_spawn(context_, outbox_->run(), net::detached);
    door_->start();
  }

  std::filesystem::path file() const { return std::filesystem::path(own_state()) / "position.json"; }

  // The number of the last entry that the broker has acknowledged, with all before it.
  std::int64_t reached() {
    outbox_->keep(std::nullopt);
    std::ifstream in(file());
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return number_in(text);
  }

  std::int64_t newest() const {
    return nlohmann::json::parse(output({"journal", "--last", "1", "--json"})).at("number").get<std::int64_t>();
  }

  std::optional<gateway::Daemon> daemon_;
  std::optional<Broker> door_;
  std::optional<Outbox> outbox_;
};

TEST_F(OutboxHere, AReplayBeginsWhereItIsWantedAlsoWhileMuchIsOnItsWay) {
  ASSERT_TRUE(runs_until([this] { return in_order_.size() > 100; }));
  outbox_->go_back(0);
  EXPECT_TRUE(runs_until([this] { return std::ranges::count(in_order_, 1) == 2; })) << reached();
}

TEST_F(OutboxHere, NoMoreIsUnderWayThanItsWindow) {
  ASSERT_TRUE(runs_until([this] { return door_->is_up(); }));
  broker_->signal(SIGSTOP);  // while nearly all is still to be told
  EXPECT_TRUE(runs_until([this] { return door_->in_flight() == Outbox::kWindow; }));
  EXPECT_FALSE(runs_until([this] { return door_->in_flight() > Outbox::kWindow; }, std::chrono::seconds(1)));
  broker_->signal(SIGCONT);
}

TEST_F(OutboxHere, WhatHappensWhileMuchIsOnItsWayIsToldAtOnceToo) {
  ASSERT_TRUE(runs_until([this] { return door_->is_up(); }));
  broker_->signal(SIGSTOP);  // while nearly all is still to be told
  output({"door", "mode", "locked", "--for", "60s"});
  EXPECT_TRUE(runs_until([this] { return door_->in_flight() > Outbox::kWindow; }));
  broker_->signal(SIGCONT);
  ASSERT_TRUE(runs_until([&] { return !ahead_.empty() && arrived_.contains(ahead_.begin()->first); }));
  EXPECT_LT(ahead_.begin()->second, arrived_.at(ahead_.begin()->first));
}

TEST_F(OutboxHere, WhatARenewedConnectionHasLeftUnacknowledgedIsToldAgain) {
  ASSERT_TRUE(runs_until([this] { return outbox_->behind() == 0 && reached() == newest(); }));
  broker_->signal(SIGSTOP);
  output({"door", "mode", "locked", "--for", "60s"});
  ASSERT_TRUE(runs_until([this] { return door_->in_flight() > 0; }));
  door_->renew();
  EXPECT_EQ(door_->in_flight(), 0U);
  broker_->signal(SIGCONT);
  EXPECT_TRUE(runs_until([this] { return reached() == newest(); })) << reached() << " of " << newest();
}

// With a hole at the beginning of the journal.
class OutboxBehindAGap : public OutboxHere {
 protected:
  static constexpr std::int64_t kGone = 10;

  void prepare() override {
    SQLite::Database(state() + "/journal.db", SQLite::OPEN_READWRITE)
        .exec("DELETE FROM entries WHERE number <= " + std::to_string(kGone));
  }
};

TEST_F(OutboxBehindAGap, AGapIsToldInItsPlaceAndIsNotAskedForAgain) {
  ASSERT_TRUE(runs_until([this] { return outbox_->behind() == 0 && reached() == newest(); }));
  ASSERT_GT(in_order_.size(), 2U);
  EXPECT_EQ(in_order_[0], 0) << "the gap, which has no number";
  EXPECT_EQ(in_order_[1], kGone + 1);
  EXPECT_EQ(std::ranges::count(in_order_, 0), 1);
}

double median(std::vector<double> values) {
  std::ranges::nth_element(values, values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
  return values[values.size() / 2];
}

// A publisher that is libmosquitto and nothing else, in its own thread as the library has it.
class Bare {
 public:
  explicit Bare(std::uint16_t port) : client_(mosquitto_new("bare", true, nullptr)) {
    mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect(client_, "127.0.0.1", port, 60);
    mosquitto_loop_start(client_);
  }
  ~Bare() {
    mosquitto_disconnect(client_);
    mosquitto_loop_stop(client_, false);
    mosquitto_destroy(client_);
  }
  Bare(const Bare&) = delete;
  Bare& operator=(const Bare&) = delete;

  void publish(std::int64_t number, std::size_t size) {
    std::string text = std::to_string(number) + " ";
    text.resize(size, 'x');
    mosquitto_publish(client_, nullptr, "bare", static_cast<int>(text.size()), text.data(), 1, false);
  }

 private:
  mosquitto* client_;
};

// Figures, for whoever asks for them: MQTT_FIGURES=1.
TEST_F(Backlog, AnEntryIsHardlyLaterThanABarePublishersMessage) {
  if (std::getenv("MQTT_FIGURES") == nullptr) {
    GTEST_SKIP() << "figures are for a quiet machine: MQTT_FIGURES=1";
  }
  bridge();
  ASSERT_TRUE(runs_until([this] { return static_cast<int>(arrived_.size()) >= backlog(); }));
  Bare bare(broker_->port());
  gateway::Daemon daemon(context_, state());
  std::map<std::int64_t, Clock::time_point> seen;
  const std::function<bool(const gateway::Json&)> look = [&](const gateway::Json& line) {
    if (line.contains("entry")) {
      const auto number = line["entry"]["number"].get<std::int64_t>();
      seen.try_emplace(number, Clock::now());
      bare.publish(number, line.dump().size());
    }
    return true;
  };
  const gateway::Json request = {{"command", "journal_follow"}};
  gateway::Hangup hangup;
  net::co_spawn(context_, daemon.follow(request, look, hangup), net::detached);
  const int entries = 300;
  const auto ticks = [&] {
    std::istringstream stat(of_bridge("stat"));
    std::string word;
    long sum = 0;
    for (int i = 1; i <= 15 && stat >> word; ++i) {
      sum += i >= 14 ? std::atol(word.c_str()) : 0;
    }
    return static_cast<double>(sum) / static_cast<double>(sysconf(_SC_CLK_TCK));
  };
  const double before = ticks();
  const auto from = Clock::now();
  int told = 0;
  const auto tell = [&]() -> net::awaitable<void> {
    while (told < entries) {
      const gateway::Json mode = {
          {"command", "door_mode"}, {"mode", told % 2 == 0 ? "locked" : "normal"}, {"seconds", 60}};
      ++told;
      try {
        co_await daemon.ask(mode);
      } catch (const std::exception&) {
      }
      co_await pause(context_, std::chrono::milliseconds(195));
    }
  };
  net::co_spawn(context_, tell(), net::detached);
  runs_until([&] { return told >= entries; }, std::chrono::seconds(120));
  const double used = ticks() - before;
  const std::chrono::duration<double> passed = Clock::now() - from;
  runs_until([&] { return arrived_.size() >= seen.size() + static_cast<std::size_t>(backlog()); },
             std::chrono::seconds(5));
  std::vector<double> ours;
  std::vector<double> theirs;
  for (const auto& [number, when] : seen) {
    if (arrived_.contains(number) && bare_.contains(number)) {
      ours.push_back(std::chrono::duration<double, std::micro>(arrived_.at(number) - when).count());
      theirs.push_back(std::chrono::duration<double, std::micro>(bare_.at(number) - when).count());
    }
  }
  std::printf(
      "%zu entries, %.1f/s: median %.0f us after the control socket has told it, bare publisher %.0f us: %.2f\n",
      ours.size(), static_cast<double>(seen.size()) / passed.count(), median(ours), median(theirs),
      median(ours) / median(theirs));
  std::printf("processor %.2f %% of a core\n%s", 100 * used / passed.count(), of_bridge("status").c_str());
}

}  // namespace
}  // namespace mqtt::test
