// Connections to a real broker.
#include "gateway/mqtt/broker.h"

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <memory>
#include <thread>

#include "gateway/mqtt/tests/mosquitto.h"

namespace mqtt {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr Timing kQuick{.least = milliseconds(20), .most = milliseconds(200)};

struct Heard {
  std::string topic;
  std::string payload;
  bool is_retained = false;
  std::string response_topic;
  std::string correlation;
};

// A client, and what it has met.
struct Client {
  Client(net::io_context& context, Place place)
      : broker(context, std::move(place),
               {.up = [this] { ++ups; },
                .down = [this](const Fault& fault) { faults.push_back(fault); },
                .message =
                    [this](const Message& message) {
                      heard.push_back({std::string(message.topic), std::string(message.payload), message.is_retained,
                                       std::string(message.response_topic), std::string(message.correlation)});
                    }},
               kQuick) {}

  int ups = 0;
  std::vector<Fault> faults;
  std::vector<Heard> heard;
  Broker broker;
};

class BrokerTest : public testing::Test {
 protected:
  BrokerTest() { std::signal(SIGPIPE, SIG_IGN); }  // as the programs do

  Place place(const std::string& client) const {
    return {.host = "127.0.0.1", .port = mosquitto_->port(), .client = client};
  }

  // Runs until it is true.
  bool runs_until(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + refhost::test::kPatience;
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
      context_.restart();
      context_.run_for(milliseconds(5));
    }
    return condition();
  }

  void bring_up(Client& client) {
    client.broker.start();
    ASSERT_TRUE(runs_until([&] { return client.broker.is_up(); }));
  }

  // It listens there, and the broker knows.
  void listen(Client& client, const std::string& filter, bool keeps_retain_flag = false) {
    const auto is_listening = std::make_shared<bool>(false);  // it is answered anew after each connection
    client.broker.subscribe(
        filter, [is_listening](bool granted) { *is_listening = granted; }, keeps_retain_flag);
    ASSERT_TRUE(runs_until([&] { return *is_listening; }));
  }

  net::io_context context_{1};
  std::optional<test::Mosquitto> mosquitto_{std::in_place};
};

TEST_F(BrokerTest, WhatIsToldIsAcknowledgedAndHeardWithItsProperties) {
  Client teller(context_, place("teller"));
  Client listener(context_, place("listener"));
  bring_up(teller);
  bring_up(listener);
  listen(listener, "a/+");
  Outcome outcome = Outcome::lost;
  EXPECT_TRUE(teller.broker.publish(
      {.topic = "a/b", .payload = "hello", .response_topic = "a/answer", .correlation = std::string("\0\1", 2)},
      [&](Outcome what) { outcome = what; }));
  EXPECT_EQ(teller.broker.in_flight(), 1U);
  EXPECT_TRUE(runs_until([&] { return !listener.heard.empty() && teller.broker.in_flight() == 0; }));
  EXPECT_EQ(outcome, Outcome::taken);
  EXPECT_EQ(listener.heard[0].payload, "hello");
  EXPECT_EQ(listener.heard[0].response_topic, "a/answer");
  EXPECT_EQ(listener.heard[0].correlation, std::string("\0\1", 2));
}

TEST_F(BrokerTest, NoMoreIsInFlightThanItsBound) {
  Client teller(context_, place("teller"));
  EXPECT_FALSE(teller.broker.publish({.topic = "a", .payload = ""}));
  bring_up(teller);
  std::size_t taken = 0;
  while (teller.broker.publish({.topic = "a", .payload = std::to_string(taken)})) {
    ++taken;
  }
  EXPECT_EQ(taken, Broker::kMostInFlight);
  EXPECT_TRUE(runs_until([&] { return teller.broker.in_flight() == 0; }));
}

