#pragma once

#include <string>

#include "utils/support/export.h"

/// The module identity of a backup agent: "feature.type.system". A plain value.
struct ZQPOOL_EXPORT Catalog_Agent {
  std::string featrue;  // Misspelt on purpose: a public name.
  std::string type;
  std::string system;

  /// Trims `agent`, converts it to lower case and splits it at its last two dots. Returns false,
  /// with the members unchanged, if it is not an identity. Throws only std::bad_alloc.
  bool parse(const std::string& agent);

  /// Returns the identity as text; "" if one of its parts is empty.
  std::string generate() const;
};
