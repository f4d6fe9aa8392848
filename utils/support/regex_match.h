#pragma once

#include <boost/regex.hpp>
#include <stdexcept>
#include <string>

namespace zqpool::detail {

/// boost::regex_match() for untrusted text. Boost throws when matching would take too long; that
/// counts as no match.
inline bool matches(const std::string& text, boost::smatch& match, const boost::regex& expression) {
  try {
    return boost::regex_match(text, match, expression);
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace zqpool::detail