TEST_F(BrokerTest, WithoutAGoodbyeTheBrokerTellsTheWill) {
  Client listener(context_, place("listener"));
  bring_up(listener);
  listen(listener, "state");
  {
    Client polite(context_, place("polite"));
    polite.broker.set_will("state", [] { return "gone"; });
    bring_up(polite);
    polite.broker.stop();
  }
  Client taken_over(context_, place("twin"));
  taken_over.broker.set_will("state", [] { return "gone"; });
  bring_up(taken_over);
  Client twin(context_, place("twin"));  // for whom the broker ends the first one's connection
  twin.broker.start();
  EXPECT_TRUE(runs_until([&] { return !taken_over.faults.empty(); }));
  taken_over.broker.stop();
  EXPECT_TRUE(runs_until([&] { return !listener.heard.empty(); }));
  EXPECT_EQ(listener.heard.size(), 1U);
}

TEST_F(BrokerTest, ThoseThatStartTogetherDoNotComeTogether) {
  constexpr int kMany = 20;
  const auto started = [&](milliseconds first) {
    std::vector<std::unique_ptr<Broker>> all;
    for (int i = 0; i < kMany; ++i) {
      all.push_back(std::make_unique<Broker>(context_, place("client-" + std::to_string(i)), Broker::Handlers{},
                                             Timing{.first = first}));
      all.back()->start();
    }
    return all;
  };
  const auto count_up = [](const auto& all) {
    return std::ranges::count_if(all, [](const auto& one) { return one->is_up(); });
  };
  {
    const auto all = started(std::chrono::hours(24));
    Client other(context_, place("other"));
    bring_up(other);  // by then they would be there too
    EXPECT_EQ(count_up(all), 0);
  }
  const auto all = started(milliseconds(300));
  EXPECT_TRUE(runs_until([&] { return count_up(all) == kMany; }));
}

TEST_F(BrokerTest, ItComesBackAndListensAgainWhenTheBrokerDoes) {
  Client listener(context_, place("listener"));
  bring_up(listener);
  listen(listener, "a");
  bool is_lost = false;
  mosquitto_->signal(SIGSTOP);
  listener.broker.publish({.topic = "b", .payload = "x"}, [&](Outcome what) { is_lost = what == Outcome::lost; });
  mosquitto_->kill();
  EXPECT_TRUE(runs_until([&] { return listener.faults.size() > 1; }));
  EXPECT_TRUE(is_lost);
  EXPECT_THAT(listener.faults.back().text, HasSubstr("broker 127.0.0.1:"));
  mosquitto_->start();
  EXPECT_TRUE(runs_until([&] { return listener.ups == 2; }));
  Client teller(context_, place("teller"));
  bring_up(teller);
  EXPECT_TRUE(runs_until([&] {
    teller.broker.publish({.topic = "a", .payload = "again"});
    return !listener.heard.empty();
  }));
}

TEST_F(BrokerTest, ARetainedMessageIsKnownForOne) {
  Client client(context_, place("client"));
  bring_up(client);
  listen(client, "a", true);
  client.broker.publish({.topic = "a", .payload = "x", .retain = true});
  EXPECT_TRUE(runs_until([&] { return !client.heard.empty(); }));
  EXPECT_TRUE(client.heard[0].is_retained);
}

TEST_F(BrokerTest, ItMayBeStoppedFromAHandler) {
  std::optional<Broker> broker;
  broker.emplace(context_, place("client"), Broker::Handlers{.up = [&] { broker->stop(); }}, kQuick);
  broker->start();
  EXPECT_TRUE(runs_until([&] { return context_.stopped(); }));
  EXPECT_FALSE(broker->is_up());
}

TEST_F(BrokerTest, WhatTheBrokerForbidsIsRefused) {
  refhost::test::TemporaryDirectory directory;
  const std::string rules = directory.path() / "acl";
  std::ofstream(rules) << "topic read allowed\n";
  mosquitto_.emplace("acl_file " + rules + "\n");
  Client client(context_, place("client"));
  bring_up(client);
  Outcome outcome = Outcome::lost;
  client.broker.publish({.topic = "allowed", .payload = ""}, [&](Outcome what) { outcome = what; });
  EXPECT_TRUE(runs_until([&] { return client.broker.in_flight() == 0; }));
  EXPECT_EQ(outcome, Outcome::refused);
}

