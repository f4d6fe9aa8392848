#include "platform/host/uuid.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <locale>

void uuid_string(std::string& out, bool upper_case) {
  // From the system each time: a generator's state would be the same on both sides of a fork.
  out = boost::uuids::to_string(boost::uuids::random_generator_pure()());
  if (upper_case) boost::algorithm::to_upper(out, std::locale::classic());
}
