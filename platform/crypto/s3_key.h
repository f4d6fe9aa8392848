#pragma once

#include <string>

#include "platform/export.h"

/// How the secret keys of object stores travel in pool descriptions: sealed with AES-256-GCM, bound
/// to the URL of their storage, as Base64 of nonce (12 bytes), ciphertext and tag (16 bytes). The
/// sealing key comes from a secret that services and hosts share, by HKDF-SHA-256.
///
/// All three may be called on any number of threads at once.

/// Sets the process's secret; "" takes it away. Only the key that comes from it is kept, and is
/// wiped when another one is set.
ZQ_EXPORT void set_s3_key_secret(const std::string& shared_secret);

/// Replaces a sealed secret key by its clear form. False, and `secret` untouched, when the process
/// has no secret, `url` is null or not the one (byte by byte) that the key was sealed with, or
/// `secret` is not what encrypt_s3_key() made under the same secret. Logs nothing.
ZQ_EXPORT bool decrypt_s3_key(const char* url, std::string& secret);

/// The inverse, for services; gives another text each time. False, and `secret` untouched, when the
/// process has no secret, `url` is null or the system gives no random numbers.
ZQ_EXPORT bool encrypt_s3_key(const char* url, std::string& secret);
