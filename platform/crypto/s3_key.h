#pragma once

#include <string>

#include "platform/export.h"

/// Pool descriptions carry the secret keys of object stores encrypted with AES-256-GCM and bound to
/// the URL of the storage: Base64 of nonce (12 bytes), ciphertext and tag (16 bytes). The
/// encryption key is derived with HKDF-SHA-256 from a secret that services and hosts share.
///
/// All functions are thread-safe.

/// Sets the shared secret; "" for none. Only the key derived from it is kept, and wiped when
/// another secret is set.
ZQ_EXPORT void set_s3_key_secret(const std::string& shared_secret);

/// Decrypts `secret` in place. Returns false and leaves it alone if no shared secret is set, if
/// `url` is null or differs from the one it was encrypted for, or if it was not encrypted under the
/// same shared secret. Logs nothing.
ZQ_EXPORT bool decrypt_s3_key(const char* url, std::string& secret);

/// Encrypts `secret` in place, for services; the result differs each time. Returns false and leaves
/// it alone if no shared secret is set, `url` is null or the system has no random numbers.
ZQ_EXPORT bool encrypt_s3_key(const char* url, std::string& secret);
