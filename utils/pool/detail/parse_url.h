#pragma once

#include <string>

#include "platform/net/uri.h"
#include "utils/support/log.h"

namespace zqpool::detail {

/// Takes a URL apart. False, with `uri` as it was, after a message in the name of `place`.
inline bool parse_url(const Place& place, const std::string& url, URI& uri) {
  // What follows a zero byte would be lost in silence.
  const bool whole = url.find('\0') == std::string::npos;
  return (whole && URI_Parser().parse(url.c_str(), uri)) ||
         ZQ_LOG_AT(place, LM_ERROR, "Failed to parse url: %s\n", url.c_str());
}

}  // namespace zqpool::detail
