#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"

namespace zqpool::cli {

enum class Output_Format { table, json, tsv };

/// "table", "json" or "tsv"; throws Usage_Error for anything else.
Output_Format parse_output_format(const std::string& text);

/// One object that the user asked for, with the name by which it was asked for.
struct Record {
  std::string name;
  Object object;
};

/// Records in the user's format:
///  - json: one compact JSON document a line, the record as the library gave it;
///  - tsv: NAME, KEY and VALUE of one member a line, without a header. Members of objects and
///    elements of arrays get a key of their own ("devices.0.url"; a dot or backslash within a
///    member's name has a backslash before it), null is \N, escapes are those of tsv_field();
///  - table: a single record one member a line, several one record a line; with `width` not 0,
///    records whose lines would be wider than that are shown like single ones.
std::string render(const std::vector<Record>& records, Output_Format format, std::size_t width);

}  // namespace zqpool::cli
