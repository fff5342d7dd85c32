#include "law.h"

#include "failure.h"

namespace uhfctl {

namespace {

constexpr const char* kWayOut = "; --region names another region, --force sets it all the same";

}  // namespace

const refhost::RadioLimit& limit_of(const std::string& region) {
  const auto* const limit = refhost::radio_limit_of(region);
  if (limit == nullptr) {
    std::string names;
    for (const auto& one : refhost::kRadioLimits) {
      names += (names.empty() ? "" : ", ") + std::string(one.region);
    }
    throw Failure(kUsage, "there is no region \"" + region + "\": one of " + names);
  }
  return *limit;
}

int power_from(std::string_view text) {
  try {
    return refhost::parse_power(text);
  } catch (const refhost::PowerError& failure) {
    throw Failure(kUsage, failure.what());
  }
}

void hold_power_to(const Law& law, int power) {
  const auto& limit = limit_of(law.region);
  if (power > limit.most_power && !law.force) {
    throw Failure(kUsage, refhost::power_text(power) + " is more than the " + refhost::power_text(limit.most_power) +
                              " that " + std::string(limit.region) + " allows with an antenna of " +
                              std::to_string(refhost::kCountedGain) + " dBi" + kWayOut);
  }
}

void hold_channels_to(const Law& law, const std::string& channels) {
  const auto& limit = limit_of(law.region);
  if (const auto outside = refhost::channels_outside(limit, channels); !outside.empty() && !law.force) {
    throw Failure(kUsage, std::string(limit.region) + " allows the channels " + std::string(limit.channels) +
                              " and not " + outside + kWayOut);
  }
}

}  // namespace uhfctl
