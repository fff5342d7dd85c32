// How much a client may ask for.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <unordered_map>

namespace gateway {

// A bucket for each client: so many requests at once, and so many a second in the long run. One thread uses it.
class RateLimit {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr std::size_t kMostClients = 1024;  // remembered; then those who have been quiet longest are forgotten

  RateLimit(double at_once, double per_second) : at_once_(at_once), per_second_(per_second) {}

  // Whether the client may have that much more now.
  bool take(const std::string& client, Time now, double cost = 1);

 private:
  struct Bucket {
    double left;
    Time at;
  };

  void make_room();

  const double at_once_;
  const double per_second_;
  std::unordered_map<std::string, Bucket> buckets_;
};

}  // namespace gateway
