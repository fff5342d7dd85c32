// Bytes of the line as frames, and as what is none.
#pragma once

#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "frame.h"

namespace uhfctl {

// A frame, or bytes that are none.
struct Scanned {
  std::size_t offset = 0;                   // of the first byte
  std::size_t size = 0;                     // bytes
  std::unique_ptr<ac::UHF::Frame> frame{};  // null when the bytes are no frame
  std::string problem{};                    // why, when they are none
  bool wrong_checksum = false;              // the problem is that alone
  bool cut_off = false;                     // the problem is that its end is missing
};

struct Scan {
  std::vector<Scanned> found;
  std::size_t rest = 0;  // bytes at the end that may become a frame; 0 when they are all
};

// Cuts the bytes into frames with a right checksum and what stands between them. all: no more bytes will come, so that
// a frame cut off is a problem and no rest.
Scan scan(std::span<const unsigned char> bytes, bool all);

// What a frame says, for a person: "tag report: EPC E2 00, RSSI 200, PC 3000, CRC 951D".
std::string describe(const ac::UHF::Frame& frame);

// The same as an object: "frame", and the fields by name.
nlohmann::ordered_json fields_of(const ac::UHF::Frame& frame);

}  // namespace uhfctl
