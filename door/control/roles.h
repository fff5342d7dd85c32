// Who may ask for what.
#pragma once

#include <sys/types.h>

#include <array>
#include <filesystem>
#include <optional>
#include <string_view>

namespace achost {

// Each may all that those before it may.
enum class Role { view, admin };

constexpr std::string_view name_of(Role role) { return role == Role::view ? "view" : "admin"; }

// The groups of the machine whose members have a role. Where a machine has neither, the socket is for its owner alone.
inline constexpr std::string_view kViewGroup = "achost-view";
inline constexpr std::string_view kAdminGroup = "achost-admin";

// What "view" may: it changes nothing, and takes nothing away from others. All other commands are for "admin".
inline constexpr auto kForView = std::to_array<std::string_view>(
    {"hello",          "status",        "figures",       "health",       "door",          "gpio_list",
     "events",         "look_on",       "recording",     "why",          "why_now",       "journal_query",
     "journal_follow", "audit_query",   "config_schema", "config_list",  "config_get",    "config_export",
     "user_list",      "card_list",     "user_find",     "user_export",  "schedule_list", "schedule_export",
     "field_show",     "desired_state", "watch_field",   "choose_power", "card_forms"});

Role role_for(std::string_view command);

// The numbers of the two groups, where there are such groups.
struct RoleGroups {
  std::optional<gid_t> view;
  std::optional<gid_t> admin;

  bool exist() const { return view.has_value() || admin.has_value(); }
};

// As the machine's own file of groups has them: a name service may ask the network.
inline constexpr const char* kGroupsFile = "/etc/group";
RoleGroups role_groups(const std::filesystem::path& file = kGroupsFile);

// The role of the peer of that socket. The host's user, root, and whose the state is anyway, the directory's owner and
// its group where that may write in it, may all; else the groups tell. Nothing when he may not ask.
struct Peer {
  uid_t uid = 0;
  std::optional<Role> role;
};
std::optional<Peer> peer_at(int socket, const std::filesystem::path& directory, const RoleGroups& groups);

}  // namespace achost
