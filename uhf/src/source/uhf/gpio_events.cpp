#include "gpio_events.h"

#include <chrono>
#include <memory>
#include <mutex>

#include "ac/exception.h"
#include "ac/post_office.h"
#include "globals.h"
#include "settings.h"

namespace {

constexpr int EXIT_REQUEST = 1;  // the reason of a door's opening

void markTrigger() {
  const std::lock_guard lock(lastTriggerTimePointMutex);
  lastTriggerTimePoint = std::chrono::steady_clock::now();
}

void followTrigger(bool active) {
  if (active) {
    markTrigger();
  }
}

// The dead time begins when the input returns to idle, and not again with each further idle notification.
void followInhibit(bool active) {
  if (active) {
    inhibitActive = true;
  } else if (inhibitActive.exchange(false)) {
    markTrigger();
  }
}

}  // namespace

std::atomic<bool> inhibitActive;

void gpioNotifiedCallback(ac::Message* message) {
  int gpio = 0;
  int value = 0;
  if (!message->get_int("gpio", &gpio) || !message->get_int("value", &value)) {
    throw ac::ac_exception("Invalid parameters for message " + message->type(), true);
  }
  if (gpio != trigAntiesmagGPIO) {
    return;
  }
  const int mode = readOperationMode();
  const bool active = value == activeTriggerLevel();
  if (mode == TRIGGER) {
    followTrigger(active);
  } else if (mode == INHIBIT) {
    followInhibit(active);
  }
  // Reached for the trigger input alone, so only a device whose relay hangs on that very line hears of it.
  if (gpio == tagDetectorRelayGPIO) {
    tagDetectorValue = value;
  }
}

void secBoxRexChangedCallback(ac::Message* message) {
  int active = 1;
  message->get_int("active", &active);
  if (active == 0) {
    forwardRex(1);
  }
}

void forwardRex(long long id) {
  auto message = std::make_unique<ac::Message>("actuator_open_door");
  message->add_int("id", static_cast<int>(id));
  message->add_int("reason", EXIT_REQUEST);
  ac::PostOffice::send_message(std::move(message));
}
