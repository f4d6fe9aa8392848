#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"

namespace zqpool::cli {

enum class Output_Format { table, json, tsv };

/// "table", "json" or "tsv"; throws Usage_Error for anything else.
Output_Format parse_output_format(const std::string& text);

/// An object and the name by which the user asked for it.
struct Record {
  std::string name;
  Object object;
};

/// Records in an output format:
///  - json: each record as one line of compact JSON;
///  - tsv: NAME, KEY and VALUE of one member per line, without a header. Nested members and
///    elements have keys like "devices.0.url", where a dot or backslash within a name is preceded
///    by a backslash. Null is \N, escapes are those of tsv_field();
///  - table: one member per line for a single record, else one record per line. Records wider than
///    `width` (0: no limit) are shown like single ones.
std::string render(const std::vector<Record>& records, Output_Format format, std::size_t width);

}  // namespace zqpool::cli
