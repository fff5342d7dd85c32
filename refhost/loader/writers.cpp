#include "loader/writers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>
#include <vector>

#include "loader/access_list.h"

namespace refhost {
namespace {

[[noreturn]] void fail(const std::filesystem::path& place, int reason) {
  throw std::system_error(reason, std::generic_category(), place.string());
}

// A way that is walked part by part.
class Walk {
 public:
  explicit Walk(const std::filesystem::path& path) { put_before(path); }

  Reached to_its_end() {
    while (!ahead_.empty()) {
      const std::string part = std::move(ahead_.back());
      ahead_.pop_back();
      if (!part.empty() && part != ".") {
        step(part);
      }
    }
    return {std::move(here_), std::move(writers_)};
  }

 private:
  static constexpr int kMostLinks = 40;  // as the kernel has it

  void put_before(const std::filesystem::path& path) {
    const std::vector<std::string> parts(path.begin(), path.end());
    ahead_.insert(ahead_.end(), parts.rbegin(), parts.rend());
  }

  void step(const std::string& part) {
    auto place = part == ".." ? place_.parent_path() : place_ / part;
    // From "/" on it does not matter where we stand.
    Descriptor next(openat(here_.get(), part.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (next.get() < 0 || fstat(next.get(), &status) != 0) {
      fail(place, errno);
    }
    look_at(next, status, place);
    if (S_ISLNK(status.st_mode)) {
      follow(next, place);
    } else {
      here_ = std::move(next);
      place_ = std::move(place);
    }
  }

  void follow(const Descriptor& link, const std::filesystem::path& place) {
    std::array<char, PATH_MAX> target{};
    if (++links_ > kMostLinks) {
      fail(place, ELOOP);
    }
    const ssize_t length = readlinkat(link.get(), "", target.data(), target.size());
    if (length < 0) {
      fail(place, errno);
    }
    put_before(std::string(target.data(), static_cast<std::size_t>(length)));
  }

  void look_at(const Descriptor& file, const struct stat& status, const std::filesystem::path& place) {
    const auto add = [&](const std::string& who) { writers_.try_emplace(who, place); };
    if (status.st_uid != 0 && status.st_uid != geteuid()) {
      add("user " + std::to_string(status.st_uid));
    }
    // The mode of a symbolic link means nothing. In a directory with the sticky bit, as /tmp has it, nobody can move or
    // replace what is somebody else's.
    if (S_ISLNK(status.st_mode) || (S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0)) {
      return;
    }
    for (const auto& who : writers_by_mode_or_list(file, status)) {
      add(who);
    }
  }

  std::vector<std::string> ahead_;  // the parts still to go, the next one last
  Descriptor here_;
  std::filesystem::path place_;  // the name of here_, without links
  Writers writers_;
  int links_ = 0;
};

}  // namespace

Descriptor::~Descriptor() {
  if (fd_ >= 0) {
    close(fd_);
  }
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

int Descriptor::release() { return std::exchange(fd_, -1); }

Reached walk(const std::filesystem::path& path) { return Walk(path).to_its_end(); }

}  // namespace refhost
