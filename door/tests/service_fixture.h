// Services of the device on a bus of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ac/post_office.h"
#include "refhost/send.h"
#include "refhost/settings_store.h"
#include "refhost/subscriber.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h

// A settings store in a directory of its own, and a watcher of the bus that writes down each message as text:
// "door_state id=1 open=1 reason=0".
class Services : public testing::Test {
 protected:
  Services() { refhost::SettingsStore::make_current(&settings_); }
  ~Services() override { refhost::SettingsStore::make_current(nullptr); }

  // Watch these types, each with the fields to write down.
  void watch(const std::vector<std::pair<std::string, std::vector<std::string>>>& types) {
    std::vector<ac::MessageListener> listeners;
    for (const auto& [type, fields] : types) {
      listeners.push_back(on(type, [this, fields](ac::Message* message) { seen_.add(text_of(*message, fields)); }));
    }
    watcher_.emplace("watcher", listeners);
  }

  // What was seen once so many messages came.
  std::vector<std::string> seen(std::size_t count) { return seen_.wait_for(count); }

  static std::string text_of(const ac::Message& message, const std::vector<std::string>& fields) {
    std::string text = message.type();
    for (const auto& field : fields) {
      int number = 0;
      std::int64_t long_number = 0;
      std::string string;
      if (message.get_int(field, &number)) {
        text += " " + field + "=" + std::to_string(number);
      } else if (message.get_int64(field, &long_number)) {
        text += " " + field + "=" + std::to_string(long_number);
      } else if (message.get_string(field, &string)) {
        text += " " + field + "=" + string;
      }
    }
    return text;
  }

  void set(const std::string& key, int value) { settings_.override_for_run("host", key, std::to_string(value)); }

  refhost::SettingsStore& settings() { return settings_; }

  const std::filesystem::path& directory() const { return directory_.path(); }

 private:
  TemporaryDirectory directory_;
  refhost::SettingsStore settings_{directory_.path(), refhost::SettingsStore::Access::read_write};
  Recorder<std::string> seen_;
  std::optional<refhost::Subscriber> watcher_;  // last: it stops recording before the list goes
};

}  // namespace achost::test
