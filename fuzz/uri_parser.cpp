// Pool descriptions hold URLs. No text may break the parser, build() must write what parses as the
// same URL, and a setter must not change other components. The input's first line is the URL, the
// second a host, the rest a path.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "fuzz/check.h"
#include "platform/net/address.h"
#include "platform/net/uri.h"

namespace {

std::string built(const URI& uri) {
  std::ostringstream out;
  uri.build(out);
  return out.str();
}

bool same_but_host_and_path(const URI& a, const URI& b) {
  return a.scheme() == b.scheme() && a.userinfo() == b.userinfo() && a.port() == b.port() &&
         a.is_ssl() == b.is_ssl() && a.query() == b.query() && a.fragment() == b.fragment();
}

// Parses what `uri` builds, which fails only for http(s) and ws(s) without a host.
bool read_back(const URI& uri, URI& again) {
  if (!URI_Parser::parse(built(uri).c_str(), again)) {
    check(uri.host().empty() && (uri.scheme().substr(0, 4) == "http" || uri.scheme()[0] == 'w'));
    return false;
  }
  check(built(again) == built(uri));
  check(again.host(true) == uri.host(true) && again.path() == uri.path());
  check(same_but_host_and_path(again, uri));
  return true;
}

void check_setters(const URI& uri, const std::string& host, const std::string& path) {
  URI again;
  for (const bool as_in_url : {false, true}) {
    URI changed = uri;
    changed.host(host, as_in_url);
    check(changed.path() == uri.path() && same_but_host_and_path(changed, uri));
    read_back(changed, again);

    changed = uri;
    changed.path(path, as_in_url);
    check(changed.host() == uri.host() && same_but_host_and_path(changed, uri));
    check(read_back(changed, again));
  }
  URI changed = uri;
  changed.port(static_cast<unsigned short>(host.size()));
  check(changed.port() == host.size() % 65536 && changed.path() == uri.path());
  check(read_back(changed, again));
  changed = uri;
  changed.ssl(!uri.is_ssl());
  check(changed.host() == uri.host() && changed.path() == uri.path());
  check(read_back(changed, again));
  changed.ssl(uri.is_ssl());
  check(built(changed) == built(uri));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  std::string text, host, path;
  std::getline(lines, text);
  std::getline(lines, host);
  std::getline(lines, path, '\0');

  URI uri;
  if (URI_Parser::parse(text.c_str(), uri)) {
    URI again;
    check(read_back(uri, again));
    check_setters(uri, host, path);
  } else {
    check(built(uri).empty());
  }
  std::string formatted = "before";
  if (ip_extended_format(host.c_str(), formatted) == -1) check(formatted == "before");
  return 0;
}
