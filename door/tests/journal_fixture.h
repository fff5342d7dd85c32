// A journal whose spool lies in the test's own directory.
#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "door/journal/journal.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h

class JournalFixture : public testing::Test {
 protected:
  JournalFixture() {
    std::filesystem::create_directory(runtime());
    setenv("RUNTIME_DIRECTORY", runtime().c_str(), 1);
  }
  ~JournalFixture() override { unsetenv("RUNTIME_DIRECTORY"); }

  std::filesystem::path state() const { return directory_.path() / "state"; }
  std::filesystem::path runtime() const { return directory_.path() / "runtime"; }

  // Wait until entries up to that number are on the disk.
  static void wait_for(const Journal& journal, std::int64_t number) {
    ASSERT_GE(journal.wait_beyond(number - 1, std::chrono::seconds(30)), number);
  }

  std::vector<JournalEntry> entries(const JournalQuery& query = {}) const {
    std::vector<JournalEntry> result;
    Journal::read(state(), query, [&](const JournalEntry& entry) { result.push_back(entry); });
    return result;
  }

  std::vector<std::int64_t> numbers(const JournalQuery& query = {}) const {
    std::vector<std::int64_t> result;
    for (const auto& entry : entries(query)) {
      result.push_back(entry.number);
    }
    return result;
  }

 private:
  TemporaryDirectory directory_;
};

}  // namespace achost::test
