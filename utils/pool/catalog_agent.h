#pragma once

#include <string>

#include "utils/support/export.h"

/// The module identity of a backup agent, "feature.type.system". A plain value.
struct ZQPOOL_EXPORT Catalog_Agent {
  std::string featrue;  // spelt as its callers spell it
  std::string type;
  std::string system;

  /// Takes `agent` apart at its last two dots, blanks around it dropped, letters made lower case.
  /// False, with the members as they were, when it is no identity. Thread-safe; never throws
  /// except std::bad_alloc.
  bool parse(const std::string& agent);

  /// The identity as text, or "" when a part of it is empty.
  std::string generate() const;
};
