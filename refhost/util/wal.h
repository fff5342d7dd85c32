// SQLite's write-ahead log, looked at before SQLite does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace refhost {

// SQLite reads such a log up to the first frame whose checksum is wrong, as a crash may have cut off the last
// transaction while it was written, and says nothing. A frame that is wrong for another reason hides all that were
// acknowledged after it. The two can be told apart. A transaction begins only when the one before it is on the disk, so
// whole ones behind the wrong frame mean damage. And the index in the file "-shm", if it is of this log, tells how many
// frames were acknowledged: it is as it was when the process was killed; after a power failure it is that of some
// moment before, or none.
struct WalDamage {
  struct Mend {
    std::uint64_t offset;
    char byte;  // what stands there when the flipped bit is turned back
  };
  std::vector<Mend> mends;  // flipped bits, where no other bit would explain the same
  std::size_t hidden = 0;   // committed transactions that SQLite would not see without the mends
  std::size_t lost = 0;     // those that nothing makes visible, at least
};

// What is wrong with the log; nothing is when the file is missing or empty too. Another process may be writing it. To
// be asked before SQLite opens the file, which makes a new index.
WalDamage find_damage(const std::filesystem::path& wal);

// Turn the bits back, durably, before SQLite has opened the file. False when the file cannot be written.
bool mend(const std::filesystem::path& wal, const WalDamage& damage);

}  // namespace refhost
