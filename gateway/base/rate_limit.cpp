#include "gateway/base/rate_limit.h"

#include <algorithm>

namespace gateway {

bool RateLimit::take(const std::string& client, Time now, double cost) {
  if (buckets_.size() >= kMostClients && !buckets_.contains(client)) {
    make_room();
  }
  Bucket& bucket = buckets_.try_emplace(client, Bucket{at_once_, now}).first->second;
  const std::chrono::duration<double> passed = now - bucket.at;
  bucket = {std::min(at_once_, bucket.left + passed.count() * per_second_), now};
  if (bucket.left < cost) {
    return false;
  }
  bucket.left -= cost;
  return true;
}

void RateLimit::make_room() {
  buckets_.erase(std::ranges::min_element(buckets_, {}, [](const auto& one) { return one.second.at; }));
}

}  // namespace gateway
