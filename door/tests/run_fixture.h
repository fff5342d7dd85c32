// achost run with the plug-ins of the tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "door/tests/process.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h

class AchostRun : public testing::Test {
 protected:
  static std::string plugin(const std::string& name) { return std::string(TEST_PLUGINS) + "/plugin_" + name + ".so"; }

  std::string state() const { return directory_.path() / "state"; }

  // The command line of a run of that plug-in, with more options.
  std::vector<std::string> run(const std::string& plugin_name, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"run", "--plugin", plugin(plugin_name), "--state", state()});
    return options;
  }

  // The same with a simulated reader.
  std::vector<std::string> simulated(const std::string& plugin_name, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), "--simulate");
    return run(plugin_name, options);
  }

  // The command fails with that status and that one line; no state is written.
  void expect_refused(const std::vector<std::string>& command, int status, const std::string& line) const {
    const auto result = achost(command);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.err, "achost: " + line + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_FALSE(std::filesystem::exists(state()));
  }

 private:
  TemporaryDirectory directory_;
};

}  // namespace achost::test
