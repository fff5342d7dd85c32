#include "door/control/roles.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace achost {
namespace {

// The kernel tells the groups that the peer had when it connected.
class PeerGroups {
 public:
  PeerGroups(int socket, gid_t own) : groups_(kUsual) {
    socklen_t size = kUsual * sizeof(gid_t);
    if (getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups_.data(), &size) != 0) {
      groups_.resize(size / sizeof(gid_t));  // it has more, and says how many
      size = static_cast<socklen_t>(groups_.size() * sizeof(gid_t));
      size = getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups_.data(), &size) == 0 ? size : 0;
    }
    groups_.resize(size / sizeof(gid_t));
    groups_.push_back(own);
  }

  bool have(std::optional<gid_t> group) const {
    return group.has_value() && std::ranges::find(groups_, *group) != groups_.end();
  }

 private:
  static constexpr std::size_t kUsual = 64;

  std::vector<gid_t> groups_;
};

bool owns(const PeerGroups& groups, uid_t uid, const std::filesystem::path& directory) {
  if (uid == geteuid() || uid == 0) {
    return true;
  }
  struct stat owner {};
  const bool known = stat(directory.c_str(), &owner) == 0;
  return known && (uid == owner.st_uid || ((owner.st_mode & S_IWGRP) != 0 && groups.have(owner.st_gid)));
}

}  // namespace

Role role_for(std::string_view command) {
  return std::ranges::find(kForView, command) == kForView.end() ? Role::admin : Role::view;
}

RoleGroups role_groups(const std::filesystem::path& file) {
  RoleGroups groups;
  const std::unique_ptr<FILE, int (*)(FILE*)> lines(std::fopen(file.c_str(), "re"), &std::fclose);
  std::vector<char> buffer(65536);  // a group may have many members
  group entry{};
  group* found = nullptr;
  while (lines != nullptr && fgetgrent_r(lines.get(), &entry, buffer.data(), buffer.size(), &found) == 0) {
    if (entry.gr_name == kViewGroup) {
      groups.view = entry.gr_gid;
    } else if (entry.gr_name == kAdminGroup) {
      groups.admin = entry.gr_gid;
    }
  }
  return groups;
}

std::optional<Peer> peer_at(int socket, const std::filesystem::path& directory, const RoleGroups& groups) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return std::nullopt;
  }
  const PeerGroups his(socket, peer.gid);
  if (owns(his, peer.uid, directory) || his.have(groups.admin)) {
    return Peer{.uid = peer.uid, .role = Role::admin};
  }
  return Peer{.uid = peer.uid, .role = his.have(groups.view) ? std::optional(Role::view) : std::nullopt};
}

}  // namespace achost
