#pragma once

#include <boost/regex.hpp>
#include <stdexcept>
#include <string>

namespace zqpool::detail {

/// boost::regex_match() for a text from outside: where matching a hostile text would take too
/// long, Boost gives up with an exception, and that is no match.
inline bool matches(const std::string& text, boost::smatch& match, const boost::regex& expression) {
  try {
    return boost::regex_match(text, match, expression);
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace zqpool::detail
