// A reader module in the hands of a test, in place of the driver.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "globals.h"
#include "uhf_module.h"

// Records what is asked of it; answers as told. The caller of an operation holds the module's mutex, which is all the
// locking there is: set it up before the plug-in's threads start.
class FakeModule final : public ac::UHF::UHFModule {
 public:
  using Inventory = std::pair<bool, std::vector<ac::UHF::InventoryCardInfo>>;

  FakeModule() : UHFModule("/dev/null", std::chrono::milliseconds(0)) {}

  std::function<Inventory()> onInventory = [] { return Inventory(false, {}); };
  std::pair<bool, unsigned short> power{true, 2600};
  bool answers = true;                     // to setters
  mutable std::vector<std::string> asked;  // such as "setTransmitPower 2600"

  // Makes one the plug-in's reader.
  static FakeModule& install() {
    auto module = std::make_unique<FakeModule>();
    auto& fake = *module;
    t640_module = std::move(module);
    return fake;
  }

 protected:
  Inventory doInventoryCard() const override { return onInventory(); }
  std::pair<bool, unsigned short> doGetTransmitPower() const override {
    asked.emplace_back("getTransmitPower");
    return power;
  }
  bool doSetTransmitPower(unsigned short value) const override {
    return ask("setTransmitPower " + std::to_string(value));
  }
  bool doSetWorkArea(ac::UHF::Region region) const override {
    return ask("setWorkArea " + std::to_string(static_cast<unsigned int>(region)));
  }
  bool doSetWorkChannel(std::vector<unsigned char> channels) const override {
    std::string text = "setWorkChannel";
    for (const auto channel : channels) {
      text += ' ' + std::to_string(channel);
    }
    return ask(text);
  }
  std::pair<bool, ac::UHF::DemodSensitivityInfo> doGetDemodulationSensitivity() const override { return {false, {}}; }
  bool doSetDemodulationSensitivity(const ac::UHF::DemodSensitivityInfo&) const override { return false; }

 private:
  bool ask(const std::string& question) const {
    asked.push_back(question);
    return answers;
  }
};
