#pragma once

#include <string>

#include "platform/net/uri.h"
#include "utils/support/log.h"

namespace zqpool::detail {

/// Takes a URL apart, without a message. False leaves `uri` as it was.
inline bool parse_url_silently(const std::string& url, URI& uri) {
  // What follows a zero byte would be lost.
  return url.find('\0') == std::string::npos && URI_Parser().parse(url.c_str(), uri);
}

/// The same; false after a message for the caller at `location`.
inline bool parse_url(const Source_Location& location, const std::string& url, URI& uri) {
  if (parse_url_silently(url, uri)) return true;
  return ZQ_LOG_AT(location, LM_ERROR, "Failed to parse url: %s\n", url.c_str());
}

}  // namespace zqpool::detail
