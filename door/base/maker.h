// Who makes a change.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace achost {

// A user of the machine: the peer of a control socket, or whoever runs the command.
struct Maker {
  std::int64_t uid = 0;
  std::string name;  // as the machine knows it; empty: it does not

  bool operator==(const Maker&) const = default;
};

// The user of this process.
Maker own_maker();

// That user, with the name that the machine knows him by.
Maker maker_of(std::int64_t uid);

// For the time of a block, all that the calling thread changes is that one's change. Blocks may stand in each other.
class MakerScope {
 public:
  explicit MakerScope(Maker maker);
  ~MakerScope();
  MakerScope(const MakerScope&) = delete;
  MakerScope& operator=(const MakerScope&) = delete;

  // Whose block the calling thread is in; nothing outside of one: the device changes something by itself.
  static const std::optional<Maker>& current();

 private:
  std::optional<Maker> before_;
};

}  // namespace achost
