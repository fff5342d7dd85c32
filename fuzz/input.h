// What a fuzzer chose, taken bit by bit. At its end everything is 0 or empty.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

namespace fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool empty() const { return rest_.empty(); }

  std::uint8_t byte() {
    if (rest_.empty()) {
      return 0;
    }
    const std::uint8_t first = rest_.front();
    rest_ = rest_.subspan(1);
    return first;
  }

  // One of them; bound must not be 0.
  std::size_t below(std::size_t bound) { return byte() % bound; }

  std::uint64_t number() {
    std::uint64_t number = 0;
    for (std::size_t i = below(9); i > 0; --i) {
      number = number << 8 | byte();
    }
    return number;
  }

  // At most 255.
  std::vector<std::uint8_t> bytes() { return take(byte()); }
  std::vector<std::uint8_t> all() { return take(rest_.size()); }

  std::string text() {
    const auto content = bytes();
    return {content.begin(), content.end()};
  }
  std::string all_text() {
    const auto content = all();
    return {content.begin(), content.end()};
  }

 private:
  std::vector<std::uint8_t> take(std::size_t count) {
    const auto taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }

  std::span<const std::uint8_t> rest_;
};

// Ends the process, for the fuzzer to keep the input, unless what is said is true.
inline void require(bool is_true, const char* what) {
  if (!is_true) {
    std::fprintf(stderr, "not so: %s\n", what);
    std::abort();
  }
}

}  // namespace fuzz

// The target of a program.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
