#pragma once

#include <mutex>
#include <vector>

#include "uhfsim/tag.h"

namespace uhfsim {

/// The tags in front of the antenna. Any thread may call any operation at any time.
class Field {
 public:
  /// Puts a tag into the field. One with the same EPC is replaced and keeps its place in the order.
  /// Throws std::invalid_argument when the EPC is longer than kMaxEpcBytes.
  void add(Tag tag);

  /// Takes the tag with this EPC out; returns false when there is none.
  bool remove(ByteView epc);

  /// Takes every tag out.
  void clear();

  /// The tags as they are now, in the order in which they came.
  std::vector<Tag> snapshot() const;

 private:
  mutable std::mutex mutex_;  // guards tags_
  std::vector<Tag> tags_;
};

}  // namespace uhfsim
