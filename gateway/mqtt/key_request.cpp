#include "gateway/mqtt/key_request.h"

#include <fcntl.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "cli/failure.h"

namespace mqtt {
namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Text = std::unique_ptr<BIO, decltype(&BIO_free)>;

[[noreturn]] void fail(const std::string& text) { throw cli::Failure(cli::kFailed, text); }

std::string content_of(BIO* bio) {
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio, &text);
  return {text, static_cast<std::size_t>(size)};
}

Key make_key(const std::filesystem::path& file) {
  Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
  const Text text(BIO_new(BIO_s_mem()), BIO_free);
  if (key == nullptr || text == nullptr ||
      PEM_write_bio_PrivateKey(text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) != 1) {
    fail("cannot make a key");
  }
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  const std::string content = content_of(text.get());
  const bool is_written =
      fd >= 0 && write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()) && fsync(fd) == 0;
  const std::string reason = std::strerror(errno);
  if (fd >= 0) {
    close(fd);
  }
  if (!is_written) {
    fail("cannot write " + file.string() + ": " + reason);
  }
  return key;
}

Key key_in(const std::filesystem::path& file) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> source(std::fopen(file.c_str(), "re"), std::fclose);
  if (source == nullptr) {
    return make_key(file);
  }
  Key key(PEM_read_PrivateKey(source.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
  if (key == nullptr) {
    fail(file.string() + " is no key: move it away, and another is made");
  }
  return key;
}

}  // namespace

std::string key_request(const std::filesystem::path& key_file, const std::string& name) {
  const Key key = key_in(key_file);
  const std::unique_ptr<X509_REQ, decltype(&X509_REQ_free)> request(X509_REQ_new(), X509_REQ_free);
  const Text text(BIO_new(BIO_s_mem()), BIO_free);
  const auto* const common = reinterpret_cast<const unsigned char*>(name.c_str());
  X509_NAME* const subject = X509_REQ_get_subject_name(request.get());
  if (X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, common, -1, -1, 0) != 1 ||
      X509_REQ_set_pubkey(request.get(), key.get()) != 1 ||
      X509_REQ_sign(request.get(), key.get(), EVP_sha256()) == 0 ||
      PEM_write_bio_X509_REQ(text.get(), request.get()) != 1) {
    fail("cannot ask for a certificate with the key in " + key_file.string());
  }
  return content_of(text.get());
}

}  // namespace mqtt
