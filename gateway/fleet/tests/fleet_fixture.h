// A broker as the package sets it up, with certificates as its script makes them, and doors that speak as bridges do.
#pragma once

#include <gmock/gmock.h>

#include <boost/asio/post.hpp>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "door/tests/process.h"
#include "gateway/fleet/centre.h"
#include "gateway/fleet/document.h"
#include "gateway/fleet/json.h"
#include "gateway/fleet/parts.h"
#include "gateway/mqtt/broker.h"
#include "gateway/mqtt/tests/mosquitto.h"
#include "gateway/mqtt/topics.h"
#include "refhost/tests/support.h"

namespace fleet::test {

using achost::test::Result;
using mqtt::test::comes_true;

inline std::string content_of(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class FleetBroker {
 public:
  FleetBroker() {
    certificates({"authority"});
    certificates({"server", "localhost", "127.0.0.1"});
    for (const char* const name : {"centre", "operator", "gate-1", "gate-2", "yard"}) {
      certificates({"client", name});
    }
    for (const char* const name : {"fleet.acl", "provision.acl"}) {
      std::filesystem::copy(std::string(PACKAGED) + "/" + name, file(name));
    }
    start();
  }

  std::string file(const std::string& name) const { return directory_.path() / name; }
  std::uint16_t port() const { return port_; }
  std::uint16_t strangers_port() const { return strangers_port_; }
  std::string address() const { return "localhost:" + std::to_string(port_); }

  void certificates(std::vector<std::string> words) const {
    words.insert(words.begin(), directory_.path());
    const auto result = achost::test::run_program(std::string(PACKAGED) + "/certificates", words);
    ASSERT_EQ(result.status, 0) << result.err;
  }

  mqtt::Place place(const std::string& name, const std::string& client) const {
    return {.host = "localhost",
            .port = port_,
            .client = client,
            .files = {.ca = file("ca.pem"), .certificate = file(name + ".pem"), .key = file(name + ".key")},
            .user = {},
            .password = {}};
  }

  // A program of mosquitto's own, as a stranger's: mosquitto_pub, mosquitto_sub. name: whose certificate; empty: none,
  // at the listener for strangers.
  Result stranger(const std::string& program, const std::string& name, std::vector<std::string> words) const {
    const auto at = std::to_string(name.empty() ? strangers_port_ : port_);
    words.insert(words.end(), {"-h", "localhost", "-p", at, "--cafile", file("ca.pem"), "-V", "5", "-q", "1"});
    if (!name.empty()) {
      words.insert(words.end(), {"--cert", file(name + ".pem"), "--key", file(name + ".key")});
    }
    return achost::test::run_program("/usr/bin/" + program, words);
  }

 private:
  void start() {
    port_ = mqtt::test::free_port();
    do {
      strangers_port_ = mqtt::test::free_port();
    } while (strangers_port_ == port_);
    std::string text = content_of(std::string(PACKAGED) + "/mosquitto.conf");
    replace(text, "DIRECTORY", directory_.path());
    replace(text, "8883", std::to_string(port_));
    replace(text, "8884", std::to_string(strangers_port_));
    std::ofstream(file("mosquitto.conf")) << text << "user root\n";
    process_.emplace(mqtt::test::kMosquitto, std::vector<std::string>{"-c", file("mosquitto.conf")});
    ASSERT_TRUE(comes_true(
        [this] { return mqtt::test::somebody_listens(port_) && mqtt::test::somebody_listens(strangers_port_); }));
  }

  static void replace(std::string& text, const std::string& what, const std::string& with) {
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
      text.replace(at, what.size(), with);
    }
  }

  refhost::test::TemporaryDirectory directory_;
  std::uint16_t port_ = 0;
  std::uint16_t strangers_port_ = 0;
  std::optional<achost::test::Achost> process_;
};

// A door's bridge, as far as the centre sees it. Its connection has a thread of its own.
class TestDoor {
 public:
  static constexpr std::int64_t kSeen = 1'767'222'000'000;  // when it tells its state, unless that says another time

  TestDoor(const FleetBroker& broker, const std::string& id, Json state = Json::object())
      : id_(id),
        broker_(context_, broker.place(id, id),
                {.up = [this] { came_up(); },
                 .down = [](const mqtt::Fault& fault) { ADD_FAILURE() << fault.text; },
                 .message = [this](const mqtt::Message& message) { take(message); }}) {
    state_ = {{"online", true}, {"reader", "answering"}, {"lock", "closed"}, {"alarms", Json::array()}, {"drift", 0},
              {"at", kSeen}};
    state_.update(state);
    broker_.set_will(mqtt::topics::state(id_), [at = state_.at("at")] {
      return Json{{"online", false}, {"at", at}}.dump();
    });
    broker_.start();
    thread_ = std::thread([this] { context_.run(); });
    EXPECT_TRUE(comes_true([this] { return is_ready(); })) << id;
  }

  ~TestDoor() {
    boost::asio::post(context_, [this] {
      broker_.publish(
          {.topic = mqtt::topics::state(id_), .payload = Json{{"online", false}, {"at", kSeen}}.dump(), .retain = true},
          [this](mqtt::Outcome) { context_.stop(); });
    });
    thread_.join();
  }

  TestDoor(const TestDoor&) = delete;
  TestDoor& operator=(const TestDoor&) = delete;

  // From then on what it answers to a request, beside "ok".
  void answer(const std::string& name, const Json& answer) {
    const std::lock_guard lock(mutex_);
    answers_[name] = answer;
  }

