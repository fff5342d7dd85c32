#include "refhost/relays.h"

#include <array>
#include <atomic>
#include <string>

#include "ac/config_util.h"
#include "ac/exception.h"

namespace refhost {
namespace {

struct Relay {
  int gpio;
  std::atomic<bool> enabled{true};  // written by relay_enabled() on any thread
};

constinit std::array<Relay, kLastRelay - kFirstRelay + 1> relays = {{{17}, {18}, {19}, {20}, {21}, {22}, {23}, {24}}};

Relay& relay_of(int number) {
  if (number < kFirstRelay || number > kLastRelay) {
    throw ac::ac_exception("there is no relay " + std::to_string(number) + ": the device has relays " +
                               std::to_string(kFirstRelay) + " to " + std::to_string(kLastRelay),
                           true);
  }
  return relays[static_cast<std::size_t>(number - kFirstRelay)];
}

}  // namespace

bool relay_is_enabled(int relay) { return relay_of(relay).enabled.load(); }

}  // namespace refhost

namespace ac::config_util {

int relay_gpio(int relay) { return refhost::relay_of(relay).gpio; }

void relay_enabled(int relay, bool enabled) { refhost::relay_of(relay).enabled.store(enabled); }

}  // namespace ac::config_util
