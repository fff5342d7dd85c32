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

// The public operations may be called on any thread, and block it: each waits for the module's mutex, then holds it for
// its whole transaction, which ends with the answer or the serial time-out. So no two transactions ever overlap. None
// may be called from inside another, on whose mutex it would wait for ever.
//
// One that wants an answer returns a success flag with the value, which is zero or empty when the flag is false; one
// that sets something returns whether the reader answered. No answer, a bad one and one of another kind are no
// exception but that flag. All let the failures of the serial port through as ac::ac_exception, with the mutex free.
class UHFModule {
 public:
  // Opens the serial line; see SerialPort for the parameters and what it throws.
  UHFModule(const std::string& path, const std::chrono::milliseconds& timeout) : serialPort_(path, timeout) {}

  // Closes the line. REQUIRES: no operation runs any more.
  virtual ~UHFModule() = default;

  // Neither copied nor moved: threads hold on to the mutex.
  UHFModule(const UHFModule&) = delete;
  UHFModule& operator=(const UHFModule&) = delete;

  // The tags in the field, the newest report first. Fails (false, with the tags before it) when a frame among those
  // asked for is no tag's report, and (false, none) when nothing useful comes. A success has at least one tag.
  std::pair<bool, std::vector<InventoryCardInfo>> inventoryCard() const {
    const std::lock_guard lock(mutex_);
    return doInventoryCard();
  }

  // The transmit power, in the module's own unit, 0 to 65535; not converted.
  std::pair<bool, unsigned short> getTransmitPower() const {
    const std::lock_guard lock(mutex_);
    return doGetTransmitPower();
  }

  // Sets the transmit power, in the same unit. What status the reader answers with is not looked at.
  bool setTransmitPower(unsigned short power) const {
    const std::lock_guard lock(mutex_);
    return doSetTransmitPower(power);
  }

  // Sets the regulatory work area. Throws ac::ac_exception "Invalid Region!" for a value that is none, and sends
  // nothing then.
  bool setWorkArea(Region region) const {
    const std::lock_guard lock(mutex_);
    return doSetWorkArea(region);
  }

  // The working channels, by their numbers, in place of those that were set. Two commands under one lock: false when
  // the first, which clears the reader's list, is not answered (nothing more is sent then), or the second.
  bool setWorkChannel(std::vector<unsigned char> channels) const {
    const std::lock_guard lock(mutex_);
    return doSetWorkChannel(std::move(channels));
  }

  // The receive demodulator's settings; see DemodSensitivityInfo for their meaning.
  std::pair<bool, DemodSensitivityInfo> getDemodulationSensitivity() const {
    const std::lock_guard lock(mutex_);
    return doGetDemodulationSensitivity();
  }

  // Sets them.
  bool setDemodulationSensitivity(const DemodSensitivityInfo& info) const {
    const std::lock_guard lock(mutex_);
    return doSetDemodulationSensitivity(info);
  }

 protected:
  // What the operation of the same name does between lock and unlock, with the same parameters, units, results and
  // failures. REQUIRES: mutex_ held, for each of these. To be reached through the public operations alone.
  virtual std::pair<bool, std::vector<InventoryCardInfo>> doInventoryCard() const = 0;
  virtual std::pair<bool, unsigned short> doGetTransmitPower() const = 0;
  virtual bool doSetTransmitPower(unsigned short power) const = 0;
  virtual bool doSetWorkArea(Region region) const = 0;
  virtual bool doSetWorkChannel(std::vector<unsigned char> channels) const = 0;
  virtual std::pair<bool, DemodSensitivityInfo> doGetDemodulationSensitivity() const = 0;
  virtual bool doSetDemodulationSensitivity(const DemodSensitivityInfo& info) const = 0;

  // The line, for those operations.
  const SerialPort serialPort_;

 private:
  mutable std::mutex mutex_;  // one transaction at a time on serialPort_
};

}  // namespace ac::UHF
