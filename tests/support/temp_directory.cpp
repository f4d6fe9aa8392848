#include "tests/support/temp_directory.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace zqpool::test {

Temp_Directory::Temp_Directory() {
  std::string name = (std::filesystem::temp_directory_path() / "zqpool-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
  path_ = name;
}

Temp_Directory::~Temp_Directory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string Temp_Directory::write(const std::string& name, const std::string& content) const {
  const std::string file = path(name);
  std::ofstream out(file, std::ios::binary);
  out << content;
  out.close();
  if (!out) throw std::runtime_error("cannot write " + file);
  chmod(file.c_str(), S_IRUSR | S_IWUSR);
  return file;
}

}  // namespace zqpool::test
