#pragma once

#include <string>

#include "platform/export.h"

/// Replaces `out` by a new random UUID (version 4) with hyphens, in lower case or, with
/// `upper_case`, in upper case. Thread-safe, and distinct in both processes after a fork. Throws
/// boost::uuids::entropy_error, a std::runtime_error, when the system gives no random numbers.
ZQ_EXPORT void uuid_string(std::string& out, bool upper_case);
