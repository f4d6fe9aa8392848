// Paths and module identities come from catalogs and command lines. Splitting one must never throw
// or hang, and must give parts of the text.

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "fuzz/quiet_log.h"
#include "utils/pool/catalog_agent.h"
#include "utils/pool/utils.h"

namespace {

void check_paths(const std::string& text) {
  std::string uri, id, lun, prefix;
  if (parse_http_uri(text, &uri, &id, &prefix)) {
    check(text.compare(1, uri.size(), uri) == 0);
    check(!id.empty() && uri.compare(uri.size() - id.size(), id.size(), id) == 0);
    check(prefix.empty() || text == "/" + uri + "/" + prefix);
  }
  uri.clear();
  prefix.clear();
  if (parse_lanfree_uri(text, &uri, &id, &lun, &prefix)) {
    check(uri == id + "/zq" || uri == id + "/" + lun + "/zq");
    check(prefix.empty() || text == "/" + uri + "/" + prefix);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = (quiet_log(), true);
  if (!prepared) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);
  check_paths(text);
  Catalog_Agent agent;
  // generate() ends a part at a zero byte, so such an identity is not written back whole.
  if (text.find('\0') == std::string::npos && agent.parse(text)) {
    Catalog_Agent again;
    check(again.parse(agent.generate()) && again.generate() == agent.generate());
  }
  return 0;
}
