#pragma once

#include <string>

#include "platform/net/uri.h"
#include "utils/support/log.h"

namespace zqpool::detail {

/// Parses `url` without logging. On failure `uri` is unchanged.
inline bool parse_url_silently(const std::string& url, URI& uri) {
  // The parser would ignore what follows a zero byte.
  return url.find('\0') == std::string::npos && URI_Parser().parse(url.c_str(), uri);
}

/// The same, but logs a failure.
inline bool parse_url(const Source_Location& location, const std::string& url, URI& uri) {
  if (parse_url_silently(url, uri)) return true;
  return ZQ_LOG_AT(location, LM_ERROR, "Failed to parse url: %s\n", url.c_str());
}

}  // namespace zqpool::detail
