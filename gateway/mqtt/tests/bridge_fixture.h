// achost-mqtt beside a door and a broker, and a stranger's client that listens.
#pragma once

#include <gmock/gmock.h>

#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "gateway/mqtt/tests/mosquitto.h"
#include "tests/device_fixture.h"

namespace mqtt::test {

// What a client of mosquitto's has printed of a topic and its messages.
struct Told {
  std::string topic;
  nlohmann::json content;
};

// mosquitto_sub, writing to a file. With an id the broker keeps for it what comes while it is away.
class Listener {
 public:
  Listener(std::uint16_t port, const std::string& filter, const std::string& id = "") {
    std::vector<std::string> words = {"-c", "exec mosquitto_sub -V 5 -p " + std::to_string(port) +
                                                " -q 1 -F '%t %p' -t '" + filter + "'" +
                                                (id.empty() ? "" : " -c -x 4294967295 -i " + id) + " >> " + file()};
    process_.emplace("/bin/sh", std::move(words));
  }
  ~Listener() { process_->signal(SIGKILL); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  std::vector<Told> all() const {
    std::vector<Told> told;
    std::ifstream lines(file());
    for (std::string line; std::getline(lines, line);) {
      const auto blank = line.find(' ');
      auto content = nlohmann::json::parse(line.substr(std::min(blank, line.size())), nullptr, false);
      if (!content.is_discarded() && !lines.eof()) {
        told.push_back({line.substr(0, blank), std::move(content)});
      }
    }
    return told;
  }

  std::optional<Told> find(const std::function<bool(const Told&)>& is_such) const {
    for (Told& one : all()) {
      if (is_such(one)) {
        return std::move(one);
      }
    }
    return std::nullopt;
  }

 private:
  std::string file() const { return directory_.path() / "told"; }

  refhost::test::TemporaryDirectory directory_;
  std::optional<achost::test::Achost> process_;
};

class Bridged : public device_test::Device {
 protected:
  void SetUp() override {
    start();
    broker_.emplace();
    listen("#");
    bridge();
  }

  // From now on: who is not there yet misses what is told meanwhile, and gives up where he finds no broker at first.
  void listen(const std::string& filter, const std::string& id = "") {
    listener_.emplace(broker_->port(), filter, id);
    ASSERT_TRUE(comes_true([this] {
      publish("doors/nobody/journal/probe", "{}");
      return !listener_->all().empty();
    }));
  }

  std::string own_state() const { return own_directory_.path(); }

  void bridge(std::vector<std::string> more = {"--without-tls"}) {
    more.insert(more.begin(), {"run", "--door", "gate-1", "--broker", "127.0.0.1:" + std::to_string(broker_->port()),
                               "--state", own_state(), "--host-state", state()});
    bridge_.emplace(ACHOST_MQTT, std::move(more));
  }

  void kill_bridge() {
    bridge_->signal(SIGKILL);
    bridge_->wait();
  }

  // Until it is told, within the tests' patience.
  std::optional<Told> told(
      const std::string& topic,
      const std::function<bool(const nlohmann::json&)>& is_such = [](const nlohmann::json&) { return true; }) const {
    std::optional<Told> found;
    comes_true([&] {
      found = listener_->find([&](const Told& one) { return one.topic == topic && is_such(one.content); });
      return found.has_value();
    });
    return found;
  }

  // A command, and what is answered to it.
  nlohmann::json asked(const std::string& name, nlohmann::json request, const std::vector<std::string>& more = {}) {
    const int correlation = ++correlations_;
    request["correlation"] = correlation;
    publish("doors/gate-1/cmd/" + name, request.dump(), more);
    const auto answer = told("doors/gate-1/answer/" + name, [&](const nlohmann::json& content) {
      return content.value("correlation", 0) == correlation;
    });
    return answer.has_value() ? answer->content : nlohmann::json();
  }

  void publish(const std::string& topic, const std::string& payload, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words = {"-p", std::to_string(broker_->port()), "-q", "1", "-t", topic, "-m", payload};
    words.insert(words.end(), more.begin(), more.end());
    ASSERT_EQ(achost::test::run_program("/usr/bin/mosquitto_pub", std::move(words)).status, 0);
  }

  // The door is there, for whoever looks.
  void is_online() const {
    ASSERT_TRUE(told("doors/gate-1/state", [](const auto& content) { return content.value("online", false); }));
  }

  // Where it has said what it says.
  std::string errors_of_bridge() const { return "/proc/" + std::to_string(bridge_->pid()) + "/fd/2"; }

 private:
  refhost::test::TemporaryDirectory own_directory_;  // outlives the bridge
  int correlations_ = 0;

 protected:
  std::optional<Mosquitto> broker_;
  std::optional<Listener> listener_;
  std::optional<achost::test::Achost> bridge_;
};

// The numbers of the journal's entries in the order in which they came, doubles and all.
inline std::vector<std::int64_t> numbers_of(const std::vector<Told>& all, const std::string& way = "journal") {
  std::vector<std::int64_t> numbers;
  for (const Told& one : all) {
    if (one.topic.starts_with("doors/gate-1/" + way + "/") && one.content.contains("number")) {
      numbers.push_back(one.content.at("number").get<std::int64_t>());
    }
  }
  return numbers;
}

}  // namespace mqtt::test
