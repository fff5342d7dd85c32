// The fleet's own authority, which signs what doors show at the broker.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace fleet {

// A hash of the key in a request (PEM). Throws cli::Failure for what is no request, is not signed by its own key, or
// has a key that is too weak.
std::string key_in_request(const std::string& request);

class Authority {
 public:
  // PEM files. Throws cli::Failure, which names the file and the way out.
  Authority(const std::string& certificate_file, const std::string& key_file);

  // PEM: a certificate of that name for the key of this request (PEM), for so many days from now. Throws as
  // key_in_request().
  std::string sign(const std::string& request, const std::string& name, int days) const;

  const std::string& certificate() const { return certificate_text_; }

 private:
  std::string certificate_text_;
  std::unique_ptr<X509, decltype(&X509_free)> certificate_;
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_;
};

}  // namespace fleet
