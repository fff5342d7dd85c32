#include "door/base/maker.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <utility>

namespace achost {
namespace {

thread_local std::optional<Maker> current_maker;

}  // namespace

Maker own_maker() { return maker_of(geteuid()); }

Maker maker_of(std::int64_t uid) {
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  const bool is_known =
      getpwuid_r(static_cast<uid_t>(uid), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr;
  return {.uid = uid, .name = is_known ? entry.pw_name : ""};
}

MakerScope::MakerScope(Maker maker) : before_(std::exchange(current_maker, std::move(maker))) {}

MakerScope::~MakerScope() { current_maker = std::move(before_); }

const std::optional<Maker>& MakerScope::current() { return current_maker; }

}  // namespace achost
