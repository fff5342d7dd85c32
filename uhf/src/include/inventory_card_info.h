// One tag read by an inventory.
#pragma once

#include <vector>

namespace ac::UHF {

// A plain value: its owner's, on any thread.
struct InventoryCardInfo {
  // Received signal strength, as the module gives it.
  unsigned char rssi;
  // Protocol control word of the tag.
  unsigned short pc;
  // Electronic product code, in the order received; may be empty.
  std::vector<unsigned char> epc;
  // The tag's own checksum; carried, not checked.
  unsigned short crc;
};

}  // namespace ac::UHF
