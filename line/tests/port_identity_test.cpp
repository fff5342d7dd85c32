#include "line/port_identity.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

namespace line {
namespace {

namespace fs = std::filesystem;

// What the kernel shows of its terminals, made by hand: no machine that runs tests has adapters to pull out.
class LinePortIdentity : public testing::Test {
 protected:
  LinePortIdentity() {
    std::string pattern = testing::TempDir() + "tty.XXXXXX";
    root_ = mkdtemp(pattern.data());
  }
  ~LinePortIdentity() override { fs::remove_all(root_); }

  static void write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text << '\n';
  }

  fs::path terminals() const { return root_ / "class"; }

  // An adapter that is plugged in at a place of the bus, and the terminal that it is.
  void plug_in(const std::string& place, const std::string& name, const std::string& serial) {
    const fs::path device = root_ / "devices" / place;
    write(device / "idVendor", "0403");
    write(device / "idProduct", "6001");
    write(device / "busnum", "1");
    write(device / "devnum", "14");
    if (!serial.empty()) {
      write(device / "serial", serial);
    }
    write(device / (place + ":1.0") / "bInterfaceNumber", "00");
    fs::create_directories(device / (place + ":1.0") / name);
    fs::create_directories(terminals() / name);
    fs::create_symlink(device / (place + ":1.0") / name, terminals() / name / "device");
    write(root_ / "dev" / name, "");
  }

  void pull_out(const std::string& place, const std::string& name) {
    fs::remove_all(root_ / "devices" / place);
    fs::remove_all(terminals() / name);
    fs::remove(root_ / "dev" / name);
  }

  fs::path root_;
};

TEST_F(LinePortIdentity, AnAdapterIsFoundUnderItsNewName) {
  plug_in("1-2", "ttyUSB0", "A1");
  const auto identity = identity_of(root_ / "dev/ttyUSB0", terminals());
  EXPECT_EQ(identity, "usb 0403:6001 number A1 interface 00");
  pull_out("1-2", "ttyUSB0");
  EXPECT_EQ(port_with(*identity, terminals()), std::nullopt);
  plug_in("1-4", "ttyUSB1", "A1");
  EXPECT_EQ(port_with(*identity, terminals()), "/dev/ttyUSB1");
}

TEST_F(LinePortIdentity, AnotherAdapterIsNotTakenForIt) {
  plug_in("1-2", "ttyUSB0", "A1");
  const auto identity = identity_of(root_ / "dev/ttyUSB0", terminals());
  pull_out("1-2", "ttyUSB0");
  plug_in("1-2", "ttyUSB0", "B2");
  EXPECT_EQ(port_with(*identity, terminals()), std::nullopt);
  EXPECT_NE(identity_of(root_ / "dev/ttyUSB0", terminals()), identity);
}

TEST_F(LinePortIdentity, OneWithoutANumberIsKnownByItsPlace) {
  plug_in("1-2", "ttyUSB0", "");
  const auto identity = identity_of(root_ / "dev/ttyUSB0", terminals());
  EXPECT_EQ(identity, "usb 0403:6001 at 1-2:1.0");
  plug_in("1-3", "ttyUSB1", "");
  EXPECT_EQ(port_with(*identity, terminals()), "/dev/ttyUSB0");
}

TEST_F(LinePortIdentity, TheUsbDeviceOfAPortIsItsAdapters) {
  plug_in("1-2", "ttyUSB0", "A1");
  EXPECT_EQ(usb_device_of(root_ / "dev/ttyUSB0", terminals()), "/dev/bus/usb/001/014");
  EXPECT_EQ(usb_device_of("/dev/ptmx", terminals()), std::nullopt);
  EXPECT_FALSE(reset_usb_device(root_ / "dev/ttyUSB0")) << "no USB device";
  EXPECT_FALSE(reset_usb_device(root_ / "nothing"));
}

TEST_F(LinePortIdentity, ALinkIsFollowed) {
  plug_in("1-2", "ttyUSB0", "A1");
  fs::create_symlink(root_ / "dev/ttyUSB0", root_ / "dev/by-id");
  EXPECT_EQ(identity_of(root_ / "dev/by-id", terminals()), "usb 0403:6001 number A1 interface 00");
}

TEST_F(LinePortIdentity, APseudoTerminalAndNoPortHaveNone) {
  EXPECT_EQ(identity_of("/dev/ptmx", terminals()), std::nullopt);
  EXPECT_EQ(identity_of(root_ / "nothing", terminals()), std::nullopt);
}

}  // namespace
}  // namespace line
