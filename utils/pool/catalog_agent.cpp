#include "utils/pool/catalog_agent.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <utility>

#include "utils/support/regex_match.h"
#include "utils/support/string_sprintf.h"

namespace {

const boost::regex& AGENT_MODULE_RE() {
  static const boost::regex expression(R"(^\s*(\S+)\.(\S+)\.(\S+)\s*$)");
  return expression;
}

}  // namespace

bool Catalog_Agent::parse(const std::string& agent) {
  boost::smatch match;
  if (!zqpool::detail::matches(agent, match, AGENT_MODULE_RE())) return false;
  // Copied first: `agent` may be one of the members.
  std::string parts[] = {match[1], match[2], match[3]};
  for (std::string& part : parts)
    boost::to_lower(part);
  featrue = std::move(parts[0]);
  type = std::move(parts[1]);
  system = std::move(parts[2]);
  return true;
}

std::string Catalog_Agent::generate() const {
  if (featrue.empty() || type.empty() || system.empty()) return {};
  return string_sprintf("%s.%s.%s", featrue.c_str(), type.c_str(), system.c_str());
}
