#include "usb_port.h"

#include <unistd.h>

#include <fstream>
#include <string>

#include "ac/util.h"
#include "debug_log.h"

namespace {

// Read by the mount rules of the device manager.
constexpr const char* BLACKLIST = "/etc/udev/mount.blacklist.d/umount_usb";

}  // namespace

void configUSB(ac::Message* message) {
  std::ofstream blacklist(BLACKLIST, std::ios::trunc);
  if (!blacklist.is_open()) {
    debugLog("Couldn't open umount usb file.", __func__, 354);
    return;
  }
  std::string value;
  message->get_string("value", &value);
  if (value == "0") {
    ac::util::system("umount /media/usb");
    blacklist << "/dev/sd*\n";
  }
  blacklist.close();
  sync();
  ac::util::system("/etc/init.d/udev restart");
}
