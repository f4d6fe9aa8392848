#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/export.h"

enum HTTP_Method {
  HTTP_NO_METHOD = -1,
  HTTP_METHOD_CONNECT = 0,
  HTTP_METHOD_COPY = 1,
  HTTP_METHOD_DELETE = 2,
  HTTP_METHOD_GET = 3,
  HTTP_METHOD_HEAD = 4,
  HTTP_METHOD_MKCOL = 5,
  HTTP_METHOD_MOVE = 6,
  HTTP_METHOD_OPTIONS = 7,
  HTTP_METHOD_POST = 8,
  HTTP_METHOD_PUT = 9,
  HTTP_METHOD_TRACE = 10,
  NUM_HTTP_METHOD_STRINGS = 11
};

/// Returns the method's name ("GET"), or "" for an unknown method.
ZQ_EXPORT const char* http_method_name(int method) noexcept;

/// Header ids: standard headers from 0, extension headers from HTTP_HEAD_X_ACCESS_KEY (48).
enum HTTP_Head {
  HTTP_HEAD_ACCEPT = 0,
  HTTP_HEAD_ACCEPT_CHARSET,
  HTTP_HEAD_ACCEPT_ENCODING,
  HTTP_HEAD_ACCEPT_LANGUAGE,
  HTTP_HEAD_ACCEPT_RANGES,
  HTTP_HEAD_AGE,
  HTTP_HEAD_ALLOW,
  HTTP_HEAD_AUTHORIZATION,
  HTTP_HEAD_CACHE_CONTROL,
  HTTP_HEAD_CONNECTION,
  HTTP_HEAD_CONTENT_DISPOSITION,
  HTTP_HEAD_CONTENT_ENCODING,
  HTTP_HEAD_CONTENT_LANGUAGE,
  HTTP_HEAD_CONTENT_LENGTH,
  HTTP_HEAD_CONTENT_LOCATION,
  HTTP_HEAD_CONTENT_RANGE,
  HTTP_HEAD_CONTENT_TYPE,
  HTTP_HEAD_COOKIE,
  HTTP_HEAD_DATE,
  HTTP_HEAD_ETAG,
  HTTP_HEAD_EXPECT,
  HTTP_HEAD_EXPIRES,
  HTTP_HEAD_FORWARDED,
  HTTP_HEAD_FROM,
  HTTP_HEAD_HOST,
  HTTP_HEAD_IF_MATCH,
  HTTP_HEAD_IF_MODIFIED_SINCE,
  HTTP_HEAD_IF_NONE_MATCH,
  HTTP_HEAD_IF_RANGE,
  HTTP_HEAD_IF_UNMODIFIED_SINCE,
  HTTP_HEAD_LAST_MODIFIED,
  HTTP_HEAD_LINK,
  HTTP_HEAD_LOCATION,
  HTTP_HEAD_MAX_FORWARDS,
  HTTP_HEAD_ORIGIN,
  HTTP_HEAD_PRAGMA,
  HTTP_HEAD_RANGE,
  HTTP_HEAD_REFERER,
  HTTP_HEAD_RETRY_AFTER,
  HTTP_HEAD_SERVER,
  HTTP_HEAD_SET_COOKIE,
  HTTP_HEAD_TE,
  HTTP_HEAD_TRAILER,
  HTTP_HEAD_TRANSFER_ENCODING,
  HTTP_HEAD_UPGRADE,
  HTTP_HEAD_USER_AGENT,
  HTTP_HEAD_VARY,
  HTTP_HEAD_WWW_AUTHENTICATE,
  HTTP_HEAD_X_ACCESS_KEY = 48,
  HTTP_HEAD_X_REQUEST_ID = 49,
  NUM_HTTP_HEAD_STRINGS = 50
};

/// Returns the header's name ("X-Access-Key"), or "" for an unknown id.
ZQ_EXPORT const char* http_head_name(int id) noexcept;

/// A small collection of headers, in insertion order. Not thread-safe.
class ZQ_EXPORT HTTP_Headers {
 public:
  /// Sets header `id` to `text`. An existing value is replaced in its place if `replace`, else
  /// kept. Does nothing for an unknown id or a null text. A header whose text is empty is not sent.
  void put(int id, const char* text, bool replace);
  /// Returns the value, or null if the header was not put.
  const char* get(int id) const noexcept;
  void clear() noexcept { fields_.clear(); }

  using Fields = std::vector<std::pair<int, std::string>>;
  const Fields& fields() const noexcept { return fields_; }

 private:
  Fields fields_;
};

/// The headers of a request or response.
class ZQ_EXPORT CGI_Base {
 public:
  HTTP_Headers& headers() noexcept { return headers_; }
  const HTTP_Headers& headers() const noexcept { return headers_; }

 protected:
  CGI_Base() = default;
  ~CGI_Base() = default;
  CGI_Base(const CGI_Base&) = default;
  CGI_Base(CGI_Base&&) = default;
  CGI_Base& operator=(const CGI_Base&) = default;
  CGI_Base& operator=(CGI_Base&&) = default;

 private:
  HTTP_Headers headers_;
};

/// Request line and headers. Can be sent any number of times.
class ZQ_EXPORT HTTP_Request : public CGI_Base {
 public:
  /// `method` is an HTTP_Method, `path` an absolute path without a query; null counts as "/".
  /// `keep_alive` asks an HTTP_Session to keep its connection; REST clients ignore it.
  HTTP_Request(int method, const char* path, bool keep_alive);

  /// Sets the query, without "?"; null or "" for none. What HTTP forbids in a request target
  /// (blanks, control bytes, bytes above 0x7e, "<>\^`{|} and #) is percent-encoded when the request
  /// is sent; everything else is sent as it is.
  void query_string(const char* query);

  int method() const noexcept { return method_; }
  const std::string& path() const noexcept { return path_; }
  const std::string& query() const noexcept { return query_; }
  bool keep_alive() const noexcept { return keep_alive_; }

 private:
  int method_;
  bool keep_alive_;
  std::string path_;
  std::string query_;
};

class ZQ_EXPORT CGI_Response : public CGI_Base {
 public:
  /// The HTTP status; 0 if no response was received.
  unsigned status() const noexcept { return status_; }
  void status(unsigned status) noexcept { status_ = status; }

 private:
  unsigned status_ = 0;
};

class ZQ_EXPORT HTTP_Response : public CGI_Response {};
