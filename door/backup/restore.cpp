#include "door/backup/restore.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <system_error>

#include "ac/exception.h"
#include "door/backup/backup_file.h"
#include "door/backup/stored_files.h"
#include "door/backup/take_over.h"
#include "door/base/failure.h"
#include "door/base/local_time.h"
#include "refhost/instance_lock.h"

namespace achost {
namespace {

namespace fs = std::filesystem;

// A directory for what is restored, whose files belong to whom those of the state belong to.
fs::path make_place(const fs::path& state) {
  auto place = state / kRestoreName;
  if (fs::exists(place)) {
    throw Failure(kFailed, place.string() + " is there: another restore is under way; remove it if none is");
  }
  struct stat status {};
  if (stat(state.c_str(), &status) != 0 || mkdir(place.c_str(), 0700) != 0 ||
      chmod(place.c_str(), status.st_mode & 0770U) != 0 ||
      (geteuid() == 0 && lchown(place.c_str(), status.st_uid, status.st_gid) != 0)) {
    throw fs::filesystem_error("cannot make", place, std::error_code(errno, std::generic_category()));
  }
  return place;
}

// A name of today that nothing has yet.
std::string name_to_keep(const fs::path& state) {
  const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
  const auto wanted = local_time(now, "before-restore-%Y%m%dT%H%M%S");
  auto name = wanted;
  for (int i = 2; fs::exists(state / name); ++i) {
    name = wanted + "-" + std::to_string(i);
  }
  return name;
}

}  // namespace

void check_backup(const fs::path& backup, const fs::path& directory) {
  unpack_backup(backup, directory);
  std::string faults;
  const auto note = [&faults](const std::string& fault) { faults += (faults.empty() ? "" : "; ") + fault; };
  for (const auto& file : stored_files()) {
    for (const auto& fault : file.bring_up_to_date(directory)) {
      note(fault);
    }
  }
  for (const auto& file : stored_files()) {
    for (const auto& fault : file.inspect(directory).faults) {
      note(fault);
    }
  }
  if (!faults.empty()) {
    throw Failure(kDamaged, "what " + backup.string() + " holds is damaged, and is not restored: " + faults);
  }
}

void prepare_restore(const fs::path& backup, const fs::path& state) {
  const auto place = make_place(state);
  try {
    check_backup(backup, place);
    std::ofstream(place / kKeptName) << name_to_keep(state) << '\n';
    for (const auto& entry : fs::directory_iterator(place)) {
      sync_to_disk(entry.path());
    }
    sync_to_disk(place);
  } catch (...) {
    forget_restore(state);
    throw;
  }
}

// From the renaming on it is done to its end.
fs::path make_restore_ready(const fs::path& state) {
  const auto place = state / kRestoreName;
  if (!fs::is_regular_file(place / kKeptName)) {
    throw Failure(kFailed, "nothing is prepared in " + place.string() + ": achost restore does that");
  }
  fs::rename(place, state / kRestoredName);
  sync_to_disk(state);
  return state / kept_name(state);
}

void forget_restore(const fs::path& state) {
  std::error_code ignored;
  fs::remove_all(state / kRestoreName, ignored);
}

fs::path restore(const fs::path& backup, const fs::path& state) {
  const refhost::InstanceLock lock(state);
  take_over(state);
  prepare_restore(backup, state);
  make_restore_ready(state);
  return take_over(state).value();
}

}  // namespace achost
