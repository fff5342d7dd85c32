#include "refhost/loader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>

#include "ac/post_office.h"
#include "tests/support.h"

namespace refhost::test {
namespace {

std::string plugin(const std::string& name) { return std::string(TEST_PLUGINS) + "/plugin_" + name + ".so"; }

struct Outcome {
  std::optional<LoadError::Stage> stage;
  std::string text;
};

Outcome failure_to_load(const std::string& path) {
  try {
    load(path);
  } catch (const LoadError& failure) {
    return {failure.stage(), failure.what()};
  }
  return {};
}

void expect_refused(const std::string& path, const std::string& reason) {
  const auto outcome = failure_to_load(path);
  EXPECT_EQ(outcome.stage, LoadError::Stage::load);
  EXPECT_EQ(outcome.text, "cannot load the plug-in " + path + ": " + reason);
}

TEST(Loader, GoodPluginIsLoadedWithItsNameAndMainFunction) {
  const auto loaded = load(plugin("good"));
  EXPECT_EQ(loaded.name, "good");
  EXPECT_EQ(loaded.path, plugin("good"));
  EXPECT_NE(loaded.run, nullptr);
}

TEST(Loader, LoadedPluginGetsItsMessages) {
  Event answered;
  const Subscriber subscriber("s", {on("good.pong", [&](ac::Message*) { answered.set(); })});
  const auto loaded = load(plugin("good"));
  ac::PostOffice::send_message(message("good.ping"));
  EXPECT_TRUE(answered.wait());
}

TEST(Loader, RelativePathIsRefused) { expect_refused("lib/uhf.so", "give its absolute path"); }

TEST(Loader, MissingFileIsRefused) { expect_refused("/no/such/plugin.so", "there is no such file"); }

TEST(Loader, DirectoryIsRefused) { expect_refused("/tmp", "there is no such file"); }

TEST(Loader, FileThatIsNoSharedObjectIsRefused) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() / "text.so";
  std::ofstream(path) << "text";
  expect_refused(path, "file too short");
}

TEST(Loader, MissingInitIsNamed) { expect_refused(plugin("missing_init"), "it has no entry \"init\""); }

TEST(Loader, MissingSymbolIsNamedAsItsProgrammerWroteIt) {
  expect_refused(plugin("undefined_symbol"),
                 "this host does not have ac::future::operation(std::__cxx11::basic_string<char, "
                 "std::char_traits<char>, std::allocator<char> > const&, int), which it needs");
}

TEST(Loader, PluginWithoutAMainFunctionIsRefused) {
  expect_refused(plugin("no_run"), "its init set no main function (ac::Plugin::set_run)");
}

TEST(Loader, InitThatReturnsFalseGivesThePluginsText) {
  const auto outcome = failure_to_load(plugin("init_false"));
  EXPECT_EQ(outcome.stage, LoadError::Stage::start);
  EXPECT_EQ(outcome.text, "the plug-in " + plugin("init_false") +
                              " did not start: Error opening Serial Port: No such file or directory");
}

TEST(Loader, InitThatThrowsIsAFailureToStart) {
  const auto outcome = failure_to_load(plugin("init_throws"));
  EXPECT_EQ(outcome.stage, LoadError::Stage::start);
  EXPECT_EQ(outcome.text, "the plug-in " + plugin("init_throws") + " did not start: unknown exception");
}

TEST(Loader, MainFunctionThatReturnsIsReportedWithThePluginsName) {
  EXPECT_EQ(run_until_it_ends(load(plugin("returns"))), "the plug-in returns ended: its main function returned 5");
}

TEST(Loader, MainFunctionThatThrowsIsReportedWithThePluginsName) {
  EXPECT_EQ(run_until_it_ends(load(plugin("throws"))), "the plug-in throws ended: Empty reply; gpio: 9");
}

}  // namespace
}  // namespace refhost::test
