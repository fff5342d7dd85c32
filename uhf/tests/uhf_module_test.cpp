// The module's public operations: one transaction at a time.
#include "uhf_module.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

using namespace ac::UHF;
using std::chrono::milliseconds;

namespace {

// Tries, in the middle of each operation, to begin another one.
class Busy final : public UHFModule {
 public:
  Busy() : UHFModule("/dev/null", milliseconds(0)) {}

  // Whether the last operation was alone in the module.
  bool wasAlone() {
    intruder_.get();
    return std::exchange(alone_, false);
  }

 protected:
  std::pair<bool, std::vector<InventoryCardInfo>> doInventoryCard() const override { return {intrude(), {}}; }
  std::pair<bool, unsigned short> doGetTransmitPower() const override { return {intrude(), 1}; }
  bool doSetTransmitPower(unsigned short) const override { return intrude(); }
  bool doSetWorkArea(Region) const override { return intrude(); }
  bool doSetWorkChannel(std::vector<unsigned char>) const override { return intrude(); }
  std::pair<bool, DemodSensitivityInfo> doGetDemodulationSensitivity() const override { return {intrude(), {}}; }
  bool doSetDemodulationSensitivity(const DemodSensitivityInfo&) const override { return intrude(); }

 private:
  bool intrude() const {
    if (std::this_thread::get_id() == owner_) {
      intruder_ = std::async(std::launch::async, [this] { getTransmitPower(); });
      // With the module held it waits for as long as this; without, it is through at once.
      alone_ = intruder_.wait_for(milliseconds(50)) == std::future_status::timeout;
    }
    return true;
  }

  const std::thread::id owner_ = std::this_thread::get_id();
  mutable bool alone_ = false;
  mutable std::future<void> intruder_;
};

}  // namespace

TEST(UhfModule, EachOperationHoldsItForItsWholeTransaction) {
  Busy module;
  EXPECT_TRUE(module.inventoryCard().first);
  EXPECT_TRUE(module.wasAlone()) << "inventoryCard";
  EXPECT_TRUE(module.getTransmitPower().first);
  EXPECT_TRUE(module.wasAlone()) << "getTransmitPower";
  EXPECT_TRUE(module.setTransmitPower(1));
  EXPECT_TRUE(module.wasAlone()) << "setTransmitPower";
  EXPECT_TRUE(module.setWorkArea(Region::BRAZIL));
  EXPECT_TRUE(module.wasAlone()) << "setWorkArea";
  EXPECT_TRUE(module.setWorkChannel({1}));
  EXPECT_TRUE(module.wasAlone()) << "setWorkChannel";
  EXPECT_TRUE(module.getDemodulationSensitivity().first);
  EXPECT_TRUE(module.wasAlone()) << "getDemodulationSensitivity";
  EXPECT_TRUE(module.setDemodulationSensitivity({}));
  EXPECT_TRUE(module.wasAlone()) << "setDemodulationSensitivity";
}
