#include "notice.h"

#include <numeric>

std::vector<unsigned char> notice(int number) {
  std::vector<unsigned char> frame{0x7F, 0x02, 0x22, 0x00, 0x11, 0xC8, 0x30, 0x00, 0xE2, 0x00, 0x68, 0x0A, 0, 1, 2, 3};
  for (int shift = 24; shift >= 0; shift -= 8) {
    frame.push_back(static_cast<unsigned char>(number >> shift));
  }
  frame.insert(frame.end(), {0x95, 0x1D});
  frame.push_back(static_cast<unsigned char>(std::accumulate(frame.begin() + 1, frame.end(), 0)));
  frame.push_back(0x7E);
  return frame;
}

std::vector<unsigned char> answer_of(int tags) {
  if (tags == 0) {
    return {0x7F, 0x01, 0xFF, 0x00, 0x01, 0x15, 0x16, 0x7E};
  }
  std::vector<unsigned char> answer;
  for (int tag = 1; tag <= tags; ++tag) {
    const auto bytes = notice(tag);
    answer.insert(answer.end(), bytes.begin(), bytes.end());
  }
  return answer;
}
