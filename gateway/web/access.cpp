#include "gateway/web/access.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/file.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "gateway/base/state_file.h"

namespace web {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<std::pair<Role, const char*>, 3> kRoles = {
    {{Role::metrics, "metrics"}, {Role::view, "view"}, {Role::admin, "admin"}}};

std::string hex_of(const unsigned char* bytes, std::size_t count) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

// 128 bits, which nobody guesses.
std::string new_secret() {
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("the system gives no random numbers");
  }
  return hex_of(bytes.data(), bytes.size());
}

std::string hash_of(std::string_view secret) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned size = 0;
  if (EVP_Digest(secret.data(), secret.size(), bytes.data(), &size, EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 fails");
  }
  return hex_of(bytes.data(), size);
}

// Held while the file is changed.
class Lock {
 public:
  explicit Lock(const std::filesystem::path& directory)
      : fd_(open((directory / "access.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (fd_ < 0 || flock(fd_, LOCK_EX) != 0) {
      const std::string reason = std::strerror(errno);
      throw std::runtime_error("cannot lock " + (directory / "access.lock").string() + ": " + reason);
    }
    gateway::give_to_owner_of(directory, fd_);
  }
  ~Lock() { close(fd_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  int fd_;
};

bool is_over(Seconds until, Seconds at) { return until != 0 && at >= until; }

}  // namespace

const char* name_of(Role role) {
  return std::ranges::find(kRoles, role, [](const auto& one) { return one.first; })->second;
}

std::optional<Role> role_of(std::string_view name) {
  const auto found = std::ranges::find(kRoles, name, [](const auto& one) { return std::string_view(one.second); });
  return found == kRoles.end() ? std::nullopt : std::optional(found->first);
}

Seconds now() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

Access::Access(std::filesystem::path directory) : directory_(std::move(directory)) {
  std::error_code failure;
  if (!std::filesystem::is_directory(directory_, failure)) {
    std::filesystem::create_directories(directory_, failure);
    std::filesystem::permissions(directory_, std::filesystem::perms::owner_all, failure);
  }
  if (failure) {
    throw std::runtime_error("cannot use " + directory_.string() + ": " + failure.message());
  }
}

bool Access::is_new() const { return !std::filesystem::exists(file()); }

std::string Access::make_link(Role role, Seconds at, const std::string& name) {
  return add("link", role, at + kLinkLife, name);
}

std::string Access::make_key() { return add("key", Role::metrics, 0, ""); }

std::string Access::add(const std::string& kind, Role role, Seconds until, const std::string& name) {
  const std::string secret = new_secret();
  change([&](Grants& grants) { grants.push_back({kind, role, hash_of(secret), until, name}); });
  return secret;
}

std::optional<Access::Entered> Access::enter(std::string_view link, Seconds at) {
  std::optional<Entered> entered;
  look();  // who guesses does not make this write
  const auto is_that = [&, hash = hash_of(link)](const Grant& grant) {
    return grant.kind == "link" && grant.hash == hash && !is_over(grant.until, at);
  };
  if (std::ranges::none_of(grants_, is_that)) {
    return entered;
  }
  change([&](Grants& grants) {
    const auto found = std::ranges::find_if(grants, is_that);
    if (found == grants.end()) {
      return;  // somebody else was faster
    }
    const Role role = found->role;
    const std::string name = found->name;
    entered = Entered{new_secret(), role, at + (role == Role::admin ? kAdminLife : kViewLife)};
    grants.erase(found);
    std::erase_if(grants, [at](const Grant& grant) { return is_over(grant.until, at); });
    grants.push_back({"session", role, hash_of(entered->secret), entered->until, name});
  });
  return entered;
}

std::optional<Role> Access::role_of_secret(std::string_view secret, Seconds at) {
  look();
  const auto found = std::ranges::find_if(grants_, [&, hash = hash_of(secret)](const Grant& grant) {
    return grant.kind != "link" && grant.hash == hash && !is_over(grant.until, at);
  });
  return found == grants_.end() ? std::nullopt : std::optional(found->role);
}

std::string Access::name_of_secret(std::string_view secret) {
  look();
  const auto found = std::ranges::find(grants_, hash_of(secret), &Grant::hash);
  return found == grants_.end() ? "" : found->name;
}

void Access::leave(std::string_view secret) {
  change([hash = hash_of(secret)](Grants& grants) {
    std::erase_if(grants, [&hash](const Grant& grant) { return grant.kind == "session" && grant.hash == hash; });
  });
}

void Access::forget() {
  change([](Grants& grants) { grants.clear(); });
}

void Access::change(const std::function<void(Grants&)>& how) {
  const Lock lock(directory_);
  Grants grants = read();
  how(grants);
  if (grants.size() > kMost) {
    grants.erase(grants.begin(), grants.end() - kMost);
  }
  write(grants);
  look();
}

// A change takes the file's place, so that it is another one.
void Access::look() {
  struct stat found {};
  if (stat(file().c_str(), &found) != 0) {
    grants_.clear();
  } else if (found.st_ino != seen_.st_ino || found.st_mtim.tv_sec != seen_.st_mtim.tv_sec ||
             found.st_mtim.tv_nsec != seen_.st_mtim.tv_nsec) {
    grants_ = read();
    seen_ = found;
  }
}

Access::Grants Access::read() const {
  Grants grants;
  std::ifstream input(file());
  if (!input) {
    if (is_new()) {
      return grants;
    }
    throw std::runtime_error("cannot read " + file().string() + ": try it as root, or as whom it belongs to");
  }
  try {
    for (const Json& one : Json::parse(input)) {
      grants.push_back({one.at("kind"), role_of(one.at("role").get<std::string>()).value(), one.at("hash"),
                        one.at("until"), one.at("name")});
    }
  } catch (const std::exception&) {
    throw std::runtime_error(file().string() + " is damaged: remove it, and let people in again");
  }
  return grants;
}

void Access::write(const Grants& grants) const {
  Json all = Json::array();
  for (const auto& [kind, role, hash, until, name] : grants) {
    all.push_back({{"kind", kind}, {"role", name_of(role)}, {"hash", hash}, {"until", until}, {"name", name}});
  }
  gateway::replace_file(file(), all.dump(1) + "\n");
}

}  // namespace web
