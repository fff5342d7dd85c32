// Checksums of rows.
#pragma once

#include <cstdint>
#include <string_view>

namespace refhost {

// FNV-1a: against a disk that errs, not against people, who may write the database itself as well. Whatever happens to
// one byte changes it.
class RowSum {
 public:
  void add(std::int64_t number) {
    for (unsigned shift = 0; shift < 64; shift += 8) {
      add_byte(static_cast<unsigned char>(static_cast<std::uint64_t>(number) >> shift));
    }
  }

  void add(std::string_view text) {
    for (const char c : text) {
      add_byte(static_cast<unsigned char>(c));
    }
    add(static_cast<std::int64_t>(text.size()));  // so that nothing moves from one column to the next
  }

  std::int64_t value() const { return sum_; }

 private:
  void add_byte(unsigned char byte) {
    constexpr std::uint32_t kPrime = 0x01000193;
    sum_ = (sum_ ^ byte) * kPrime;
  }

  std::uint32_t sum_ = 0x811c9dc5;
};

}  // namespace refhost
