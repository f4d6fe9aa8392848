#include "tests/support/test_certificates.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <filesystem>
#include <memory>
#include <stdexcept>

namespace zqpool::test {
namespace {

struct Deleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(BIO* bio) const { BIO_free_all(bio); }
  void operator()(X509_EXTENSION* extension) const { X509_EXTENSION_free(extension); }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter>;
using Certificate = std::unique_ptr<X509, Deleter>;

void require(bool good, const char* what) {
  if (!good) throw std::runtime_error(std::string("making test certificates: ") + what);
}

template <typename Write>
std::string pem(Write write) {
  const std::unique_ptr<BIO, Deleter> bio(BIO_new(BIO_s_mem()));
  require(bio != nullptr && write(bio.get()) == 1, "PEM");
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  return {data, static_cast<std::size_t>(size)};
}

std::string pem(EVP_PKEY* key) {
  return pem([key](BIO* bio) {
    return PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
  });
}

std::string pem(X509* certificate) {
  return pem([certificate](BIO* bio) { return PEM_write_bio_X509(bio, certificate); });
}

struct Pair {
  Key key;
  Certificate certificate;
};

struct Wish {
  const char* subject;
  const char* names;  // subjectAltName, null for none
  const char* usage;  // extendedKeyUsage, null for a CA
  long begins;        // seconds from now
  long ends;
};

constexpr long hour = 3600;

void extend(X509* certificate, X509* issuer, int kind, const char* text) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, Deleter> extension(
      X509V3_EXT_conf_nid(nullptr, &context, kind, text));
  require(extension != nullptr && X509_add_ext(certificate, extension.get(), -1) == 1, text);
}

// `issuer` null: signed with its own key.
Pair make(const Wish& wish, const Pair* issuer) {
  Pair made{Key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")), Certificate(X509_new())};
  X509* const certificate = made.certificate.get();
  require(made.key != nullptr && certificate != nullptr, "key");
  X509_set_version(certificate, 2);
  std::uint64_t serial = 0;
  require(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1, "serial");
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial >> 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate), wish.begins);
  X509_gmtime_adj(X509_getm_notAfter(certificate), wish.ends);
  X509_set_pubkey(certificate, made.key.get());
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(wish.subject), -1, -1, 0);
  X509* const signer = issuer != nullptr ? issuer->certificate.get() : certificate;
  X509_set_issuer_name(certificate, X509_get_subject_name(signer));
  extend(certificate, signer, NID_subject_key_identifier, "hash");
  if (wish.usage == nullptr) {
    extend(certificate, signer, NID_basic_constraints, "critical,CA:TRUE");
    extend(certificate, signer, NID_key_usage, "critical,keyCertSign,cRLSign");
  } else {
    extend(certificate, signer, NID_basic_constraints, "critical,CA:FALSE");
    extend(certificate, signer, NID_ext_key_usage, wish.usage);
  }
  if (wish.names != nullptr) extend(certificate, signer, NID_subject_alt_name, wish.names);
  EVP_PKEY* const key = issuer != nullptr ? issuer->key.get() : made.key.get();
  require(X509_sign(certificate, key, EVP_sha256()) != 0, "signature");
  return made;
}

Identity save(const Temp_Directory& directory, const std::string& name, const Pair& pair) {
  Identity identity;
  identity.certificate = pem(pair.certificate.get());
  identity.key = pem(pair.key.get());
  identity.certificate_file = directory.write(name + ".pem", identity.certificate);
  identity.key_file = directory.write(name + ".key", identity.key);
  return identity;
}

}  // namespace

const Test_Certificates& Test_Certificates::instance() {
  static const Test_Certificates certificates;
  return certificates;
}

Test_Certificates::Test_Certificates() {
  constexpr const char* names = "IP:127.0.0.1,IP:::1,DNS:localhost,DNS:pool.test";
  constexpr const char* others = "IP:127.0.0.9,DNS:other.test";
  const Pair authority = make({"zqpool test CA", nullptr, nullptr, -hour, 24 * hour}, nullptr);
  const Pair stranger = make({"foreign test CA", nullptr, nullptr, -hour, 24 * hour}, nullptr);
  const auto signed_by = [this](const char* file, const Wish& wish, const Pair* issuer) {
    return save(directory_, file, make(wish, issuer));
  };
  server = signed_by("server", {"good", names, "serverAuth", -hour, 24 * hour}, &authority);
  other_host = signed_by("other", {"other", others, "serverAuth", -hour, 24 * hour}, &authority);
  expired = signed_by("expired", {"old", names, "serverAuth", -2 * hour, -hour}, &authority);
  not_yet_valid = signed_by("early", {"early", names, "serverAuth", hour, 24 * hour}, &authority);
  self_signed = signed_by("self", {"self", names, "serverAuth", -hour, 24 * hour}, nullptr);
  foreign = signed_by("foreign", {"foreign", names, "serverAuth", -hour, 24 * hour}, &stranger);
  client = signed_by("client", {"zqpool test client", nullptr, "clientAuth", -hour, 24 * hour},
                     &authority);
  ca = pem(authority.certificate.get());
  ca_file = directory_.write("ca.pem", ca);
  foreign_ca_file = directory_.write("foreign-ca.pem", pem(stranger.certificate.get()));

  ca_directory = directory_.path("hashed");
  std::filesystem::create_directory(ca_directory);
  char hashed[16];
  const unsigned long hash = X509_NAME_hash_ex(X509_get_subject_name(authority.certificate.get()),
                                               nullptr, nullptr, nullptr);
  snprintf(hashed, sizeof hashed, "%08lx.0", hash);
  directory_.write(std::string("hashed/") + hashed, ca);
}

}  // namespace zqpool::test