TEST_F(BrokerTest, ABrokerThatSaysNothingIsGivenUp) {
  const auto deaf = place("client");
  mosquitto_->signal(SIGSTOP);
  Broker broker(context_, deaf,
                {.down =
                     [&](const Fault& fault) {
                       EXPECT_THAT(fault.text, HasSubstr("it does not answer"));
                       context_.stop();
                     }},
                {.patience = milliseconds(100), .keep_alive = std::chrono::seconds(5)});
  broker.start();
  EXPECT_TRUE(runs_until([&] { return context_.stopped(); }));
  mosquitto_->signal(SIGCONT);
}

TEST_F(BrokerTest, ABrokerThatIsNotThereIsTriedLessAndLessOften) {
  const auto missing = place("client");
  mosquitto_->kill();
  std::vector<std::chrono::steady_clock::time_point> tries;
  Broker broker(context_, missing, {.down = [&](const Fault&) { tries.push_back(std::chrono::steady_clock::now()); }},
                {.least = milliseconds(10), .most = milliseconds(400)});
  broker.start();
  EXPECT_TRUE(runs_until([&] { return tries.size() == 8; }));
  EXPECT_GE(tries[7] - tries[6], milliseconds(200)) << "half of the longest wait, by chance more";
}

TEST_F(BrokerTest, WhatIsLongerThanItsBoundIsDropped) {
  Client client(context_, place("client"));
  bring_up(client);
  listen(client, "a");
  for (const std::size_t size : {Broker::kLongestPayload + 1, Broker::kLongestPayload}) {
    client.broker.publish({.topic = "a", .payload = std::string(size, 'x')});
  }
  EXPECT_TRUE(runs_until([&] { return !client.heard.empty(); }));
  EXPECT_EQ(client.heard[0].payload.size(), Broker::kLongestPayload);
}

// The most descriptors that this process may have, for a while.
class FewDescriptors {
 public:
  FewDescriptors() { getrlimit(RLIMIT_NOFILE, &before_); }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

  void allow(rlim_t most) const {
    const rlimit limit{most, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &limit);
  }

 private:
  rlimit before_{};
};

TEST_F(BrokerTest, WithoutADescriptorItComesAgainLaterAndDoesNotSpin) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer looks at memory through a pipe, for which it needs descriptors";
#endif
  const FewDescriptors limit;
  const int next = dup(STDERR_FILENO);
  close(next);
  Client client(context_, place("a"));
  limit.allow(static_cast<rlim_t>(next));
  client.broker.start();
  for (int more = 0; !client.broker.is_up(); ++more) {
    limit.allow(static_cast<rlim_t>(next + more));
    const auto faults = client.faults.size();
    ASSERT_TRUE(runs_until([&] { return client.broker.is_up() || client.faults.size() > faults; }));
  }
  EXPECT_FALSE(client.faults.empty());
  const auto begin = std::clock();
  context_.restart();
  context_.run_for(milliseconds(300));
  EXPECT_LT(std::clock() - begin, CLOCKS_PER_SEC / 10);
  EXPECT_TRUE(client.broker.is_up());
}

TEST_F(BrokerTest, AThousandConnectionsRunOnOneThread) {
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 1000; ++i) {
    clients.push_back(std::make_unique<Client>(context_, place("door-" + std::to_string(i))));
    clients.back()->broker.start();
  }
  EXPECT_TRUE(runs_until(
      [&] { return std::ranges::all_of(clients, [](const auto& client) { return client->broker.is_up(); }); }));
}

class SafeBrokerTest : public BrokerTest {
 protected:
  SafeBrokerTest() {
    authority_.sign("broker");
    authority_.sign("door");
    mosquitto_.emplace(test::Mosquitto::with_tls(authority_));
  }

  Place safe(const std::string& name, const test::Authority& authority) const {
    Place it = place("door");
    it.files = {.ca = authority_.file("ca.pem"),
                .certificate = authority.file(name + ".pem"),
                .key = authority.file(name + ".key")};
    return it;
  }

