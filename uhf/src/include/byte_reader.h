// Reading big-endian numbers from received bytes, with every read checked.
#pragma once

#include <concepts>
#include <cstddef>
#include <span>

#include "ac/exception.h"

namespace ac::UHF {

// Apart from parse(), which is small enough to be inlined without it.
[[noreturn, gnu::noinline, gnu::cold]] inline void throwNotEnoughBytes() {
  throw ac_exception("Not enough bytes to parse type", true);
}

// The unsigned number of sizeof(T) bytes (1 or 2), high byte first, at offset in data; offset moves behind it.
// Throws ac::ac_exception "Not enough bytes to parse type", with offset unmoved, when data ends before.
template <std::unsigned_integral T>
requires(sizeof(T) <= 2) T parse(std::size_t& offset, std::span<const unsigned char> data) {
  if (offset > data.size() || data.size() - offset < sizeof(T)) {
    throwNotEnoughBytes();
  }
  unsigned int value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    value = value << 8 | data[offset++];
  }
  return static_cast<T>(value);
}

// A cursor over bytes that somebody else owns; valid as long as they are.
class ByteReader {
 public:
  explicit ByteReader(std::span<const unsigned char> bytes) : bytes_(bytes) {}

  // The next number; see parse() for T and what it throws.
  template <std::unsigned_integral T>
  T read() {
    return parse<T>(offset_, bytes_);
  }

  // The next count bytes. REQUIRES: count <= remaining().
  std::span<const unsigned char> take(std::size_t count) {
    const auto taken = bytes_.subspan(offset_, count);
    offset_ += count;
    return taken;
  }

  // Bytes in all, and bytes not read yet.
  std::size_t size() const { return bytes_.size(); }
  std::size_t remaining() const { return bytes_.size() - offset_; }

 private:
  std::span<const unsigned char> bytes_;
  std::size_t offset_ = 0;
};

}  // namespace ac::UHF
