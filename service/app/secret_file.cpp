#include "service/app/secret_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace zqpool::service {

std::string read_secret_file(const std::string& file, const std::string& what) {
  std::ifstream in(file);
  std::string line;
  if (!in || !std::getline(in, line)) {
    throw std::runtime_error("cannot read an " + what + " from '" + file + "'");
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  const bool printable =
      std::all_of(line.begin(), line.end(), [](char c) { return c > ' ' && c < 0x7f; });
  if (line.empty() || line.size() > 1024 || !printable) {
    throw std::runtime_error("the first line of '" + file + "' is no " + what +
                             ": 1 to 1024 printable characters without blanks");
  }
  struct stat status {};
  if (::stat(file.c_str(), &status) == 0 && (status.st_mode & 077) != 0) {
    std::fprintf(stderr, "zqpoold: warning: %s file '%s' can be read by others\n", what.c_str(),
                 file.c_str());
  }
  return line;
}

}  // namespace zqpool::service
