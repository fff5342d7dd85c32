#include "ac_dal/device.h"

#include "refhost/settings_store.h"

namespace ac_dal::device {

std::int64_t this_id() {
  constexpr std::int64_t kDefault = 1;
  const auto* const store = refhost::SettingsStore::current();
  return store == nullptr ? kDefault : store->get_int("host", "device_id").value_or(kDefault);
}

}  // namespace ac_dal::device
