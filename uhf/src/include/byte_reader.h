// Reading big-endian numbers from received bytes, with every read checked. Pure: any thread, no lock; bytes in, numbers
// out. What is read from stays its owner's.
#pragma once

#include <concepts>
#include <cstddef>
#include <span>
#include <vector>

#include "ac/exception.h"

namespace ac::UHF {

// The failure of every read here. Apart from parse(), which is small enough to be inlined without it.
[[noreturn, gnu::noinline, gnu::cold]] inline void throwNotEnoughBytes() {
  throw ac_exception("Not enough bytes to parse type", true);
}

// The unsigned number of sizeof(T) bytes (1 or 2), high byte first, at offset in data; offset moves behind it. Any
// thread; no lock. Throws ac::ac_exception "Not enough bytes to parse type", with offset unmoved, when data ends
// before.
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

// The same, from a vector of bytes.
template <std::unsigned_integral T>
requires(sizeof(T) <= 2) T parse(std::size_t& offset, const std::vector<unsigned char>& data) {
  return parse<T>(offset, std::span<const unsigned char>(data));
}

// A cursor over bytes that somebody else owns; valid as long as they are. A copy goes on by itself. One thread at a
// time moves it.
class ByteReader {
 public:
  // Begins at the first of bytes.
  explicit ByteReader(std::span<const unsigned char> bytes) : bytes_(bytes) {}

  // The next number; see parse() for T and what it throws. After a failure it stands where it stood.
  template <std::unsigned_integral T>
  T read() {
    return parse<T>(offset_, bytes_);
  }

  // The next count bytes, uncopied. REQUIRES: count <= remaining(): a count that was received is checked by who takes
  // it, as the failure is the frame's.
  std::span<const unsigned char> take(std::size_t count) {
    const auto taken = bytes_.subspan(offset_, count);
    offset_ += count;
    return taken;
  }

  // Bytes in all, read or not.
  std::size_t size() const { return bytes_.size(); }

  // Bytes not read yet.
  std::size_t remaining() const { return bytes_.size() - offset_; }

 private:
  // Where it reads, and how far it has come; never beyond the end.
  std::span<const unsigned char> bytes_;
  std::size_t offset_ = 0;
};

}  // namespace ac::UHF
