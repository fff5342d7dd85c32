// The bridge, the broker and the daemon killed at random while the door has much to tell.
#include <cstdlib>
#include <random>
#include <set>

#include "gateway/mqtt/tests/bridge_fixture.h"

namespace mqtt::test {
namespace {

int kills() {
  const char* const wanted = std::getenv("MQTT_KILLS");
  return wanted != nullptr ? std::atoi(wanted) : 15;
}

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

  // Entries of the journal, as many as the door makes meanwhile.
  void make_entries(int count) const {
    for (int i = 0; i < count; ++i) {
      command({"door", "mode", i % 2 == 0 ? "locked" : "normal", "--for", "60s"});
    }
  }

  std::int64_t last_number() const {
    const std::string text = output({"journal", "--last", "1", "--json"});
    return nlohmann::json::parse(text).at("number").get<std::int64_t>();
  }
};

TEST_F(Killed, EveryEntryArrivesAndDoublesAreKnownByTheirNumbers) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(seed);
  std::minstd_rand chance(seed);
  for (int i = 0; i < kills(); ++i) {
    make_entries(static_cast<int>(chance() % 4));
    kill_one(chance() % 3);
  }
  make_entries(1);
  const std::int64_t last = last_number();
  const auto arrived = [&] {
    const auto numbers = numbers_of(listener_->all());
    return std::set<std::int64_t>(numbers.begin(), numbers.end());
  };
  // A broker that is killed may have acknowledged what it has not passed on: a receiver sees the gap, and asks again.
  auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  EXPECT_TRUE(comes_true([&] {
    const auto numbers = arrived();
    if (std::chrono::steady_clock::now() > patience && static_cast<std::int64_t>(numbers.size()) < last) {
      std::int64_t before = 0;
      while (numbers.contains(before + 1)) {
        ++before;
      }
      publish("doors/gate-1/cmd/replay", nlohmann::json{{"after", before}}.dump());
      patience += std::chrono::seconds(3);
    }
    return static_cast<std::int64_t>(numbers.size()) >= last;
  })) << arrived().size()
      << " of " << last;
  EXPECT_EQ(*arrived().begin(), 1);
  std::map<std::int64_t, nlohmann::json> contents;
  for (const Told& one : listener_->all()) {
    if (one.content.contains("number")) {
      const auto [known, is_new] = contents.try_emplace(one.content.at("number").get<std::int64_t>(), one.content);
      EXPECT_EQ(known->second, one.content);
    }
  }
}

}  // namespace
}  // namespace mqtt::test
