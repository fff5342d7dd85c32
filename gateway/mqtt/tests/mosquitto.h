// A real broker for tests, and certificates for it.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "door/tests/process.h"
#include "refhost/tests/support.h"

namespace mqtt::test {

inline constexpr const char* kMosquitto = "/usr/sbin/mosquitto";

// Within the tests' patience.
inline bool comes_true(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + refhost::test::kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

inline sockaddr_in local(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

inline bool somebody_listens(std::uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = local(port);
  const bool is_there = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return is_there;
}

// A port that nobody has now.
inline std::uint16_t free_port() {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = local(0);
  socklen_t size = sizeof address;
  bind(fd, reinterpret_cast<const sockaddr*>(&address), size);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  close(fd);
  return ntohs(address.sin_port);
}

// Who vouches for certificates, in files.
class Authority {
 public:
  explicit Authority(const std::string& name = "ca") {
    openssl(joined({"req", "-x509", "-subj", "/CN=" + name, "-out", file("ca.pem"), "-days", "30"}, new_key("ca")));
  }

  std::string file(const std::string& name) const { return directory_.path() / name; }

  // NAME.pem and NAME.key, for that many days; with -1 it has been one.
  void sign(const std::string& name, int days = 30,
            const std::string& reached_by = "DNS:localhost,IP:127.0.0.1") const {
    std::ofstream(file("names")) << "subjectAltName=" << reached_by << "\n";
    openssl(joined({"req", "-subj", "/CN=" + name, "-out", file("request")}, new_key(name)));
    openssl({"x509", "-req", "-in", file("request"), "-CA", file("ca.pem"), "-CAkey", file("ca.key"), "-CAcreateserial",
             "-days", std::to_string(days), "-extfile", file("names"), "-out", file(name + ".pem")});
  }

 private:
  using Words = std::vector<std::string>;

  Words new_key(const std::string& name) const {
    return {"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", file(name + ".key")};
  }

  static Words joined(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  static void openssl(const Words& words) {
    const auto result = achost::test::run_program("/usr/bin/openssl", words);
    if (result.status != 0) {
      throw std::runtime_error(result.err);
    }
  }

  refhost::test::TemporaryDirectory directory_;
};

// A broker with its stores on the disk, where it stays when it is killed and started anew.
class Mosquitto {
 public:
  // more: lines of its file, beside its listener and its persistence. Without "allow_anonymous" all may come.
  explicit Mosquitto(std::string more = "") : more_(std::move(more)) { start(); }

  std::uint16_t port() const { return port_; }

  void start() {
    for (int tries = 0; tries < 20; ++tries) {
      if (port_ == 0 || tries > 10) {
        port_ = free_port();
      }
      write_file();
      process_.emplace(kMosquitto, std::vector<std::string>{"-c", directory_.path() / "mosquitto.conf"});
      if (comes_true([this] { return somebody_listens(port_) || has_ended(); }) && !has_ended()) {
        return;
      }
    }
    throw std::runtime_error("no broker starts: " + process_->wait().err);
  }

  // Its stores are written every few messages and each second, not at a kill.
  void kill(int signal = SIGKILL) {
    process_->signal(signal);
    process_->wait();
    process_.reset();
  }

  void signal(int number) { process_->signal(number); }

  // One for TLS with client certificates, whose names are the users.
  static std::string with_tls(const Authority& authority, const std::string& name = "broker") {
    return "cafile " + authority.file("ca.pem") + "\ncertfile " + authority.file(name + ".pem") + "\nkeyfile " +
           authority.file(name + ".key") + "\nrequire_certificate true\nuse_identity_as_username true\n";
  }

 private:
  bool has_ended() const { return ::kill(process_->pid(), 0) != 0 || is_zombie(); }

  bool is_zombie() const {
    std::ifstream stat("/proc/" + std::to_string(process_->pid()) + "/stat");
    const std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    return text.find(") Z") != std::string::npos;
  }

  void write_file() const {
    std::ofstream file(directory_.path() / "mosquitto.conf");
    file << "user root\npersistence true\npersistence_location " << directory_.path().string()
         << "/\nautosave_interval 1\nmax_queued_messages 0\nset_tcp_nodelay true\nlog_dest stderr\nlog_type error\n"
         << "listener " << port_ << " 127.0.0.1\n"
         << more_ << (more_.find("allow_anonymous") == std::string::npos ? "allow_anonymous true\n" : "");
  }

  refhost::test::TemporaryDirectory directory_;
  const std::string more_;
  std::uint16_t port_ = 0;
  std::optional<achost::test::Achost> process_;
};

}  // namespace mqtt::test
