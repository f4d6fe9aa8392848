#pragma once

#include <string>

namespace zqpool::service {

/// Writes `certificate.pem` and `key.pem` (mode 0600) into the directory, which is made if need be:
/// a self-signed EC P-256 certificate for localhost, 127.0.0.1 and ::1, good for 825 days, that
/// clients take as their only authority. Throws std::runtime_error; an existing key is never
/// overwritten.
void make_certificate(const std::string& directory);

}  // namespace zqpool::service
