#include "service/api/paths.h"

#include <algorithm>

namespace zqpool::service {

namespace {

constexpr std::size_t max_size = 4096;  // of a path or URL: each directory above is looked up

/// Where the path of a URL begins: after its host.
std::size_t url_path_start(const std::string& url) {
  const std::size_t scheme = url.find("://");
  if (scheme == std::string::npos) return std::string::npos;
  return std::min(url.find('/', scheme + 3), url.size());
}

}  // namespace

std::string tidy_path(const std::string& path) {
  std::string out;
  for (const char c : path) {
    if (c != '/' || out.empty() || out.back() != '/') out += c;
  }
  if (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

std::string read_path(Request_Fields& fields, const std::string& key) {
  std::string path = tidy_path(fields.text(key));
  if (path.size() > max_size) fields.refuse(key, "is longer than 4096 bytes");
  const std::string closed = path + '/';
  if (closed.find("/../") != std::string::npos || closed.rfind("../", 0) == 0) {
    fields.refuse(key, "must not contain '..'");
  }
  return path;
}

std::string parent_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || path == "/") return "";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string tidy_url(std::string url) {
  const std::size_t start = url_path_start(url);
  if (start == std::string::npos) return url;
  const std::size_t least = start > 0 && url[start - 1] == '/' ? start + 1 : start;
  while (url.size() > least && url.back() == '/')
    url.pop_back();
  return url;
}

std::string url_above(const std::string& url) {
  const std::size_t slash = url.rfind('/');
  if (slash == std::string::npos || slash < url_path_start(url)) return "";
  std::string above = tidy_url(url.substr(0, slash + 1));
  return above == url ? "" : above;
}

std::string read_any_url(Request_Fields& fields, const std::string& key) {
  std::string url = tidy_url(fields.text(key));
  if (url.size() > max_size) fields.refuse(key, "is longer than 4096 bytes");
  return url;
}

std::string read_url(Request_Fields& fields, const std::string& key) {
  std::string url = read_any_url(fields, key);
  const std::size_t scheme = url.find("://");
  if (scheme == std::string::npos || scheme == 0) fields.refuse(key, "is not a URL");
  if (url.substr(0, url_path_start(url)).find('@', scheme) != std::string::npos) {
    fields.refuse(key, "must not carry a user or password");
  }
  return url;
}

}  // namespace zqpool::service
