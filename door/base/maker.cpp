#include "door/base/maker.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>
#include <utility>

namespace achost {
namespace {

// No object that must be destroyed: where no memory is left, the C library ends the process when a thread makes one.
thread_local const Maker* current_maker = nullptr;

}  // namespace

Maker own_maker() { return maker_of(geteuid()); }

Maker maker_of(std::int64_t uid) {
  Maker maker{.uid = uid, .name = ""};
  const std::unique_ptr<FILE, int (*)(FILE*)> users(std::fopen("/etc/passwd", "re"), &std::fclose);
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  while (users != nullptr && fgetpwent_r(users.get(), &entry, buffer.data(), buffer.size(), &found) == 0) {
    if (entry.pw_uid == static_cast<uid_t>(uid)) {
      maker.name = entry.pw_name;
      break;
    }
  }
  return maker;
}

MakerScope::MakerScope(Maker maker) : maker_(std::move(maker)), before_(std::exchange(current_maker, &maker_)) {}

MakerScope::~MakerScope() { current_maker = before_; }

const Maker* MakerScope::current() { return current_maker; }

}  // namespace achost
