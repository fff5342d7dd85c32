// One tag read by an inventory.
#pragma once

#include <vector>

namespace ac::UHF {

struct InventoryCardInfo {
  unsigned char rssi;              // received signal strength, as the module gives it
  unsigned short pc;               // protocol control word of the tag
  std::vector<unsigned char> epc;  // electronic product code, in the order received
  unsigned short crc;              // the tag's own CRC; not checked
};

}  // namespace ac::UHF
