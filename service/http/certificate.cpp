#include "service/http/certificate.h"

#include <fcntl.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace zqpool::service {

namespace {

constexpr long validity_seconds = 825L * 24 * 3600;

[[noreturn]] void fail(const std::string& what) {
  const unsigned long code = ERR_get_error();
  const char* reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
  throw std::runtime_error(what + (reason ? std::string(": ") + reason : ""));
}

template <auto Free>
struct Deleter {
  template <typename T>
  void operator()(T* pointer) const {
    Free(pointer);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;
using Memory = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using Number = std::unique_ptr<BIGNUM, Deleter<BN_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;

void add_extension(X509* certificate, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, kind, value));
  if (!extension || X509_add_ext(certificate, extension.get(), -1) != 1) {
    fail("cannot make the certificate's extensions");
  }
}

void write_new(const std::string& file, int mode, BIO* content) {
  const int out = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (out < 0) throw std::runtime_error("cannot create '" + file + "': " + std::strerror(errno));
  char* data = nullptr;
  const auto length = static_cast<std::size_t>(BIO_get_mem_data(content, &data));
  // fchmod(), since the umask would keep other users from reading the certificate.
  const bool written = ::fchmod(out, static_cast<mode_t>(mode)) == 0 &&
                       ::write(out, data, length) == static_cast<ssize_t>(length);
  const bool closed = ::close(out) == 0;
  if (!written || !closed) {
    ::unlink(file.c_str());
    throw std::runtime_error("cannot write '" + file + "': " + std::strerror(errno));
  }
}

}  // namespace

void make_certificate(const std::string& directory) {
  // Not EVP_EC_gen(): clang warns of a cast in that macro.
  const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  const Certificate certificate(X509_new());
  const Number serial(BN_new());
  if (!key || !certificate || !serial) fail("cannot make a key");
  X509* const x509 = certificate.get();
  X509_set_version(x509, X509_VERSION_3);
  if (BN_rand(serial.get(), 120, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) != 1 ||
      !BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(x509)) ||
      !X509_gmtime_adj(X509_getm_notBefore(x509), -3600) ||
      !X509_gmtime_adj(X509_getm_notAfter(x509), validity_seconds) ||
      X509_set_pubkey(x509, key.get()) != 1) {
    fail("cannot make the certificate");
  }
  X509_NAME* const name = X509_get_subject_name(x509);
  const unsigned char common_name[] = "localhost";
  if (X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, common_name, -1, -1, 0) != 1 ||
      X509_set_issuer_name(x509, name) != 1) {
    fail("cannot name the certificate");
  }
  // A trust anchor, but no CA: it cannot sign other certificates.
  add_extension(x509, NID_basic_constraints, "critical,CA:FALSE");
  add_extension(x509, NID_key_usage, "critical,digitalSignature");
  add_extension(x509, NID_ext_key_usage, "serverAuth");
  add_extension(x509, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1");
  add_extension(x509, NID_subject_key_identifier, "hash");
  if (X509_sign(x509, key.get(), EVP_sha256()) == 0) fail("cannot sign the certificate");

  const Memory key_text(BIO_new(BIO_s_mem()));
  const Memory certificate_text(BIO_new(BIO_s_mem()));
  if (!key_text || !certificate_text ||
      PEM_write_bio_PrivateKey(key_text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) !=
          1 ||
      PEM_write_bio_X509(certificate_text.get(), x509) != 1) {
    fail("cannot write the certificate");
  }
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    throw std::runtime_error("cannot create '" + directory + "': " + error.message());
  }
  const std::string key_file = directory + "/key.pem";
  write_new(key_file, 0600, key_text.get());
  try {
    write_new(directory + "/certificate.pem", 0644, certificate_text.get());
  } catch (const std::exception&) {
    ::unlink(key_file.c_str());
    throw;
  }
}

}  // namespace zqpool::service
