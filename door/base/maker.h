// Who makes a change.
#pragma once

#include <cstdint>
#include <string>

namespace achost {

// A user of the machine: the peer of a control socket, or whoever runs the command.
struct Maker {
  std::int64_t uid = 0;
  std::string name;      // as the machine knows it; empty: it does not
  std::string behalf{};  // for whom, as he says himself: a user of a gateway; empty: for himself

  bool operator==(const Maker&) const = default;
};

// The user of this process.
Maker own_maker();

// That user, with the name that the machine's own file of users has for him: a name service may ask the network, and
// the C library's looking one up ends the process where no memory is left.
Maker maker_of(std::int64_t uid);

// For the time of a block, all that the calling thread changes is that one's change. Blocks may stand in each other.
class MakerScope {
 public:
  explicit MakerScope(Maker maker);
  ~MakerScope();
  MakerScope(const MakerScope&) = delete;
  MakerScope& operator=(const MakerScope&) = delete;

  // Whose block the calling thread is in, until its end; null outside of one: the device changes something by itself.
  static const Maker* current();

 private:
  const Maker maker_;
  const Maker* const before_;
};

}  // namespace achost
