#include "plugin.h"

#include <chrono>
#include <exception>
#include <memory>

#include "radio_setup.h"
#include "reading_loop.h"
#include "settings.h"
#include "t640.h"

namespace {

void openReader() {
  const auto path = textSetting("serial_port_path", true);
  const std::chrono::milliseconds timeout(intSetting("serial_port_timeout", true));
  t640_module = std::make_unique<ac::UHF::T640>(path, timeout);
}

void setUpRadio() {
  setRegion();
  applyTransmitPower();
  setWorkChannel();
}

}  // namespace

bool init(ac::Plugin* plugin, std::string* error) {
  try {
    plugin->set_name("uhf");
    plugin->set_run(run);
    readSettings();
    openReader();
    setUpRadio();
    return true;
  } catch (const std::exception& failure) {
    *error += failure.what();
    return false;
  }
}
