#include "radio_setup.h"

#include <string>
#include <utility>
#include <vector>

#include "ac/config.h"
#include "ac/config_util.h"
#include "ac/exception.h"
#include "debug_log.h"
#include "regions.h"
#include "settings.h"

using ac::UHF::Region;

void setRegion() {
  const auto name = toUpper(textSetting("region"));
  const auto region = [&name] {
    const auto known = regionOf(name);
    if (!known.has_value()) {
      // NOLINTNEXTLINE(bugprone-lambda-function-name): "operator()" is what this line says
      debugLog("Region " + name + " not found in region map. Using default region: Brazil", __func__, __LINE__);
      return Region::BRAZIL;
    }
    return *known;
  }();
  if (!t640_module->setWorkArea(region)) {
    throw ac::ac_exception("Could no set Work Area", true);
  }
  const auto allowed = allowedChannels(region);
  if (!allowed.has_value()) {
    debugLog("Region " + name + " not found in allowed working channels map. Using Brazil as default", __func__,
             __LINE__);
  }
  const std::string channels(allowed.value_or(BRAZIL_CHANNELS));
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
