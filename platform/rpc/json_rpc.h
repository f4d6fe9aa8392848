#pragma once

#include <string>

#include "platform/export.h"

/// What every JSON-RPC request of this product has in common.
struct ZQ_EXPORT JSON_RPC_Request {
  /// The protocol's version, for the member "jsonrpc".
  std::string version = "2.0";
};

/// Makes the identifiers of JSON-RPC requests. Thread-safe.
class ZQ_EXPORT JSON_RPC_Id_Generator {
 public:
  /// A new UUID. Throws std::runtime_error when the system gives no random numbers.
  std::string get() const;
};
