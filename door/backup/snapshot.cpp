#include "door/backup/snapshot.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <system_error>

#include "ac/exception.h"
#include "door/backup/stored_files.h"
#include "door/backup/take_over.h"
#include "door/base/failure.h"
#include "refhost/snapshot.h"

namespace achost {

Snapshot::Snapshot(const std::filesystem::path& state) : directory_(state / kSnapshotName) {
  if (mkdir(directory_.c_str(), 0700) != 0) {
    if (errno == EEXIST) {
      throw Failure(kFailed, "another backup of " + state.string() + " is under way: try again when it is done");
    }
    throw ac::ac_exception("cannot make " + directory_.string() + ": " + std::strerror(errno), true);
  }
  try {
    for (const auto& file : stored_files()) {
      refhost::copy_database(state / file.name, directory_ / file.name);
    }
  } catch (...) {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
    throw;
  }
}

Snapshot::~Snapshot() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void Snapshot::read(const std::function<void(const std::string&, std::int64_t)>& begin,
                    const std::function<bool(std::string_view)>& take) const {
  constexpr std::size_t kPiece = std::size_t{128} * 1024;
  std::string piece;
  for (const auto& file : stored_files()) {
    const auto path = directory_ / file.name;
    if (!std::filesystem::exists(path)) {
      continue;
    }
    auto left = static_cast<std::int64_t>(std::filesystem::file_size(path));
    begin(file.name, left);
    for (std::ifstream stream(path, std::ios::binary); left > 0; left -= static_cast<std::int64_t>(piece.size())) {
      piece.resize(std::min(kPiece, static_cast<std::size_t>(left)));
      if (!stream.read(piece.data(), static_cast<std::streamsize>(piece.size()))) {
        throw ac::ac_exception("cannot read " + path.string(), true);
      }
      if (!take(piece)) {
        return;
      }
    }
  }
}

}  // namespace achost
