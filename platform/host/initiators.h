#pragma once

#include <string>

#include "platform/export.h"

/// Puts `prefix` before "/etc" and "/sys" wherever the identity of the host is read from there, so
/// that a container or a test can point it at a folder; "" (the beginning) for none. Thread-safe.
ZQ_EXPORT void set_host_root(const std::string& prefix);
