// The USB port: the file, the commands and their order. The file is the real one, in an /etc of the test's own.
#include "usb_port.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "live_config.h"
#include "message_handling.h"
#include "private_etc.h"

using second_host::Fields;
using second_host::host;
using testing::ElementsAre;
using testing::IsEmpty;

// In place of the system's, which would wait for every disk of the machine.
extern "C" void __wrap_sync();                         // NOLINT(bugprone-reserved-identifier): the linker's name
extern "C" void __wrap_sync() { host().ran("sync"); }  // NOLINT(bugprone-reserved-identifier)

namespace {

const std::filesystem::path BLACKLIST = "/etc/udev/mount.blacklist.d/umount_usb";

std::optional<std::string> contentOf(const std::filesystem::path& file) {
  if (!std::filesystem::is_regular_file(file)) {
    return std::nullopt;
  }
  const std::ifstream stream(file);
  std::stringstream content;
  content << stream.rdbuf();
  return content.str();
}

class UsbPort : public testing::Test {
 protected:
  void SetUp() override {
    if (!etc_.refusal().empty()) {
      GTEST_SKIP() << "no /etc of its own for this process: " << etc_.refusal();
    }
    std::filesystem::create_directories(BLACKLIST.parent_path());
    host().reset();
    host().on_system([this](const std::string& command) { seen_.emplace_back(command, contentOf(BLACKLIST)); });
  }

  void TearDown() override { host().reset(); }

  static void configure(const Fields& fields) { EXPECT_EQ(handle(configUSB, "config_param_set", fields).failure, ""); }

  // Each command with the content of the file at that moment.
  using Seen = std::vector<std::pair<std::string, std::optional<std::string>>>;
  Seen takeSeen() { return std::exchange(seen_, {}); }

 private:
  PrivateEtc etc_;
  Seen seen_;
};

}  // namespace

TEST_F(UsbPort, OffUnmountsThenForbidsThenRestarts) {
  std::ofstream(BLACKLIST) << "what was there before, and longer";
  configure({{"value", "0"}});
  EXPECT_EQ(takeSeen(),
            (Seen{{"umount /media/usb", ""}, {"sync", "/dev/sd*\n"}, {"/etc/init.d/udev restart", "/dev/sd*\n"}}));
  EXPECT_EQ(contentOf(BLACKLIST), "/dev/sd*\n");
}

TEST_F(UsbPort, AnyOtherValueAllowsWithoutUnmounting) {
  for (const Fields& fields : {Fields{{"value", "1"}}, Fields{{"value", ""}}, Fields{{"value", "false"}},
                               Fields{{"value", "00"}}, Fields{{"value", "0 "}}, Fields{{"value", 0}}, Fields{}}) {
    std::ofstream(BLACKLIST) << "/dev/sd*\n";
    configure(fields);
    EXPECT_EQ(takeSeen(), (Seen{{"sync", ""}, {"/etc/init.d/udev restart", ""}}));
    EXPECT_EQ(contentOf(BLACKLIST), "");
  }
}

TEST_F(UsbPort, OffAgainDoesAllOfItAgain) {
  configure({{"value", "0"}});
  const auto first = takeSeen();
  configure({{"value", "0"}});
  EXPECT_EQ(takeSeen(), first);
  EXPECT_EQ(contentOf(BLACKLIST), "/dev/sd*\n");
}

TEST_F(UsbPort, WithoutItsFileNothingIsDoneButADebugLine) {
  std::filesystem::remove(BLACKLIST.parent_path());
  configure({{"value", "0"}});
  EXPECT_THAT(takeSeen(), IsEmpty());
  ASSERT_EQ(host().debug_lines().size(), 1U);
  const auto line = host().debug_lines()[0];
  EXPECT_EQ(line.text, "Couldn't open umount usb file.");
  EXPECT_EQ(line.source, "uhf/src/source/uhf");
  EXPECT_EQ(line.function, "configUSB");
  EXPECT_EQ(line.line, 354);
}

TEST_F(UsbPort, AFailedCloseDoesNotStopTheRest) {
  std::filesystem::create_symlink("/dev/full", BLACKLIST);
  configure({{"value", "0"}});
  std::vector<std::string> commands;
  for (const auto& [command, content] : takeSeen()) {
    commands.push_back(command);
  }
  EXPECT_THAT(commands, ElementsAre("umount /media/usb", "sync", "/etc/init.d/udev restart"));
}

TEST_F(UsbPort, IsReachedByTheSystemSettingAlone) {
  handle(configParamSetCallback, "config_param_set", {{"param", "usb_port_enabled"}, {"value", "0"}});
  EXPECT_EQ(contentOf(BLACKLIST), "/dev/sd*\n");
  EXPECT_EQ(takeSeen().size(), 3U);
  handle(configParamSetCallback, "config_param_set", {{"param", "another"}, {"value", "1"}});
  handle(configParamSetCallback, "config_param_set",
         {{"module", "uhf"}, {"param", "usb_port_enabled"}, {"value", "1"}});
  handle(configParamSetCallback, "config_param_set", {{"module", ""}, {"param", "usb_port_enabled"}, {"value", "1"}});
  EXPECT_THAT(takeSeen(), IsEmpty());
  EXPECT_EQ(contentOf(BLACKLIST), "/dev/sd*\n");
}
