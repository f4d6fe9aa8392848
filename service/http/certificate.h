#pragma once

#include <string>

namespace zqpool::service {

/// Writes a self-signed EC P-256 certificate for localhost, 127.0.0.1 and ::1, valid for 825 days,
/// to `certificate.pem` and its key to `key.pem` (mode 0600). Creates the directory if needed;
/// never overwrites a file. Clients use the certificate as their CA. Throws std::runtime_error.
void make_certificate(const std::string& directory);

}  // namespace zqpool::service
