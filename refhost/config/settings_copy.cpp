#include "config/settings_copy.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <system_error>

#include "refhost/state_file.h"

namespace refhost {
namespace {

constexpr std::string_view kChecksum = "checksum ";

// FNV-1a: against a disk that errs, not against people, who may write the database itself as well.
std::string checksum_line(std::string_view text) {
  constexpr std::uint64_t kBasis = 0xcbf29ce484222325;
  constexpr std::uint64_t kPrime = 0x100000001b3;
  std::uint64_t sum = kBasis;
  for (const char c : text) {
    sum = (sum ^ static_cast<unsigned char>(c)) * kPrime;
  }
  return std::string(kChecksum) + std::to_string(sum) + "\n";
}

std::optional<SettingValue> value_of(std::string_view line) {
  const auto dot = line.find('.');
  const auto equals = line.find('=');
  if (dot == line.npos || equals == line.npos || equals < dot) {
    return std::nullopt;
  }
  return SettingValue{std::string(line.substr(0, dot)), std::string(line.substr(dot + 1, equals - dot - 1)),
                      std::string(line.substr(equals + 1))};
}

[[noreturn]] void fail(const std::filesystem::path& file) {
  throw std::system_error(errno, std::generic_category(), file.string());
}

void write_durably(int fd, std::string_view text, const std::filesystem::path& file) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written < 0 && errno != EINTR) {
      fail(file);
    }
    text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
  }
  if (fsync(fd) != 0) {
    fail(file);
  }
}

// So that the file's new name outlives a power failure.
void sync_directory(const std::filesystem::path& directory) {
  const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool done = fd >= 0 && fsync(fd) == 0;
  const int reason = errno;
  if (fd >= 0) {
    close(fd);
  }
  if (!done) {
    errno = reason;
    fail(directory);
  }
}

}  // namespace

bool SettingsCopy::exists() const {
  std::error_code failure;
  return std::filesystem::exists(file_, failure) || failure;
}

std::optional<std::vector<SettingValue>> SettingsCopy::read() const {
  std::ifstream stream(file_, std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  const auto end = content.rfind(kChecksum);
  if (end == content.npos || content.substr(end) != checksum_line(content.substr(0, end))) {
    return std::nullopt;
  }
  std::vector<SettingValue> rows;
  for (std::string_view text(content.data(), end); !text.empty(); text.remove_prefix(text.find('\n') + 1)) {
    auto row = value_of(text.substr(0, text.find('\n')));
    if (!row.has_value()) {
      return std::nullopt;
    }
    rows.push_back(std::move(*row));
  }
  return rows;
}

void SettingsCopy::write(const std::vector<SettingValue>& rows) const {
  std::string text;
  for (const auto& [section, key, value] : rows) {
    text.append(section).append(".").append(key).append("=").append(value).append("\n");
  }
  text += checksum_line(text);
  std::string name = file_.string() + ".XXXXXX";
  const int fd = mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) {
    fail(file_);
  }
  try {
    give_to_directorys_owner(name);
    write_durably(fd, text, name);
    std::filesystem::rename(name, file_);
    sync_directory(file_.parent_path());
    close(fd);
  } catch (...) {
    close(fd);
    ::unlink(name.c_str());
    throw;
  }
}

}  // namespace refhost
