#include "device_link.h"

#include <unistd.h>

#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace uhfsim {

namespace fs = std::filesystem;

namespace {

const std::string kTerminals = "/dev/pts/";

std::string first_line_of(const fs::path& file) {
  std::string line;
  std::getline(std::ifstream(file), line);
  return line;
}

// Whether the process, as its directory in /proc, holds the other end of the pseudo-terminal with that number.
bool holds(const fs::path& process, const std::string& number) {
  std::error_code failure;
  for (fs::directory_iterator entry(process / "fdinfo", failure), end; !failure && entry != end;
       entry.increment(failure)) {
    std::ifstream lines(entry->path());
    for (std::string line; std::getline(lines, line);) {
      if (line == "tty-index:\t" + number) return true;
    }
  }
  return false;
}

// The number of another process of this program that serves the device. Not just of any: the number of a
// pseudo-terminal whose simulator was killed may be somebody's window by now.
std::optional<std::string> simulator_at(const std::string& device) {
  const std::string number = device.substr(kTerminals.size());
  const std::string name = first_line_of("/proc/self/comm");
  std::error_code failure;
  for (fs::directory_iterator entry("/proc", failure), end; !failure && entry != end; entry.increment(failure)) {
    const std::string id = entry->path().filename();
    if (id.find_first_not_of("0123456789") == id.npos && id != std::to_string(getpid()) &&
        first_line_of(entry->path() / "comm") == name && holds(entry->path(), number)) {
      return id;
    }
  }
  return std::nullopt;
}

// Throws when a link with that name is somebody's who still uses it.
void check_unused(const fs::path& link, const std::string& target) {
  if (!target.starts_with(kTerminals)) {
    if (!fs::exists(link)) return;
    throw std::runtime_error(link.string() + " leads to " + target +
                             "; remove that link, or give another path to --link");
  }
  if (const auto id = simulator_at(target)) {
    throw std::runtime_error(link.string() + " is the link of process " + *id +
                             ", a simulated reader that runs; end it, or give another path to --link");
  }
}

}  // namespace

void DeviceLink::point_to(const std::string& device) {
  const std::lock_guard lock(mutex_);
  std::error_code error;
  const fs::file_status found = fs::symlink_status(link_, error);
  if (fs::is_symlink(found)) {
    check_unused(link_, fs::read_symlink(link_, error).string());
    fs::remove(link_, error);
  } else if (fs::exists(found)) {
    throw std::runtime_error(link_.string() + " is there and is no symbolic link; give another path to --link");
  }
  fs::create_symlink(device, link_, error);
  if (error) throw std::runtime_error("cannot make the link " + link_.string() + ": " + error.message());
  device_ = device;
}

DeviceLink::~DeviceLink() {
  std::error_code error;
  if (!device_.empty() && fs::read_symlink(link_, error) == device_) fs::remove(link_, error);
}

}  // namespace uhfsim
