// The interface to a UHF reader module.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "demod_sensitivity_info.h"
#include "inventory_card_info.h"
#include "region.h"
#include "serial_port.h"

namespace ac::UHF {

// The public operations may be called on any thread: each holds the module's mutex for its whole transaction. One that
// wants an answer returns a success flag with the value, which is zero or empty when the flag is false; one that sets
// something returns whether the reader answered. All let the failures of the serial port through, with the mutex free.
class UHFModule {
 public:
  // Opens the serial line; see SerialPort for the parameters and what it throws.
  UHFModule(const std::string& path, const std::chrono::milliseconds& timeout) : serialPort_(path, timeout) {}
  virtual ~UHFModule() = default;
  UHFModule(const UHFModule&) = delete;
  UHFModule& operator=(const UHFModule&) = delete;

  // The tags in the field.
  std::pair<bool, std::vector<InventoryCardInfo>> inventoryCard() const {
    const std::lock_guard lock(mutex_);
    return doInventoryCard();
  }

  // The transmit power, in the module's own unit.
  std::pair<bool, unsigned short> getTransmitPower() const {
    const std::lock_guard lock(mutex_);
    return doGetTransmitPower();
  }
  bool setTransmitPower(unsigned short power) const {
    const std::lock_guard lock(mutex_);
    return doSetTransmitPower(power);
  }

  // The regulatory work area. Throws ac::ac_exception "Invalid Region!" for a value that is none.
  bool setWorkArea(Region region) const {
    const std::lock_guard lock(mutex_);
    return doSetWorkArea(region);
  }

  // The working channels, in place of those that were set.
  bool setWorkChannel(std::vector<unsigned char> channels) const {
    const std::lock_guard lock(mutex_);
    return doSetWorkChannel(std::move(channels));
  }

  // The receive demodulator's settings.
  std::pair<bool, DemodSensitivityInfo> getDemodulationSensitivity() const {
    const std::lock_guard lock(mutex_);
    return doGetDemodulationSensitivity();
  }
  bool setDemodulationSensitivity(const DemodSensitivityInfo& info) const {
    const std::lock_guard lock(mutex_);
    return doSetDemodulationSensitivity(info);
  }

 protected:
  // REQUIRES: mutex_ held, for each of these.
  virtual std::pair<bool, std::vector<InventoryCardInfo>> doInventoryCard() const = 0;
  virtual std::pair<bool, unsigned short> doGetTransmitPower() const = 0;
  virtual bool doSetTransmitPower(unsigned short power) const = 0;
  virtual bool doSetWorkArea(Region region) const = 0;
  virtual bool doSetWorkChannel(std::vector<unsigned char> channels) const = 0;
  virtual std::pair<bool, DemodSensitivityInfo> doGetDemodulationSensitivity() const = 0;
  virtual bool doSetDemodulationSensitivity(const DemodSensitivityInfo& info) const = 0;

  const SerialPort serialPort_;

 private:
  mutable std::mutex mutex_;  // one transaction at a time on serialPort_
};

}  // namespace ac::UHF
