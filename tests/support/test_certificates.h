#pragma once

#include <string>

#include "tests/support/temp_directory.h"

namespace zqpool::test {

/// A certificate with its key, as PEM texts and as files.
struct Identity {
  std::string certificate;
  std::string key;
  std::string certificate_file;
  std::string key_file;
};

/// Certificates (EC P-256) made when first asked for, once per process. The good ones are for
/// 127.0.0.1, ::1, localhost and pool.test, valid from an hour ago for a day.
class Test_Certificates {
 public:
  static const Test_Certificates& instance();

  Identity server;         ///< good, signed by the CA
  Identity other_host;     ///< signed by the CA, but for other.test and 127.0.0.9
  Identity expired;        ///< signed by the CA, ended an hour ago
  Identity not_yet_valid;  ///< signed by the CA, begins in an hour
  Identity self_signed;    ///< good, but signed by itself
  Identity foreign;        ///< good, signed by the foreign CA
  Identity client;         ///< for a client, subject "zqpool test client", signed by the CA

  std::string ca;  ///< the CA's certificate, PEM
  std::string ca_file;
  std::string foreign_ca_file;
  std::string ca_directory;  ///< hashed directory that holds the CA

 private:
  Test_Certificates();

  Temp_Directory directory_;
};

}  // namespace zqpool::test
