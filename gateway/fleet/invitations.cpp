#include "gateway/fleet/invitations.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "cli/failure.h"
#include "cli/output_file.h"
#include "gateway/mqtt/one_time_code.h"

namespace fleet {
namespace {

constexpr const char* kFile = "invitations.json";

}  // namespace

class Invitations::Lock {
 public:
  explicit Lock(const std::filesystem::path& directory)
      : fd_(open((directory / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (fd_ < 0 || flock(fd_, LOCK_EX) != 0) {
      const std::string reason = std::strerror(errno);
      close_it();
      throw cli::Failure(cli::kFailed,
                         "cannot use " + directory.string() + ": " + reason + ": give another with --state");
    }
  }
  ~Lock() { close_it(); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  void close_it() const {
    if (fd_ >= 0) {
      close(fd_);
    }
  }

  int fd_;
};

Invitations::Invitations(std::filesystem::path directory) : directory_(std::move(directory)) {
  std::error_code failure;  // the lock says what is wrong
  if (std::filesystem::create_directories(directory_, failure)) {
    std::filesystem::permissions(directory_, std::filesystem::perms::owner_all, failure);
  }
}

Json Invitations::read() const {
  std::ifstream stream(directory_ / kFile, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  const Json all = Json::parse(text.empty() ? "{}" : text, nullptr, false);
  if (!all.is_object()) {
    throw cli::Failure(cli::kFailed,
                       (directory_ / kFile).string() + " is damaged: remove it, and invite the doors again");
  }
  return all;
}

void Invitations::write(const Json& all) const try {
  achost::OutputFile file(directory_ / kFile, achost::OutputFile::Form::whole);
  file.write(all.dump(1) + "\n");
  file.close();
} catch (const achost::OutputError& failure) {
  throw cli::Failure(cli::kFailed, failure.what());
}

std::string Invitations::invite(const std::string& serial, const std::string& door, std::int64_t until) {
  const Lock lock(directory_);
  const std::string code = mqtt::new_code();
  Json all = read();
  all[serial] = {{"door", door}, {"code", mqtt::meant_code(code)}, {"until", until}};
  write(all);
  return code;
}

std::optional<Invitation> Invitations::use(const std::string& serial, const KeyRequest& request,
                                           const std::string& proof, std::int64_t now) {
  const Lock lock(directory_);
  Json all = read();
  const Json one = value_in(all, serial.c_str());
  const Invitation invitation{.door = text_in(one, "door"),
                              .code = text_in(one, "code"),
                              .until = number_in(one, "until").value_or(0),
                              .used_by = text_in(one, "used_by")};
  const bool is_right = !invitation.code.empty() && now < invitation.until &&
                        mqtt::is_proof(proof, invitation.code, request.text) &&
                        (invitation.used_by.empty() || invitation.used_by == request.key);
  if (!is_right) {
    return std::nullopt;
  }
  all[serial]["used_by"] = request.key;
  write(all);
  return invitation;
}

}  // namespace fleet
