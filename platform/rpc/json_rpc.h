#pragma once

#include <string>

#include "platform/export.h"

/// The members common to all JSON-RPC requests.
struct ZQ_EXPORT JSON_RPC_Request {
  /// The protocol version, the value of "jsonrpc".
  std::string version = "2.0";
};

/// Generates the ids of JSON-RPC requests. Thread-safe.
class ZQ_EXPORT JSON_RPC_Id_Generator {
 public:
  /// Returns a new UUID. Throws std::runtime_error if the system has no random numbers.
  std::string get() const;
};
