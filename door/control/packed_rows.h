// Rows of values as bytes, where there may be millions of them.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace achost {

// Both ends run on one machine, and name the columns beside the bytes: a number is its eight bytes as the machine has
// them, a text its length, as a number, and itself.
class PackedRows {
 public:
  void add(std::int64_t number) { bytes_.append(reinterpret_cast<const char*>(&number), sizeof number); }

  void add(std::string_view text) {
    add(static_cast<std::int64_t>(text.size()));
    bytes_.append(text);
  }

  const std::string& bytes() const { return bytes_; }
  void clear() { bytes_.clear(); }

 private:
  std::string bytes_;
};

// Reads them in the same order. Throws std::runtime_error when there is less than that.
class PackedReader {
 public:
  // The bytes outlive it.
  explicit PackedReader(std::string_view bytes) : bytes_(bytes) {}

  bool is_at_end() const { return bytes_.empty(); }

  std::int64_t number() {
    std::int64_t number = 0;
    take(sizeof number).copy(reinterpret_cast<char*>(&number), sizeof number);
    return number;
  }

  std::string_view text() { return take(static_cast<std::size_t>(number())); }

 private:
  std::string_view take(std::size_t size) {
    if (size > bytes_.size()) {
      throw std::runtime_error("the host has sent half a row");
    }
    const auto taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
  }

  std::string_view bytes_;
};

}  // namespace achost
