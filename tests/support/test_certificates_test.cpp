#include "tests/support/test_certificates.h"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <memory>

namespace zqpool::test {
namespace {

std::shared_ptr<X509> parse(const std::string& pem) {
  BIO* const bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
  std::shared_ptr<X509> certificate(PEM_read_bio_X509(bio, nullptr, nullptr, nullptr), &X509_free);
  BIO_free(bio);
  return certificate;
}

// X509_V_OK, or why it is refused.
int verdict(const Identity& identity, const std::string& ca_file, const char* address) {
  const std::shared_ptr<X509_STORE> store(X509_STORE_new(), &X509_STORE_free);
  X509_STORE_load_file(store.get(), ca_file.c_str());
  const std::shared_ptr<X509_STORE_CTX> context(X509_STORE_CTX_new(), &X509_STORE_CTX_free);
  const auto certificate = parse(identity.certificate);
  X509_STORE_CTX_init(context.get(), store.get(), certificate.get(), nullptr);
  X509_VERIFY_PARAM_set1_ip_asc(X509_STORE_CTX_get0_param(context.get()), address);
  X509_verify_cert(context.get());
  return X509_STORE_CTX_get_error(context.get());
}

TEST(Test_Certificates, each_is_good_or_bad_in_its_own_way) {
  const Test_Certificates& all = Test_Certificates::instance();
  EXPECT_EQ(verdict(all.server, all.ca_file, "127.0.0.1"), X509_V_OK);
  EXPECT_EQ(verdict(all.server, all.ca_file, "::1"), X509_V_OK);
  EXPECT_EQ(verdict(all.foreign, all.foreign_ca_file, "127.0.0.1"), X509_V_OK);
  EXPECT_EQ(verdict(all.other_host, all.ca_file, "127.0.0.9"), X509_V_OK);
  EXPECT_EQ(verdict(all.other_host, all.ca_file, "127.0.0.1"), X509_V_ERR_IP_ADDRESS_MISMATCH);
  EXPECT_EQ(verdict(all.expired, all.ca_file, "127.0.0.1"), X509_V_ERR_CERT_HAS_EXPIRED);
  EXPECT_EQ(verdict(all.not_yet_valid, all.ca_file, "127.0.0.1"), X509_V_ERR_CERT_NOT_YET_VALID);
  EXPECT_EQ(verdict(all.self_signed, all.ca_file, "127.0.0.1"),
            X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT);
  EXPECT_EQ(verdict(all.foreign, all.ca_file, "127.0.0.1"),
            X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY);
}

TEST(Test_Certificates, are_there_as_files_that_only_their_owner_reads) {
  const Identity& identity = Test_Certificates::instance().server;
  std::ifstream file(identity.key_file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), identity.key);
  struct stat status {};
  ASSERT_EQ(stat(identity.key_file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(Temp_Directory, goes_away_with_its_content) {
  std::string path;
  {
    const Temp_Directory directory;
    path = directory.write("file", "content");
    EXPECT_TRUE(std::ifstream(path).good());
  }
  EXPECT_FALSE(std::ifstream(path).good());
}

}  // namespace
}  // namespace zqpool::test
