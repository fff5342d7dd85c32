// Watchdog, debug log, utilities, audit records and the device's number.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <thread>

#include "ac/config_util.h"
#include "ac/exception.h"
#include "ac/util.h"
#include "ac/vexlog.h"
#include "ac/watchdog.h"
#include "ac_dal/audit_logs.h"
#include "ac_dal/device.h"
#include "host.h"

namespace example {
namespace {

using Clock = std::chrono::steady_clock;

// Longer than the slowest pass of the reading loop: a reader that does not answer costs its time-out.
constexpr std::chrono::seconds kLongestSilence(30);
constexpr const char* kAuditFile = "audit.log";  // in the current directory

const bool verbose = std::getenv("EXAMPLE_VERBOSE") != nullptr;

std::mutex alive_mutex;  // guards alive
std::map<std::string, Clock::time_point> alive;

}  // namespace

void start_watchdog() {
  std::thread([] {
    for (;; std::this_thread::sleep_for(std::chrono::seconds(1))) {
      const std::lock_guard lock(alive_mutex);
      for (const auto& [name, last] : alive) {
        if (Clock::now() - last > kLongestSilence) {
          std::fprintf(stderr, "%s does not say any more that it is alive\n", name.c_str());
          _exit(7);
        }
      }
    }
  }).detach();
}

void called(const std::string& call) {
  if (verbose) {
    std::fprintf(stderr, "  %s\n", call.c_str());
  }
}

}  // namespace example

namespace ac {

void watchdog::keep_alive(const std::string& name) {
  const std::lock_guard lock(example::alive_mutex);
  example::alive[name] = example::Clock::now();
}

void vexlog::debug(const std::string& text, const char* source_file, const char* function, int line) {
  if (example::verbose) {
    std::fprintf(stderr, "%s:%s:%d: %s\n", source_file, function, line, text.c_str());
  }
}

// The system refuses a name of more than 15 bytes.
void util::set_thread_name(const std::string& name, pthread_t thread) {
  pthread_setname_np(thread, name.substr(0, 15).c_str());
}

int util::system(const char* command) { return std::system(command); }

void util::get_formatted_date_and_time_ms(char* buffer) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  const std::size_t length = std::strftime(buffer, 32, "%Y-%m-%d %H:%M:%S", &local);
  std::snprintf(buffer + length, 32, ".%03ld", now.tv_nsec / 1'000'000);
}

std::string util::identifier::generate_new_uuid() {
  std::string uuid;
  std::ifstream("/proc/sys/kernel/random/uuid") >> uuid;
  return uuid;
}

int config_util::relay_gpio(int relay) {
  example::called("relay_gpio " + std::to_string(relay));
  return 100 + relay;  // the lines of this device's relays
}

void config_util::relay_enabled(int relay, bool enabled) {  // nobody else here uses a relay
  example::called("relay_enabled " + std::to_string(relay) + (enabled ? " true" : " false"));
}

}  // namespace ac

namespace ac_dal {

struct audit_logs::Impl {
  std::string time;
  int type = 0;
  std::string details;
};

ac_dao::ac_dao() = default;
ac_dao::~ac_dao() = default;
void ac_dao::create() {}
audit_logs::audit_logs() : impl_(std::make_unique<Impl>()) {}
audit_logs::~audit_logs() = default;
void audit_logs::time(std::string value) { impl_->time = std::move(value); }
void audit_logs::type(int value) { impl_->type = value; }
void audit_logs::details(std::string value) { impl_->details = std::move(value); }
void audit_logs::create() {
  static const int file = open(example::kAuditFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const std::string line = impl_->time + "\t" + std::to_string(impl_->type) + "\t" + impl_->details + "\n";
  if (write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size()) || fsync(file) != 0) {
    throw ac::ac_exception(std::string(example::kAuditFile) + ": " + std::strerror(errno), true);
  }
}

std::int64_t device::this_id() { return 1; }

}  // namespace ac_dal
