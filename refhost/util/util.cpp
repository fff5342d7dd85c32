#include "ac/util.h"

#include <linux/close_range.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "ac/exception.h"
#include "refhost/log_entry.h"

namespace ac::util {
namespace {

// The system keeps a name of at most 15 bytes.
constexpr std::size_t kSystemNameLength = 15;

}  // namespace

void set_thread_name(const std::string& name, pthread_t thread) {
  if (pthread_equal(thread, pthread_self()) != 0) {
    refhost::log::remember_thread_name(name);
  }
  pthread_setname_np(thread, name.substr(0, kSystemNameLength).c_str());
}

// What it starts is not to have what is open here: a plug-in opens its reader's port without O_CLOEXEC.
int system(const char* command) {
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  return std::system(command);
}

void get_formatted_date_and_time_ms(char* buffer) {
  using std::chrono::milliseconds;
  constexpr std::size_t kLeastBuffer = 64;
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto since_epoch = std::chrono::duration_cast<milliseconds>(now.time_since_epoch());
  std::tm local{};
  localtime_r(&seconds, &local);
  const std::size_t written = std::strftime(buffer, kLeastBuffer, "%Y-%m-%dT%H:%M:%S", &local);
  constexpr long kMinute = 60;
  constexpr long kHour = 60 * kMinute;
  const long offset = std::labs(local.tm_gmtoff);
  std::snprintf(buffer + written, kLeastBuffer - written, ".%03d%c%02ld:%02ld",
                static_cast<int>(since_epoch.count() % 1000), local.tm_gmtoff < 0 ? '-' : '+', offset / kHour,
                offset % kHour / kMinute);
}

namespace identifier {

std::string generate_new_uuid() {
  std::array<std::uint8_t, 16> bytes{};
  // A read of up to 256 bytes is never cut short once the system's generator is seeded.
  while (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    if (errno != EINTR) {
      throw ac_exception(std::string("no random numbers from the system: ") + std::strerror(errno), true);
    }
  }
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4: random
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // variant of RFC 4122
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) {
      text += '-';
    }
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}

}  // namespace identifier

}  // namespace ac::util
