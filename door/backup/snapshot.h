// Copies of all stores, while they are in use.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace achost {

// The copies of a directory's stores, in a directory of their own there, which goes with this.
class Snapshot {
 public:
  // Copies one store after the other, each as it is at one moment. Throws ac::ac_exception, and Failure while another
  // one is there.
  explicit Snapshot(const std::filesystem::path& state);
  ~Snapshot();
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  // Hand each file with its name and size to one function, and then its content in pieces to another, until that
  // returns false.
  void read(const std::function<void(const std::string& name, std::int64_t size)>& begin,
            const std::function<bool(std::string_view)>& take) const;

 private:
  std::filesystem::path directory_;
};

}  // namespace achost
