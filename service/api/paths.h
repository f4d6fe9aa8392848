#pragma once

#include <string>

#include "service/api/request_fields.h"

namespace zqpool::service {

// Paths inside a pool and URLs of devices in normal form ("tidy"), so that equal places have equal
// texts.

/// Merges repeated slashes and drops one at the end.
std::string tidy_path(const std::string& path);

/// The path member of a body or scenario entry, tidy. Throws Request_Error as Request_Fields does.
std::string read_path(Request_Fields& fields, const std::string& key);

/// The directory above, "" when there is none.
std::string parent_of(const std::string& path);

/// Drops slashes at the end; "file:///", which has no host, keeps one.
std::string tidy_url(std::string url);

/// The URL one segment above a tidy one, "" when there is none.
std::string url_above(const std::string& url);

/// The URL to look up, tidy. Takes any text up to 4096 bytes. Throws Request_Error as
/// Request_Fields does.
std::string read_any_url(Request_Fields& fields, const std::string& key);

/// The URL member of a scenario entry, tidy and without a password. Throws Request_Error as
/// Request_Fields does.
std::string read_url(Request_Fields& fields, const std::string& key);

}  // namespace zqpool::service
