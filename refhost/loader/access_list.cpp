#include "loader/access_list.h"

#include <endian.h>
#include <linux/limits.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>

namespace refhost {
namespace {

// The attribute as the kernel gives it (linux/posix_acl_xattr.h): a version, then the entries, all little-endian.
constexpr const char* kAttribute = "system.posix_acl_access";
constexpr std::uint32_t kVersion = 2;
constexpr std::uint16_t kWrite = 2;
enum Tag : std::uint16_t { kUser = 0x02, kOwningGroup = 0x04, kGroup = 0x08, kMask = 0x10, kOther = 0x20 };

struct Entry {
  std::uint16_t tag;
  std::uint16_t rights;
  std::uint32_t id;
};

std::string attribute_of(const Descriptor& file) {
  std::string bytes(XATTR_SIZE_MAX, '\0');
  // By its path, since a descriptor that was opened with O_PATH has no attributes of its own.
  const ssize_t length = getxattr(file.path().c_str(), kAttribute, bytes.data(), bytes.size());
  if (length < 0 && errno != ENODATA && errno != EOPNOTSUPP) {
    throw std::system_error(errno, std::generic_category(), "its access control list");
  }
  bytes.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  return bytes;
}

std::vector<Entry> entries_of(const std::string& bytes) {
  std::uint32_t version = 0;
  if (bytes.size() < sizeof version || (bytes.size() - sizeof version) % sizeof(Entry) != 0) {
    throw std::system_error(EINVAL, std::generic_category(), "its access control list");
  }
  std::memcpy(&version, bytes.data(), sizeof version);
  if (le32toh(version) != kVersion) {
    throw std::system_error(ENOTSUP, std::generic_category(), "its access control list");
  }
  std::vector<Entry> entries((bytes.size() - sizeof version) / sizeof(Entry));
  std::memcpy(entries.data(), bytes.data() + sizeof version, entries.size() * sizeof(Entry));
  for (auto& entry : entries) {
    entry = {le16toh(entry.tag), le16toh(entry.rights), le32toh(entry.id)};
  }
  return entries;
}

std::vector<std::string> writers_by_list(const std::vector<Entry>& entries, gid_t owning_group) {
  std::uint16_t mask = kWrite;
  for (const auto& entry : entries) {
    mask = entry.tag == kMask ? entry.rights : mask;
  }
  std::vector<std::string> writers;
  for (const auto& [tag, rights, id] : entries) {
    const bool may = (rights & kWrite) != 0;
    const bool may_masked = may && (mask & kWrite) != 0;
    if (tag == kUser && may_masked && id != 0 && id != geteuid()) {
      writers.push_back("user " + std::to_string(id));
    } else if (tag == kGroup && may_masked && id != 0) {
      writers.push_back("group " + std::to_string(id));
    } else if (tag == kOwningGroup && may_masked && owning_group != 0) {
      writers.push_back("group " + std::to_string(owning_group));
    } else if (tag == kOther && may) {
      writers.emplace_back("everyone");
    }
  }
  return writers;
}

}  // namespace

std::vector<std::string> writers_by_mode_or_list(const Descriptor& file, const struct stat& status) {
  if (const std::string list = attribute_of(file); !list.empty()) {
    return writers_by_list(entries_of(list), status.st_gid);
  }
  std::vector<std::string> writers;
  if ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0) {
    writers.push_back("group " + std::to_string(status.st_gid));
  }
  if ((status.st_mode & S_IWOTH) != 0) {
    writers.emplace_back("everyone");
  }
  return writers;
}

}  // namespace refhost
