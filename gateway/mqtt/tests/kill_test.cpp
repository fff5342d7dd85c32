// The bridge, the broker and the daemon killed at random while the door has much to tell.
#include <algorithm>
#include <atomic>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <thread>

#include "gateway/base/daemon.h"
#include "gateway/mqtt/outbox.h"
#include "gateway/mqtt/tests/bridge_fixture.h"

namespace mqtt::test {
namespace {

int kills() {
  const char* const wanted = std::getenv("MQTT_KILLS");
  return wanted != nullptr ? std::atoi(wanted) : 15;
}

using std::chrono::steady_clock;

// Changes the door's mode again and again, whatever is killed meanwhile. It has a thread of its own.
class Load {
 public:
  static constexpr std::chrono::milliseconds kBetween{50};

  explicit Load(const std::filesystem::path& directory) : daemon_(context_, directory) {
    net::co_spawn(context_, go_on(), net::detached);
    thread_ = std::thread([this] { context_.run(); });
  }
  ~Load() {
    context_.stop();
    thread_.join();
  }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

  // How often the door has taken it.
  int done() const { return done_; }

 private:
  net::awaitable<void> go_on() {
    for (int i = 0;; ++i) {
      const gateway::Json request = {
          {"command", "door_mode"}, {"mode", i % 2 == 0 ? "locked" : "normal"}, {"seconds", 60}};
      try {
        co_await daemon_.ask(request);
        ++done_;
      } catch (const std::exception&) {
        // It has just been killed.
      }
      co_await pause(context_, kBetween);
    }
  }

  net::io_context context_{1};
  gateway::Daemon daemon_;  // of the thread
  std::atomic<int> done_ = 0;
  std::thread thread_;
};

class Killed : public Bridged {
 protected:
  void SetUp() override {
    start();
    broker_.emplace("max_inflight_messages 1000\n");
    listen("doors/+/journal/+", "centre");
    bridge();
  }

  // Whoever listens comes back by himself, and the broker keeps for him what he missed.
  void kill_one(std::minstd_rand::result_type which) {
    if (which == 0) {
      kill_bridge();
      bridge();
    } else if (which == 1) {
      broker_->kill();
      broker_->start();
    } else {
      host().signal(SIGKILL);
      host().wait();
      start();
    }
  }

  std::int64_t last_number() const {
    const std::string text = output({"journal", "--last", "1", "--json"});
    return nlohmann::json::parse(text).at("number").get<std::int64_t>();
  }

  // Until all up to the last have come, or nothing comes any more. A broker that is killed may have acknowledged what
  // it has not passed on: a receiver sees the gap, and asks again. How often he had to.
  int wait_for_all(std::int64_t last) const {
    constexpr std::chrono::seconds kUntilAsked{3};
    int asked = 0;
    std::size_t had = 0;  // doubles and all
    auto had_since = steady_clock::now();
    auto ask_at = had_since + kUntilAsked;
    while (steady_clock::now() - had_since < refhost::test::kPatience) {
      const auto all = numbers_of(listener_->all());
      const std::set<std::int64_t> numbers(all.begin(), all.end());
      if (static_cast<std::int64_t>(numbers.size()) >= last) {
        break;
      }
      if (all.size() > had) {
        had = all.size();
        had_since = steady_clock::now();
        ask_at = had_since + kUntilAsked;
      } else if (steady_clock::now() > ask_at) {
        std::int64_t before = 0;
        while (numbers.contains(before + 1)) {
          ++before;
        }
        publish("doors/gate-1/cmd/replay", nlohmann::json{{"after", before}}.dump());
        ++asked;
        ask_at = steady_clock::now() + kUntilAsked;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return asked;
  }
};

TEST_F(Killed, EveryEntryArrivesAndDoublesAreKnownByTheirNumbers) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::minstd_rand chance(seed);
  const auto from = steady_clock::now();
  {
    const Load load(state());
    for (int i = 0; i < kills(); ++i) {
      const int wanted = load.done() + static_cast<int>(chance() % 20);
      ASSERT_TRUE(comes_true([&] { return load.done() >= wanted; }));
      kill_one(chance() % 3);
    }
  }
  const std::chrono::duration<double> passed = steady_clock::now() - from;
  const std::int64_t last = last_number();
  const int asked_again = wait_for_all(last);
  std::map<std::int64_t, nlohmann::json> contents;
  std::size_t all = 0;
  for (const Told& one : listener_->all()) {
    if (one.content.contains("number")) {
      ++all;
      const auto [known, is_new] = contents.try_emplace(one.content.at("number").get<std::int64_t>(), one.content);
      EXPECT_EQ(known->second, one.content);
    }
  }
  EXPECT_EQ(static_cast<std::int64_t>(contents.size()), last);
  EXPECT_EQ(contents.begin()->first, 1);
  EXPECT_EQ(contents.rbegin()->first, last);
  std::printf("%d kills in %.0f s, %.1f entries a second: %zu of %lld came, %zu doubles, asked for again %d times\n",
              kills(), passed.count(), static_cast<double>(last) / passed.count(), contents.size(),
              static_cast<long long>(last), all - contents.size(), asked_again);
}

}  // namespace
}  // namespace mqtt::test
