#include "gateway/mqtt/safety.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <array>

namespace mqtt {
namespace {

std::string last_error() {
  std::array<char, 256> text{};
  ERR_error_string_n(ERR_get_error(), text.data(), text.size());
  ERR_clear_error();
  const std::string whole = text.data();
  return whole.substr(whole.rfind(':') + 1);
}

void require(bool is_good, const std::string& what, const std::string& file) {
  if (!is_good) {
    throw BadFiles("cannot use the " + what + " " + file + ": " + last_error());
  }
}

// What an alert of the broker's says of this side's certificate; null for one that says nothing of it.
const char* meaning_of(int alert) {
  switch (alert) {
    case SSL_AD_CERTIFICATE_EXPIRED:
      return "has expired, as the broker sees it";
    case SSL_AD_UNKNOWN_CA:
      return "is of a CA that the broker does not know";
    case SSL_AD_CERTIFICATE_REVOKED:
      return "has been revoked";
    case SSL_AD_CERTIFICATE_REQUIRED:
      return "is missing: the broker wants one";
    case SSL_AD_BAD_CERTIFICATE:
    case SSL_AD_UNSUPPORTED_CERTIFICATE:
    case SSL_AD_CERTIFICATE_UNKNOWN:
      return "is none that the broker takes";
    default:
      return nullptr;
  }
}

Safety& safety_of(const SSL* connection) {
  return *static_cast<Safety*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
}

}  // namespace

Safety::Safety(const Files& files, const std::string& host)
    : certificate_(files.certificate), context_(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free) {
  SSL_CTX_set_min_proto_version(context_.get(), TLS1_2_VERSION);
  SSL_CTX_set_app_data(context_.get(), this);
  SSL_CTX_set_verify(context_.get(), SSL_VERIFY_PEER, &Safety::look_at);
  SSL_CTX_set_info_callback(context_.get(), &Safety::listen);
  SSL_CTX_set_mode(context_.get(), SSL_MODE_RELEASE_BUFFERS);
  X509_VERIFY_PARAM* const wanted = SSL_CTX_get0_param(context_.get());
  if (X509_VERIFY_PARAM_set1_ip_asc(wanted, host.c_str()) != 1) {
    X509_VERIFY_PARAM_set1_host(wanted, host.c_str(), 0);
  }
  ERR_clear_error();
  use(files);
}

void Safety::use(const Files& files) {
  require(SSL_CTX_load_verify_file(context_.get(), files.ca.c_str()) == 1, "CA's certificate", files.ca);
  if (files.certificate.empty()) {
    return;
  }
  require(SSL_CTX_use_certificate_chain_file(context_.get(), files.certificate.c_str()) == 1, "certificate",
          files.certificate);
  check_time(files.certificate);
  require(SSL_CTX_use_PrivateKey_file(context_.get(), files.key.c_str(), SSL_FILETYPE_PEM) == 1, "key", files.key);
}

void Safety::check_time(const std::string& file) {
  const X509* const certificate = SSL_CTX_get0_certificate(context_.get());
  if (X509_cmp_current_time(X509_get0_notAfter(certificate)) < 0) {
    throw BadFiles("the certificate " + file + " has expired: put a new one there, it is taken without a restart");
  }
  if (X509_cmp_current_time(X509_get0_notBefore(certificate)) > 0) {
    throw BadFiles("the certificate " + file + " is not valid yet: is this machine's clock right?");
  }
}

int Safety::look_at(int is_good, X509_STORE_CTX* store) {
  if (is_good == 0) {
    const void* const connection = X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx());
    safety_of(static_cast<const SSL*>(connection)).refusal_ =
        std::string("the broker's certificate is refused: ") +
        X509_verify_cert_error_string(X509_STORE_CTX_get_error(store));
  }
  return is_good;
}

void Safety::listen(const SSL* connection, int what, int value) {
  Safety& self = safety_of(connection);
  self.is_shown_ = self.is_shown_ || (what == SSL_CB_HANDSHAKE_DONE && !self.certificate_.empty());
  if (const char* const meaning = what == SSL_CB_READ_ALERT ? meaning_of(value & 0xff) : nullptr) {
    self.refusal_ = self.certificate_.empty() ? std::string("a certificate ") + meaning
                                              : "the certificate " + self.certificate_ + " " + meaning;
  }
}

}  // namespace mqtt