  // From then on it takes no desired state.
  void refuse(const std::string& error) {
    const std::lock_guard lock(mutex_);
    refusal_ = error;
  }

  void tell(const std::string& rest, const Json& payload) {
    boost::asio::post(context_, [this, rest, payload] {
      if (!broker_.publish({.topic = mqtt::topics::of(id_, rest), .payload = payload.dump()})) {
        tell(rest, payload);  // when there is room
      }
    });
  }

  // What it was asked last by that name; null when nothing.
  Json asked(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    const auto found = asked_.find(name);
    return found == asked_.end() ? Json() : found->second;
  }

  // The lines of the parts that it took last, and how many it had to fetch for that.
  Document document() const {
    const std::lock_guard lock(mutex_);
    return document_;
  }
  std::size_t fetched() const {
    const std::lock_guard lock(mutex_);
    return fetched_;
  }

 private:
  bool is_ready() const {
    const std::lock_guard lock(mutex_);
    return is_ready_;
  }

  void came_up() {
    broker_.subscribe(mqtt::topics::command(id_, "+"));
    broker_.subscribe(mqtt::topics::desired(id_), [this](bool) {
      broker_.publish({.topic = mqtt::topics::state(id_), .payload = state_.dump(), .retain = true},
                      [this](mqtt::Outcome outcome) {
                        EXPECT_EQ(outcome, mqtt::Outcome::taken);
                        const std::lock_guard lock(mutex_);
                        is_ready_ = true;
                      });
    });
  }

  void take(const mqtt::Message& message) {
    const auto rest = mqtt::topics::place_of(message.topic)->rest;
    const std::string payload(message.payload);
    if (const auto name = mqtt::topics::behind(rest, "cmd/")) {
      take_command(std::string(*name), object_of(payload), message);
    } else if (rest == "desired") {
      manifest_ = payload.empty() ? Manifest() : parse_manifest(payload);
    } else if (const auto hash = mqtt::topics::behind(rest, "desired/parts/"); hash && !payload.empty()) {
      broker_.unsubscribe(std::string(message.topic));
      parts_[std::string(*hash)] = payload;
      const std::lock_guard lock(mutex_);
      ++fetched_;
    }
    go_on();
  }

  void take_command(const std::string& name, const Json& request, const mqtt::Message& message) {
    Json answer = {{"ok", true}};
    {
      const std::lock_guard lock(mutex_);
      asked_[name] = request;
      answer.update(answers_[name].is_null() ? Json::object() : answers_[name]);
    }
    broker_.publish({.topic = std::string(message.response_topic),
                     .payload = answer.dump(),
                     .correlation = std::string(message.correlation)});
  }

  // The next part that is missing, or the answer when all are there.
  void go_on() {
    if (manifest_.revision == answered_) {
      return;
    }
    for (const auto& part : manifest_.parts) {
      if (!parts_.contains(part.hash)) {
        broker_.subscribe(mqtt::topics::desired_part(id_, part.hash));
        return;
      }
    }
    answered_ = manifest_.revision;
    Json answer = {{"revision", manifest_.revision}, {"applied", true}};
    const std::lock_guard lock(mutex_);
    if (!refusal_.empty()) {
      answer = {{"revision", manifest_.revision}, {"applied", false}, {"error", refusal_}};
    } else {
      document_ = {};
      for (const auto& part : manifest_.parts) {
        add_lines(document_, parts_.at(part.hash));
      }
    }
    broker_.publish({.topic = mqtt::topics::desired_answer(id_), .payload = answer.dump(), .retain = true});
  }

  const std::string id_;
  boost::asio::io_context context_{1};
  Json state_;
  Manifest manifest_;  // these are of the connection's thread
  Parts parts_;
  std::int64_t answered_ = 0;
  mqtt::Broker broker_;
  mutable std::mutex mutex_;  // guards what is below
  std::map<std::string, Json> answers_;
  std::map<std::string, Json> asked_;
  std::string refusal_;
  Document document_;
  std::size_t fetched_ = 0;
  bool is_ready_ = false;
  std::thread thread_;
};

class Fleet : public testing::Test {
 protected:
  // achost-fleet as somebody at the centre.
  std::vector<std::string> words(std::vector<std::string> words, const std::string& name = "centre") const {
    words.insert(words.end(), {"--broker", broker_.address(), "--ca", broker_.file("ca.pem"), "--certificate",
                               broker_.file(name + ".pem"), "--key", broker_.file(name + ".key")});
    return words;
  }

  Result run(std::vector<std::string> command, const std::string& name = "centre") const {
    return achost::test::run_program(ACHOST_FLEET, words(std::move(command), name));
  }

  // The output of a command that succeeds.
  std::string output(std::vector<std::string> command) const {
    const auto result = run(std::move(command));
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
  }

  std::string written(const std::string& name, const std::string& text) const {
    std::ofstream(broker_.file(name)) << text;
    return broker_.file(name);
  }

  // What is retained below a topic, by topic.
  std::map<std::string, std::string> retained(const std::string& filter) const {
    std::map<std::string, std::string> all;
    Centre centre({.broker = broker_.address(), .files = broker_.place("operator", "").files});
    centre.listen(filter, [&all](const mqtt::Message& message) { all.emplace(message.topic, message.payload); });
    centre.settle();
    return all;
  }

  FleetBroker broker_;
};

}  // namespace fleet::test
