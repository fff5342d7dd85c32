// A small door device in real processes: achost with the built plug-in on a simulated reader, and its sub-commands
// beside it.
#pragma once

#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "door/tests/process.h"
#include "refhost/tests/support.h"

namespace device_test {

using achost::test::Achost;
using achost::test::Result;
using nlohmann::json;

inline constexpr const char* kKnown = "E28011700000020A00000001";
inline constexpr const char* kUnknown = "E28011700000020A00000021";

class Device : public testing::Test {
 protected:
  std::string state() const { return directory_.path() / "state"; }

  Result command(std::vector<std::string> words) const {
    words.insert(words.end(), {"--state", state()});
    return achost::test::achost(std::move(words));
  }

  // The output of a command that succeeds.
  std::string output(const std::vector<std::string>& words) const {
    const auto result = command(words);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
  }

  // A host with an empty field; when this returns its plug-in runs. Its reader may take its time on a busy machine. A
  // card opens again at once, unless the options say otherwise.
  void start(std::vector<std::string> options = {}) {
    options.insert(options.begin(),
                   {"run", "--plugin", UHF_SO, "--state", state(), "--json", "--simulate", "--interactive", "--set",
                    "read_interval_diff_tags=0", "--set", "serial_port_timeout=1000", "--set", "host.away_time=0"});
    host_.emplace(std::move(options));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (status().value("plugin", json()).is_null() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  json status() const {
    const auto result = command({"status", "--json"});
    return result.status == 0 ? json::parse(result.out) : json::object();
  }

  // The next event of that name that is such; null when the output ends before it.
  json next_event(
      const std::string& name, const std::function<bool(const json&)>& is_such = [](const json&) { return true; }) {
    for (std::string line; !(line = host_->next_line()).empty();) {
      if (auto object = json::parse(line); object.at("event") == name && is_such(object)) {
        return object;
      }
    }
    return nullptr;
  }

  // The next event of each of those names, in whatever order they come.
  std::map<std::string, json> next_events(const std::set<std::string>& names) {
    std::map<std::string, json> events;
    for (std::string line; events.size() < names.size() && !(line = host_->next_line()).empty();) {
      auto object = json::parse(line);
      if (names.contains(object.at("event"))) {
        events.try_emplace(object.at("event"), std::move(object));
      }
    }
    return events;
  }

  Result end() {
    host_->signal(SIGINT);
    return host_->wait();
  }

  Achost& host() { return *host_; }

 private:
  refhost::test::TemporaryDirectory directory_;
  std::optional<Achost> host_;
};

}  // namespace device_test
