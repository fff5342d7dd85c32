// Who may do what: links that let somebody in once, sessions, and keys for programs.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace web {

// Each may do what those before it may.
enum class Role { metrics, view, admin };

const char* name_of(Role role);
std::optional<Role> role_of(std::string_view name);

// As seconds since 1970: they are compared across processes and restarts.
using Seconds = std::int64_t;
Seconds now();

// What lets somebody in, in the file DIRECTORY/access.json. Only hashes of the secrets stand there, so who reads it
// gets in no further. Several processes may have it open: a change is made under a lock, and seen by all.
class Access {
 public:
  static constexpr Seconds kLinkLife = 15LL * 60;
  static constexpr Seconds kViewLife = 30LL * 24 * 60 * 60;
  static constexpr Seconds kAdminLife = 12LL * 60 * 60;  // of a session; then a new link is needed
  static constexpr std::size_t kMost = 256;              // what is beyond that goes, the oldest first

  // Throws std::runtime_error when the directory cannot be used.
  explicit Access(std::filesystem::path directory);

  // Whether nobody has ever been let in.
  bool is_new() const;

  // A secret that enter() takes once, within kLinkLife. name: of whom it is for.
  std::string make_link(Role role, Seconds at, const std::string& name = "");

  // A secret for a program that reads /metrics; it holds until forget().
  std::string make_key();

  struct Entered {
    std::string secret;
    Role role;
    Seconds until;
  };
  // A session for a link's secret; nothing when there is no such link any more.
  std::optional<Entered> enter(std::string_view link, Seconds at);

  // Of a session or a key.
  std::optional<Role> role_of_secret(std::string_view secret, Seconds at);

  // Whom a session is for; empty when that is not known.
  std::string name_of_secret(std::string_view secret);

  // End that session.
  void leave(std::string_view secret);

  // End all sessions, links and keys.
  void forget();

 private:
  struct Grant {
    std::string kind;  // link, session, key
    Role role;
    std::string hash;
    Seconds until;  // 0: no end
    std::string name;
  };
  using Grants = std::vector<Grant>;

  std::string add(const std::string& kind, Role role, Seconds until, const std::string& name);
  void change(const std::function<void(Grants&)>& how);
  void look();
  Grants read() const;
  void write(const Grants& grants) const;
  std::filesystem::path file() const { return directory_ / "access.json"; }

  const std::filesystem::path directory_;
  Grants grants_;        // as the file was
  struct stat seen_ {};  // when it was read
};

}  // namespace web
