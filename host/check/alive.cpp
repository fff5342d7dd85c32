#include "alive.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>

#include "ac/watchdog.h"
#include "examination.h"

namespace hostcheck {
namespace {

constexpr std::chrono::milliseconds kEach(50);

// Never destroyed: its thread goes on.
struct Alive {
  std::mutex mutex;  // guards names
  std::set<std::string> names;
  std::once_flag started;
  std::atomic<bool> is_silent{false};
};

Alive& alive() {
  static Alive& alive = *new Alive;
  return alive;
}

[[noreturn]] void tell_for_ever() {
  for (;; std::this_thread::sleep_for(kEach)) {
    std::unique_lock lock(alive().mutex);
    const auto names = alive().names;
    lock.unlock();
    for (const auto& name : names) {
      if (name != kAlive || !alive().is_silent) {
        ac::watchdog::keep_alive(name);
      }
    }
  }
}

}  // namespace

std::vector<std::string> names_kept_alive() {
  return {kAlive, "", std::string(300, 'n'), "two words, and \xC3\xA4", "%s%n"};
}

void keep_alive_from_now_on(const std::string& name) {
  ac::watchdog::keep_alive(name);
  const std::lock_guard lock(alive().mutex);
  alive().names.insert(name);
  std::call_once(alive().started, [] { std::thread(tell_for_ever).detach(); });
}

void fall_silent() { alive().is_silent = true; }

}  // namespace hostcheck
