#include "gateway/fleet/authority.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <array>
#include <fstream>
#include <iterator>

#include "cli/failure.h"
#include "gateway/fleet/parts.h"

namespace fleet {
namespace {

using Text = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Request = std::unique_ptr<X509_REQ, decltype(&X509_REQ_free)>;

constexpr int kLeastStrength = 112;  // bits: RSA with 2048, P-224

[[noreturn]] void fail(const std::string& text) { throw cli::Failure(cli::kFailed, text); }

Text text_of(const std::string& text) {
  return {BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free};
}

std::string content_of(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (text.empty()) {
    throw cli::Failure(cli::kUsage, "cannot read " + (file.empty() ? "the authority's key" : file) +
                                        ": give the authority with --ca and its key with --ca-key");
  }
  return text;
}

// Unlike any other of this authority.
void number(X509* certificate) {
  std::array<unsigned char, 16> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    fail("this machine gives no random numbers");
  }
  bytes[0] &= 0x7FU;
  const std::unique_ptr<BIGNUM, decltype(&BN_free)> serial(
      BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr), BN_free);
  BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate));
}

void extend(X509* certificate, X509* issuer, int kind, const char* value) {
  X509V3_CTX context{};
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, &context, kind, value), X509_EXTENSION_free);
  if (extension == nullptr || X509_add_ext(certificate, extension.get(), -1) != 1) {
    fail("cannot make a certificate");
  }
}

Request checked(const std::string& text) {
  Request request(PEM_read_bio_X509_REQ(text_of(text).get(), nullptr, nullptr, nullptr), X509_REQ_free);
  EVP_PKEY* const key = request == nullptr ? nullptr : X509_REQ_get0_pubkey(request.get());
  if (key == nullptr || X509_REQ_verify(request.get(), key) != 1) {
    fail("this is no request for a certificate, signed by its own key");
  }
  if (EVP_PKEY_get_security_bits(key) < kLeastStrength) {
    fail("the key is too weak: make one of P-256, or RSA with 2048 bits");
  }
  return request;
}

}  // namespace

std::string key_in_request(const std::string& request) {
  const Request asked = checked(request);
  unsigned char* bytes = nullptr;
  const int size = i2d_PUBKEY(X509_REQ_get0_pubkey(asked.get()), &bytes);
  const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(bytes,
                                                                       [](unsigned char* one) { OPENSSL_free(one); });
  if (size <= 0) {
    fail("this is no request for a certificate");
  }
  return hash_of({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)});
}

Authority::Authority(const std::string& certificate_file, const std::string& key_file)
    : certificate_text_(content_of(certificate_file)), certificate_(nullptr, X509_free), key_(nullptr, EVP_PKEY_free) {
  certificate_.reset(PEM_read_bio_X509(text_of(certificate_text_).get(), nullptr, nullptr, nullptr));
  if (certificate_ == nullptr) {
    throw cli::Failure(cli::kUsage, certificate_file + " is no certificate in PEM");
  }
  key_.reset(PEM_read_bio_PrivateKey(text_of(content_of(key_file)).get(), nullptr, nullptr, nullptr));
  if (key_ == nullptr || X509_check_private_key(certificate_.get(), key_.get()) != 1) {
    throw cli::Failure(cli::kUsage, key_file + " is not the key of " + certificate_file + ": give that with --ca-key");
  }
}

std::string Authority::sign(const std::string& request, const std::string& name, int days) const {
  const Request asked = checked(request);
  const Certificate made(X509_new(), X509_free);
  number(made.get());
  X509_set_version(made.get(), 2);
  X509_gmtime_adj(X509_getm_notBefore(made.get()), -24L * 60 * 60);  // a new board's clock may be behind
  X509_time_adj_ex(X509_getm_notAfter(made.get()), days, 0, nullptr);
  // The door's name is the invitation's, whatever the request says.
  X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  X509_set_issuer_name(made.get(), X509_get_subject_name(certificate_.get()));
  X509_set_pubkey(made.get(), X509_REQ_get0_pubkey(asked.get()));
  extend(made.get(), certificate_.get(), NID_basic_constraints, "critical,CA:FALSE");
  extend(made.get(), certificate_.get(), NID_ext_key_usage, "clientAuth");
  const Text text(BIO_new(BIO_s_mem()), BIO_free);
  if (X509_sign(made.get(), key_.get(), EVP_sha256()) == 0 || PEM_write_bio_X509(text.get(), made.get()) != 1) {
    fail("cannot sign a certificate");
  }
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(text.get(), &bytes);
  return {bytes, static_cast<std::size_t>(size)};
}

}  // namespace fleet
