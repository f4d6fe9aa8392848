#include "cli/support/json_file.h"

#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/support/exit_code.h"

namespace zqpool::cli {

json_spirit::Value read_document(const std::string& file) {
  std::ostringstream text;
  if (file == "-") {
    text << std::cin.rdbuf();
  } else {
    std::ifstream input(file, std::ios::binary);
    if (!input || !(text << input.rdbuf())) throw Usage_Error(file + ": it cannot be read");
  }
  json_spirit::Value document;
  std::string why;
  if (!json_spirit::read(text.str(), document, why)) {
    throw Usage_Error(file + " is not JSON: " + why);
  }
  return document;
}

}  // namespace zqpool::cli
