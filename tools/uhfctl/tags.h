// The tags that inventories brought.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "inventory_card_info.h"
#include "port.h"

namespace uhfctl {

struct SeenTag {
  std::vector<unsigned char> epc;
  unsigned short pc = 0;
  int times = 0;
  int rssi = 0;  // of the last reading
  int least_rssi = 0;
  int most_rssi = 0;
  double rssi_sum = 0;
  Clock::time_point first;
  Clock::time_point last;

  // The last polls since it was first read, the newest in the lowest bit: whether they read it.
  static constexpr int kRecentPolls = 64;
  std::uint64_t recent = 0;
  int polls = 0;       // since it was first read
  int polls_read = 0;  // how many of them read it, however often each
};

// As EPCs are written.
std::string upper(std::string text);

// By the EPC in hexadecimal.
class Tags {
 public:
  // prefix: of the EPCs that count, in upper-case hexadecimal.
  explicit Tags(std::string prefix = "") : prefix_(std::move(prefix)) {}

  void add(const Poll& poll, Clock::time_point at);

  const std::map<std::string, SeenTag>& all() const { return tags_; }
  int readings() const { return readings_; }

 private:
  std::string prefix_;
  std::map<std::string, SeenTag> tags_;
  int readings_ = 0;
};

}  // namespace uhfctl
