// The relays of the virtual device.
#pragma once

namespace refhost {

// Relays 1 to 8 hang on GPIO lines 17 to 24. All are enabled (the host may use them) until
// ac::config_util::relay_enabled says otherwise.
inline constexpr int kFirstRelay = 1;
inline constexpr int kLastRelay = 8;

// Whether the host may use the relay. Throws ac::ac_exception when there is no such relay. Any thread may call.
bool relay_is_enabled(int relay);

}  // namespace refhost
