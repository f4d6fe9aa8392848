#pragma once

#include <string>

#include "platform/export.h"

/// Sets `out` to a new random UUID (version 4) with hyphens, in lower case unless `upper_case`.
/// Parent and child get different ones after a fork. Throws std::runtime_error if the system has no
/// random numbers. Thread-safe.
ZQ_EXPORT void uuid_string(std::string& out, bool upper_case);
