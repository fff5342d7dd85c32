// TLS to a broker: the files, and what is wrong with them or with the broker's.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace mqtt {

// PEM files. Without ca there is no TLS; without a certificate the broker is to take strangers, or a password.
struct Files {
  std::string ca = {};           // who vouches for the broker
  std::string certificate = {};  // this side's own, with those between it and its ca
  std::string key = {};
};

// The files are of no use; what() names the file and the way out.
class BadFiles : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One connection's safety. The files are read anew for each, so that renewed ones need no restart. One thread uses it,
// and it stays where it was made, since OpenSSL keeps its address.
class Safety {
 public:
  // host: the name or address that the broker's certificate is to have. Throws BadFiles.
  Safety(const Files& files, const std::string& host);
  Safety(const Safety&) = delete;
  Safety& operator=(const Safety&) = delete;

  SSL_CTX* context() { return context_.get(); }

  // Why the broker's certificate was refused, or this side's by the broker; empty when neither was.
  const std::string& refusal() const { return refusal_; }

  // This side has shown its certificate. A broker that does not take it says so and ends the connection, and the end
  // may come first.
  bool may_be_refused() const { return is_shown_; }

 private:
  static int look_at(int is_good, X509_STORE_CTX* store);
  static void listen(const SSL* connection, int what, int value);
  void use(const Files& files);
  void check_time(const std::string& file);

  const std::string certificate_;  // its file
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::string refusal_;
  bool is_shown_ = false;
};

}  // namespace mqtt
