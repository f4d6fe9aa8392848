#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "tests/service/fixtures/http_client.h"
#include "tests/service/fixtures/small_lab.h"
#include "tests/support/service_process.h"
#include "tests/support/test_certificates.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

const std::string pool_path = "/zq/r/storage/catalog/pool";

std::string content_of(const std::string& file) {
  std::ostringstream out;
  out << std::ifstream(file, std::ios::binary).rdbuf();
  return out.str();
}

unsigned mode_of(const std::string& file) {
  struct stat status {};
  EXPECT_EQ(stat(file.c_str(), &status), 0) << file;
  return status.st_mode & 0777;
}

/// One exchange over at most this version of TLS (0: the newest), resuming `session` unless null.
std::shared_ptr<SSL_SESSION> exchange(const Service_Process& service, SSL_SESSION* session,
                                      bool expect_reused) {
  Http_Client client(service.https(), session);
  EXPECT_EQ(client.session_reused(), expect_reused);
  client.send(request_text("GET", pool_path, service.access_key(), "", "Connection: close\r\n"));
  EXPECT_TRUE(client.read());
  EXPECT_EQ(client.ending(), Ending::closed) << "the close alert was not sent";
  return client.session();
}

TEST(Service_Tls, sessions_are_resumed) {
  const Service_Process service({small_lab(), {}});
  std::shared_ptr<SSL_SESSION> session = exchange(service, nullptr, false);
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(SSL_SESSION_is_resumable(session.get()));
    session = exchange(service, session.get(), true);
  }
}

TEST(Service_Tls, a_session_does_not_outlive_the_process) {
  Service_Process service({small_lab(), {}});
  const std::shared_ptr<SSL_SESSION> session = exchange(service, nullptr, false);
  EXPECT_EQ(service.stop(), 0);
  service.start();
  exchange(service, session.get(), false);
}

TEST(Service_Tls, other_bytes_than_a_handshake_are_disconnected) {
  const Service_Process service;
  Endpoint tls = service.https();
  tls.ssl = false;
  Http_Client client(tls);
  client.send(request_text("GET", pool_path, service.access_key()));
  std::string bytes;
  EXPECT_NE(client.read_to_end(bytes), Ending::silent);
  EXPECT_THAT(bytes, testing::Not(HasSubstr("HTTP/")));
  EXPECT_EQ(ask(service, "GET", "/zq/lab/health", "", "", true).status, 200U);
}

TEST(Service_Tls, a_client_may_disconnect_at_any_point_of_the_handshake) {
  const Service_Process service;
  Endpoint tls = service.https();
  tls.ssl = false;
  const std::string hello("\x16\x03\x01\x00\x05\x01\x00\x00\x01\x00", 10);
  for (std::size_t i = 0; i <= hello.size(); ++i) {
    Http_Client client(tls);
    client.send(hello.substr(0, i));
  }
  EXPECT_EQ(ask(service, "GET", "/zq/lab/health", "", "", true).status, 200U);
}

TEST(Make_Certificate, writes_one_that_clients_can_trust) {
  const Temp_Directory directory;
  const std::string folder = directory.path("new/tls");
  const Service_Result made = run_service({"--make-certificate", folder});
  ASSERT_EQ(made.exit_code, 0) << made.messages;
  EXPECT_EQ(mode_of(folder + "/key.pem"), 0600U);
  EXPECT_EQ(mode_of(folder + "/certificate.pem"), 0644U);

  const std::unique_ptr<BIO, int (*)(BIO*)> file(
      BIO_new_file((folder + "/certificate.pem").c_str(), "r"), BIO_free);
  ASSERT_TRUE(file);
  const std::unique_ptr<X509, void (*)(X509*)> certificate(
      PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr), X509_free);
  ASSERT_TRUE(certificate);
  EXPECT_EQ(X509_check_host(certificate.get(), "localhost", 0, 0, nullptr), 1);
  EXPECT_EQ(X509_check_ip_asc(certificate.get(), "127.0.0.1", 0), 1);
  EXPECT_EQ(X509_check_ip_asc(certificate.get(), "::1", 0), 1);
  EXPECT_EQ(X509_check_host(certificate.get(), "other", 0, 0, nullptr), 0);
  EXPECT_EQ(X509_check_ca(certificate.get()), 0) << "it can vouch for others";

  // A client that trusts it as CA accepts it.
  const std::unique_ptr<X509_STORE, void (*)(X509_STORE*)> store(X509_STORE_new(), X509_STORE_free);
  X509_STORE_add_cert(store.get(), certificate.get());
  const std::unique_ptr<X509_STORE_CTX, void (*)(X509_STORE_CTX*)> check(X509_STORE_CTX_new(),
                                                                         X509_STORE_CTX_free);
  X509_STORE_CTX_init(check.get(), store.get(), certificate.get(), nullptr);
  X509_STORE_CTX_set_default(check.get(), "ssl_server");
  EXPECT_EQ(X509_verify_cert(check.get()), 1)
      << X509_verify_cert_error_string(X509_STORE_CTX_get_error(check.get()));

  // And the service can use it.
  const Service_Process service(
      {"",
       {"--tls-listen", "127.0.0.1:0", "--certificate", folder + "/certificate.pem",
        "--private-key", folder + "/key.pem"}});
}

TEST(Make_Certificate, never_overwrites) {
  const Temp_Directory directory;
  ASSERT_EQ(run_service({"--make-certificate", directory.path()}).exit_code, 0);
  const std::string key = content_of(directory.path("key.pem"));
  const std::string certificate = content_of(directory.path("certificate.pem"));
  const Service_Result again = run_service({"--make-certificate", directory.path()});
  EXPECT_EQ(again.exit_code, 1);
  EXPECT_THAT(again.messages, HasSubstr("key.pem': File exists"));
  EXPECT_EQ(content_of(directory.path("key.pem")), key);
  EXPECT_EQ(content_of(directory.path("certificate.pem")), certificate);
}

TEST(Make_Certificate, leaves_no_key_without_its_certificate) {
  const Temp_Directory directory;
  directory.write("certificate.pem", "somebody else's");
  EXPECT_EQ(run_service({"--make-certificate", directory.path()}).exit_code, 1);
  EXPECT_EQ(content_of(directory.path("certificate.pem")), "somebody else's");
  struct stat status {};
  EXPECT_NE(stat(directory.path("key.pem").c_str(), &status), 0);
  EXPECT_EQ(run_service({"--make-certificate", directory.path("certificate.pem/x")}).exit_code, 1);
}

}  // namespace
}  // namespace zqpool::test
