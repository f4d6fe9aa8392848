#include "utils/pool/catalog_agent.h"

#include <boost/algorithm/string/case_conv.hpp>

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
  featrue = boost::to_lower_copy(match[1].str());
  type = boost::to_lower_copy(match[2].str());
  system = boost::to_lower_copy(match[3].str());
  return true;
}

std::string Catalog_Agent::generate() const {
  if (featrue.empty() || type.empty() || system.empty()) return {};
  return string_sprintf("%s.%s.%s", featrue.c_str(), type.c_str(), system.c_str());
}
