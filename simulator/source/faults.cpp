#include "uhfsim/faults.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "uhfsim/text.h"

namespace uhfsim {

namespace {

using Line = std::vector<Bytes>;

// The module says nothing at all.
void silence(Line& line, Random&) { line.clear(); }

// The last frame arrives whole, but its checksum (the last byte but one) does not fit.
void corruptChecksum(Line& line, Random&) {
  Bytes& reply = line.back();
  if (reply.size() >= 2) reply[reply.size() - 2] ^= 0xFF;
}

// One row a fault. It gets what is about to go to the line, never empty, and changes it as it likes.
struct Fault {
  std::string_view name;
  void (*apply)(Line& line, Random& random);
};

constexpr Fault kFaults[] = {
    {"silence", silence},
    {"corrupt-checksum", corruptChecksum},
};

}  // namespace

std::vector<std::string_view> FaultInjector::names() {
  std::vector<std::string_view> names;
  for (const Fault& fault : kFaults) names.push_back(fault.name);
  return names;
}

void FaultInjector::set(std::string_view name, double probability) {
  const auto* fault = std::ranges::find(kFaults, name, &Fault::name);
  if (fault == std::end(kFaults)) {
    throw std::invalid_argument("unknown fault " + quoted(name) + "; expected " + alternatives(names()));
  }
  if (!(probability >= 0.0 && probability <= 1.0)) {
    throw std::invalid_argument("the probability is out of range; expected 0.0 to 1.0");
  }
  const std::lock_guard lock(mutex_);
  active_[fault->name] = probability;
}

std::vector<Bytes> FaultInjector::intercept(Bytes reply) {
  Line line;
  line.push_back(std::move(reply));
  const std::lock_guard lock(mutex_);
  for (const Fault& fault : kFaults) {
    const auto entry = active_.find(fault.name);
    if (entry == active_.end() || line.empty()) continue;
    if (random_.chance(entry->second)) fault.apply(line, random_);
  }
  return line;
}

}  // namespace uhfsim
