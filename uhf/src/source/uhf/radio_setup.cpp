#include "radio_setup.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ac/config.h"
#include "ac/config_util.h"
#include "ac/exception.h"
#include "debug_log.h"
#include "settings.h"

using ac::UHF::Region;

namespace {

// The value beside key in a table of pairs; null when the key is not there.
template <class Table, class Key>
const auto* find(const Table& table, const Key& key) {
  const auto* entry = std::ranges::find(table, key, [](const auto& row) { return row.first; });
  return entry == table.end() ? nullptr : &entry->second;
}

constexpr std::array<std::pair<std::string_view, Region>, 6> REGIONS{{
    {"BRAZIL", Region::BRAZIL},
    {"CHINA_900MHZ", Region::CHINA_900MHZ},
    {"CHINA_800MHZ", Region::CHINA_800MHZ},
    {"AMERICA", Region::AMERICA},
    {"EUROPE", Region::EUROPE},
    {"KOREA", Region::KOREA},
}};

constexpr std::string_view BRAZIL_CHANNELS = "0-10;26-51";

// The China regions have no row on purpose: theirs are Brazil's.
constexpr std::array<std::pair<Region, std::string_view>, 4> ALLOWED_CHANNELS{{
    {Region::BRAZIL, BRAZIL_CHANNELS},
    {Region::AMERICA, "0-51"},
    {Region::EUROPE, "0-14"},
    {Region::KOREA, "0-51"},
}};

}  // namespace

void setRegion() {
  const auto name = toUpper(textSetting("region"));
  const auto region = [&name] {
    const auto* known = find(REGIONS, std::string_view(name));
    if (known == nullptr) {
      // NOLINTNEXTLINE(bugprone-lambda-function-name): "operator()" is what this line says
      debugLog("Region " + name + " not found in region map. Using default region: Brazil", __func__, __LINE__);
      return Region::BRAZIL;
    }
    return *known;
  }();
  if (!t640_module->setWorkArea(region)) {
    throw ac::ac_exception("Could no set Work Area", true);
  }
  const auto* allowed = find(ALLOWED_CHANNELS, region);
  if (allowed == nullptr) {
    debugLog("Region " + name + " not found in allowed working channels map. Using Brazil as default", __func__,
             __LINE__);
    allowed = &BRAZIL_CHANNELS;
  }
  const std::string channels(*allowed);
  debugLog("Allowed working channels: " + channels, __func__, __LINE__);
  ac::config::set_param("uhf", "work_channel_enable", channels, false);
}

void applyTransmitPower() {
  const auto [answered, power] = t640_module->getTransmitPower();
  if (!answered) {
    throw ac::ac_exception("Could no read Transmit power", true);
  }
  const int wanted = intSetting("transmit_power");
  if (power == wanted) {
    return;
  }
  if (!t640_module->setTransmitPower(static_cast<unsigned short>(wanted))) {
    throw ac::ac_exception("Could no set Transmit power", true);
  }
}

void setWorkChannel() {
  std::vector<unsigned char> channels;
  for (const int channel : ac::config_util::get_int_range("uhf", "work_channel", false)) {
    channels.push_back(static_cast<unsigned char>(channel));
  }
  if (!t640_module->setWorkChannel(std::move(channels))) {
    throw ac::ac_exception("Could no set Working Channel", true);
  }
}
