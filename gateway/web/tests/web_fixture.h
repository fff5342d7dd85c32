// achost-web beside a door.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "gateway/web/tests/web_client.h"
#include "tests/device_fixture.h"

namespace web::test {

class Web : public device_test::Device {
 protected:
  void SetUp() override {
    start({"--set", "host.door_open_time=20"});
    serve();
  }

  std::string own_state() const { return own_directory_.path(); }

  void serve() {
    std::filesystem::remove(own_state() + "/place");
    server_.emplace(ACHOST_WEB, std::vector<std::string>{"run", "--listen", "127.0.0.1:0", "--state", own_state(),
                                                         "--host-state", state()});
    ASSERT_TRUE(comes_true([this] { return std::filesystem::exists(own_state() + "/place"); }));
    std::string place;
    std::getline(std::ifstream(own_state() + "/place") >> std::ws, place);
    port_ = static_cast<std::uint16_t>(std::stoi(place.substr(place.rfind(':') + 1)));
  }

  // Within the tests' patience.
  static bool comes_true(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + refhost::test::kPatience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
  }

  // What `achost-web` prints; it succeeds.
  std::string said(std::vector<std::string> words) const {
    words.insert(words.end(), {"--state", own_state()});
    const auto result = achost::test::run_program(ACHOST_WEB, std::move(words));
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out.substr(0, result.out.find('\n'));
  }

  std::string secret(const std::string& role) const {
    const std::string link = said({"link", "--role", role});
    return link.substr(link.find('#') + 1);
  }

  Browser entered(const std::string& role) const {
    Browser browser(port_);
    EXPECT_EQ(browser.enter(secret(role)).status, 200);
    return browser;
  }

  // Somebody presses the exit button; the door opens, and shuts.
  bool opens() {
    output({"rex"});
    return !next_event("door_open").is_null() &&
           !next_event("relay", [](const auto& event) { return !event.at("on"); }).is_null();
  }

  std::optional<achost::test::Achost> server_;
  std::uint16_t port_ = 0;

 private:
  refhost::test::TemporaryDirectory own_directory_;
};

}  // namespace web::test
