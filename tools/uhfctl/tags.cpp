#include "tags.h"

#include <algorithm>
#include <cctype>

#include "uhfsim/text.h"

namespace uhfctl {

std::string upper(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

void Tags::add(const Poll& poll, Clock::time_point at) {
  for (auto& [epc, tag] : tags_) {
    tag.recent <<= 1U;
    ++tag.polls;
  }
  for (const auto& reading : poll.tags) {
    const auto epc = uhfsim::hex_of(reading.epc);
    if (!epc.starts_with(prefix_)) {
      continue;
    }
    const int rssi = reading.rssi;
    auto [place, is_new] = tags_.try_emplace(
        epc, SeenTag{.epc = reading.epc, .least_rssi = rssi, .most_rssi = rssi, .first = at, .last = at});
    SeenTag& tag = place->second;
    tag.pc = reading.pc;
    tag.polls_read += (tag.recent & 1U) == 0 ? 1 : 0;
    tag.recent |= 1U;
    tag.polls = std::max(tag.polls, 1);
    ++tag.times;
    tag.rssi = rssi;
    tag.least_rssi = std::min(tag.least_rssi, rssi);
    tag.most_rssi = std::max(tag.most_rssi, rssi);
    tag.rssi_sum += rssi;
    tag.last = at;
    ++readings_;
  }
}

}  // namespace uhfctl
