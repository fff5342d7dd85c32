#include "uhfsim/field.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace uhfsim {

namespace {

auto find_epc(std::vector<Tag>& tags, ByteView epc) {
  return std::find_if(tags.begin(), tags.end(), [epc](const Tag& tag) { return std::ranges::equal(tag.epc, epc); });
}

}  // namespace

void Field::add(Tag tag) {
  if (tag.epc.size() > kMaxEpcBytes) throw std::invalid_argument("EPC is longer than 62 bytes");
  const std::lock_guard lock(mutex_);
  const auto place = find_epc(tags_, tag.epc);
  if (place == tags_.end()) {
    tags_.push_back(std::move(tag));
  } else {
    *place = std::move(tag);
  }
}

bool Field::remove(ByteView epc) {
  const std::lock_guard lock(mutex_);
  const auto place = find_epc(tags_, epc);
  if (place == tags_.end()) return false;
  tags_.erase(place);
  return true;
}

void Field::clear() {
  const std::lock_guard lock(mutex_);
  tags_.clear();
}

std::vector<Tag> Field::snapshot() const {
  const std::lock_guard lock(mutex_);
  return tags_;
}

}  // namespace uhfsim
