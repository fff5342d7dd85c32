#include "cli/program.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>

#include "cli/failure.h"

namespace cli {
namespace {

// What a program prints there while it runs.
template <typename Run>
std::string printed_on_error(const Run& run) {
  testing::internal::CaptureStderr();
  run();
  return testing::internal::GetCapturedStderr();
}

class ReadCommandLine : public testing::Test {
 protected:
  ReadCommandLine() {
    app.set_version_flag("--version", "1.2", "Tell the version");
    app.add_subcommand("inventory", "Look")->callback([this] { gone = true; });
  }

  bool read(std::string word) {
    std::string name = "tool";
    std::array<char*, 3> words = {name.data(), word.data(), nullptr};
    return read_command_line(app, {}, 2, words.data());
  }

  CLI::App app{"A tool.", "tool"};
  bool gone = false;
};

TEST_F(ReadCommandLine, ItsCallbacksRun) {
  EXPECT_TRUE(read("inventory"));
  EXPECT_TRUE(gone);
}

TEST_F(ReadCommandLine, HelpAndVersionArePrintedAndThatIsAll) {
  for (const auto& [word, text] : {std::pair("--help", "Usage: tool"), {"--version", "1.2\n"}}) {
    testing::internal::CaptureStdout();
    EXPECT_FALSE(read(word));
    EXPECT_NE(testing::internal::GetCapturedStdout().find(text), std::string::npos) << word;
  }
  EXPECT_FALSE(gone);
}

TEST_F(ReadCommandLine, AWrongLineIsAFailureOfUsage) {
  try {
    read("inventorry");
    FAIL() << "it is taken";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), kUsage);
    EXPECT_STREQ(failure.what(), "there is no command \"inventorry\": did you mean \"inventory\"?; see tool --help");
  }
}

TEST(Explained, TheStatusOfAFailureIsTheProgramsAndItsTextALine) {
  int status = -1;
  EXPECT_EQ(printed_on_error(
                [&] { status = explained("tool", []() -> int { throw Failure(kPortBusy, "another has it"); }); }),
            "tool: another has it\n");
  EXPECT_EQ(status, kPortBusy);
}

TEST(Explained, AnythingElseHasFailed) {
  int status = -1;
  EXPECT_EQ(printed_on_error([&] { status = explained("tool", []() -> int { throw std::logic_error("no"); }); }),
            "tool: no\n");
  EXPECT_EQ(status, kFailed);
}

TEST(Explained, ItsTextIsSpeltAsTheProgramWants) {
  const auto spelt = [](std::string_view text) { return "<" + std::string(text) + ">"; };
  EXPECT_EQ(printed_on_error([&] {
              explained(
                  "tool", []() -> int { throw std::logic_error("no"); }, spelt);
            }),
            "tool: <no>\n");
}

TEST(Explained, WithoutAFailureNothingIsSaid) {
  EXPECT_EQ(printed_on_error([] { EXPECT_EQ(explained("tool", [] { return 8; }), 8); }), "");
}

}  // namespace
}  // namespace cli
