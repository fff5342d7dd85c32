#include "util/damage.h"

#include <cstdint>
#include <ctime>
#include <system_error>

#include "refhost/log.h"
#include "refhost/state_file.h"
#include "refhost/store_report.h"
#include "util/wal.h"

namespace refhost {
namespace {

// A name beside the file that nothing has yet.
std::filesystem::path name_for_damaged(const std::filesystem::path& file) {
  std::array<char, 32> date{};
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  std::strftime(date.data(), date.size(), ".damaged-%Y%m%dT%H%M%S", localtime_r(&now, &local));
  const std::filesystem::path wanted = file.string() + date.data();
  std::filesystem::path name = wanted;
  for (int i = 2; std::filesystem::exists(name); ++i) {
    name = wanted.string() + "-" + std::to_string(i);
  }
  return name;
}

void tell(const std::string& fault, std::vector<std::string>* faults) {
  log::warning(fault);
  if (faults != nullptr) {
    faults->push_back(fault);
  }
}

std::filesystem::path wal_of(const std::filesystem::path& file) { return file.string() + kDatabaseSuffixes[0]; }

std::string transactions(std::size_t number) {
  return counted(static_cast<std::int64_t>(number), "acknowledged transaction");
}

// Beside the log, for those who can do more with it; what is left to say of that.
std::string keep_copy_of(const std::filesystem::path& wal) {
  const auto aside = name_for_damaged(wal);
  std::error_code failure;
  std::filesystem::copy_file(wal, aside, failure);
  give_to_directorys_owner(aside);
  return failure ? "; it cannot be kept as it was: " + failure.message()
                 : "; it is kept as it was as " + aside.string();
}

}  // namespace

std::string wal_fault(const std::filesystem::path& file) {
  const auto damage = find_damage(wal_of(file));
  const std::size_t unseen = damage.hidden + damage.lost;
  return unseen == 0 ? ""
                     : transactions(unseen) + " of " + wal_of(file).string() +
                           " cannot be read, because it is damaged: the next start of a host mends what can be mended";
}

bool mend_wal(const std::filesystem::path& file, std::vector<std::string>* faults) {
  const auto wal = wal_of(file);
  const auto damage = find_damage(wal);
  if (damage.hidden + damage.lost == 0) {
    return false;
  }
  const std::string kept = keep_copy_of(wal);
  if (damage.hidden > 0) {
    const bool is_mended = mend(wal, damage);
    tell(wal.string() + " was damaged: " + counted(static_cast<std::int64_t>(damage.mends.size()), "flipped bit") +
             " hid " + transactions(damage.hidden) +
             (is_mended ? ", which can be read again" : ", which are lost, for it cannot be written") + kept +
             "; examine the disk and the memory",
         faults);
  }
  if (damage.lost > 0) {
    tell(transactions(damage.lost) + " or more of " + wal.string() + " cannot be read, because it is damaged" + kept +
             "; restore a copy of " + file.string() + ", or go on without them",
         faults);
  }
  return damage.lost > 0;
}

void keep_aside(const std::filesystem::path& file, const std::string& noun, const std::string& damage,
                std::vector<std::string>* faults) {
  const auto aside = name_for_damaged(file);
  std::filesystem::rename(file, aside);
  for (const char* suffix : kDatabaseSuffixes) {
    if (std::filesystem::exists(file.string() + suffix)) {
      std::filesystem::rename(file.string() + suffix, aside.string() + suffix);
    }
  }
  tell("the " + noun + " " + file.string() + " is damaged (" + damage + "): it is kept as " + aside.string() +
           ", and a new one is begun",
       faults);
}

}  // namespace refhost
