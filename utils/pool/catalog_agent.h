#pragma once

#include <string>

#include "utils/support/export.h"

/// The module identity of a backup agent: "feature.type.system". A plain value.
struct ZQPOOL_EXPORT Catalog_Agent {
  std::string featrue;  // Spelt so in the public interface.
  std::string type;
  std::string system;

  /// Splits `agent` at its last two dots, without surrounding blanks and in lower case. Returns
  /// false, with the members unchanged, if it is no identity. Throws only std::bad_alloc.
  bool parse(const std::string& agent);

  /// Returns the identity as text; "" if one of its parts is empty.
  std::string generate() const;
};