  Fault fault_with(const Place& where) {
    Client client(context_, where);
    client.broker.start();
    EXPECT_TRUE(runs_until([&] { return !client.faults.empty(); }));
    return client.faults.at(0);
  }

  const test::Authority authority_;
};

TEST_F(SafeBrokerTest, ACertificateLetsItIn) {
  Client client(context_, safe("door", authority_));
  bring_up(client);
  EXPECT_TRUE(client.faults.empty());
}

TEST_F(SafeBrokerTest, AGoodbyeIsHeardWhateverIsStillOnItsWay) {
  Client listener(context_, safe("door", authority_));
  bring_up(listener);
  listen(listener, "state");
  for (int round = 0; round < 20; ++round) {
    Place where = safe("door", authority_);
    where.client = "polite";
    Client polite(context_, where);
    polite.broker.set_will("state", [] { return "gone"; });
    bring_up(polite);
    for (const auto* filter : {"a", "b", "c"}) {
      polite.broker.subscribe(filter, [](bool) {});  // whose answers it does not wait for
    }
    std::this_thread::sleep_for(milliseconds(round));
    polite.broker.stop();
  }
  listener.broker.publish({.topic = "state", .payload = "all"});
  EXPECT_TRUE(runs_until([&] { return !listener.heard.empty() && listener.heard.back().payload == "all"; }));
  EXPECT_EQ(listener.heard.size(), 1U);
}

TEST_F(SafeBrokerTest, AForeignCertificateIsToldFromAMissingBroker) {
  const test::Authority other("other");
  other.sign("door");
  const Fault fault = fault_with(safe("door", other));
  EXPECT_THAT(fault.text, testing::AnyOf(HasSubstr("door.pem is of a CA that the broker does not know"),
                                         HasSubstr("door.pem: does it know whose it is?")));
  EXPECT_TRUE(fault.is_of_safety);
}

TEST_F(SafeBrokerTest, AnExpiredCertificateIsSaid) {
  authority_.sign("late", -1);
  const Fault fault = fault_with(safe("late", authority_));
  EXPECT_THAT(fault.text, HasSubstr("late.pem has expired"));
  EXPECT_TRUE(fault.is_of_safety);
}

TEST_F(SafeBrokerTest, AForeignBrokerIsNotSpokenTo) {
  const test::Authority other("other");
  Place where = safe("door", authority_);
  where.files.ca = other.file("ca.pem");
  const Fault fault = fault_with(where);
  EXPECT_THAT(fault.text, HasSubstr("the broker's certificate is refused"));
  EXPECT_TRUE(fault.is_of_safety);
}

TEST_F(SafeBrokerTest, ABrokerOfAnotherNameIsNotSpokenTo) {
  Place where = safe("door", authority_);
  authority_.sign("elsewhere", 30, "DNS:broker.example");
  mosquitto_.emplace(test::Mosquitto::with_tls(authority_, "elsewhere"));
  where.port = mosquitto_->port();
  EXPECT_THAT(fault_with(where).text, HasSubstr("the broker's certificate is refused: IP address mismatch"));
}

TEST_F(SafeBrokerTest, ANewCertificateIsTakenWithoutARestart) {
  authority_.sign("renewed", -1);
  Client client(context_, safe("renewed", authority_));
  client.broker.start();
  EXPECT_TRUE(runs_until([&] { return !client.faults.empty(); }));
  authority_.sign("renewed");
  EXPECT_TRUE(runs_until([&] { return client.broker.is_up(); }));
}

TEST_F(SafeBrokerTest, AFileThatIsNotThereIsNamed) {
  Place where = safe("nobody", authority_);
  const Fault fault = fault_with(where);
  EXPECT_THAT(fault.text, HasSubstr("cannot use the certificate " + where.files.certificate));
  EXPECT_TRUE(fault.is_of_safety);
}

}  // namespace
}  // namespace mqtt
