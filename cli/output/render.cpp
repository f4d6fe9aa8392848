#include "cli/output/render.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <sstream>
#include <string_view>
#include <utility>

#include "cli/output/table.h"
#include "cli/support/exit_code.h"
#include "cli/support/printable.h"
#include "cli/support/size.h"
#include "platform/json/json_dump.h"

namespace zqpool::cli {

namespace {

using json_spirit::Value;

/// Identity and size come first, the rest by name.
bool comes_before(const std::string& a, const std::string& b) {
  static constexpr std::array<std::string_view, 8> first = {"uuid",  "name", "url",  "type",
                                                            "state", "size", "used", "free"};
  const auto rank = [](const std::string& key) {
    return std::find(first.begin(), first.end(), std::string_view(key));
  };
  return rank(a) != rank(b) ? rank(a) < rank(b) : a < b;
}

bool counts_bytes(std::string_view key) {
  static constexpr std::array<std::string_view, 5> words = {"size", "capacity", "used", "free",
                                                            "available"};
  if (key.substr(0, 5) == "files") return false;  // a number of files
  return std::any_of(words.begin(), words.end(), [key](std::string_view word) {
    return key.size() >= word.size() && key.substr(key.size() - word.size()) == word;
  });
}

/// A value as one cell of a table.
std::string cell(const std::string& key, const Value& value) {
  switch (value.type()) {
    case json_spirit::null_type:
      return "-";
    case json_spirit::str_type:
      return value.get_str().empty() ? "-" : printable(value.get_str());
    case json_spirit::int_type:
      if (counts_bytes(key) && (value.is_uint64() || value.get_int64() >= 1024)) {
        const std::uint64_t bytes = value.get_uint64();
        return std::to_string(bytes) + " (" + readable_size(bytes) + ')';
      }
      return JSON_Dump(value, false).str();
    default:
      return printable(JSON_Dump(value, false).str());
  }
}

bool all_objects(const Array& array) {
  return !array.empty() && std::all_of(array.begin(), array.end(), [](const Value& element) {
    return element.type() == json_spirit::obj_type;
  });
}

std::string list_cell(const Array& array) {
  std::string text;
  for (const Value& element : array)
    text += (text.empty() ? "" : ", ") + cell("", element);
  return text.empty() ? "-" : text;
}

/// The members of an object and of the objects within it: plain ones as cells, and lists of
/// objects.
struct Flat_Object {
  std::vector<std::pair<std::string, std::string>> cells;
  std::vector<std::pair<std::string, const Array*>> lists;
};

void collect(const std::string& prefix, const Object& object, Flat_Object& flat) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : object)
    keys.push_back(key);
  std::sort(keys.begin(), keys.end(), comes_before);
  for (const std::string& key : keys) {
    const Value& value = object.at(key);
    const std::string name = prefix + printable(key);
    if (value.type() == json_spirit::obj_type) {
      if (value.get_obj().empty()) {
        flat.cells.emplace_back(name, "-");
      } else {
        collect(name + '.', value.get_obj(), flat);
      }
    } else if (value.type() != json_spirit::array_type) {
      flat.cells.emplace_back(name, cell(key, value));
    } else if (all_objects(value.get_array())) {
      flat.lists.emplace_back(name, &value.get_array());
    } else {
      flat.cells.emplace_back(name, list_cell(value.get_array()));
    }
  }
}

std::string upper_case(std::string text) {
  for (char& c : text)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

bool fits(const std::string& lines, std::size_t width) {
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) {
    if (display_width(line) > width) return false;
  }
  return true;
}

std::string object_text(const Object& object, std::size_t indent, std::size_t width);

/// One object per line, with a column for each member that any of them has.
std::string rows_text(const std::vector<const Object*>& objects, std::size_t indent) {
  std::vector<std::map<std::string, std::string>> rows;
  std::vector<std::string> columns;
  for (const Object* const object : objects) {
    Flat_Object flat;
    collect("", *object, flat);
    for (const auto& [key, array] : flat.lists)
      flat.cells.emplace_back(key, list_cell(*array));
    for (const auto& [key, text] : flat.cells)
      columns.push_back(key);
    rows.emplace_back(flat.cells.begin(), flat.cells.end());
  }
  std::sort(columns.begin(), columns.end(), comes_before);
  columns.erase(std::unique(columns.begin(), columns.end()), columns.end());

  std::vector<std::string> header(columns.size());
  std::transform(columns.begin(), columns.end(), header.begin(), upper_case);
  Table table(std::move(header));
  for (const auto& row : rows) {
    std::vector<std::string> cells;
    for (const std::string& column : columns) {
      const auto found = row.find(column);
      cells.push_back(found == row.end() ? "-" : found->second);
    }
    table.add(std::move(cells));
  }
  return table.text(indent);
}

/// Several objects: one per line if the lines fit, else one after the other.
std::string objects_text(const std::vector<const Object*>& objects, std::size_t indent,
                         std::size_t width) {
  std::string rows = rows_text(objects, indent);
  if (width == 0 || fits(rows, width)) return rows;
  std::string out;
  for (const Object* const object : objects) {
    if (!out.empty()) out += '\n';
    out += object_text(*object, indent, width);
  }
  return out;
}

/// One object, one member per line.
std::string object_text(const Object& object, std::size_t indent, std::size_t width) {
  Flat_Object flat;
  collect("", object, flat);
  std::size_t widest = 0;
  for (const auto& [key, text] : flat.cells)
    widest = std::max(widest, display_width(key));
  std::string out;
  for (const auto& [key, text] : flat.cells) {
    out += std::string(indent, ' ') + key;
    out += std::string(widest - display_width(key) + 2, ' ') + text + '\n';
  }
  for (const auto& [key, array] : flat.lists) {
    std::vector<const Object*> objects;
    for (const Value& element : *array)
      objects.push_back(&element.get_obj());
    out += std::string(indent, ' ') + key + '\n' + objects_text(objects, indent + 2, width);
  }
  return out;
}

std::string table_text(const std::vector<Record>& records, std::size_t width) {
  if (records.empty()) return "";
  if (records.size() == 1) return object_text(records[0].object, 0, width);
  std::vector<const Object*> objects(records.size());
  std::transform(records.begin(), records.end(), objects.begin(),
                 [](const Record& record) { return &record.object; });
  return objects_text(objects, 0, width);
}

std::string key_part(const std::string& key) {
  std::string out;
  for (const char c : key) {
    if (c == '.' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

/// Appends a line for each plain value in `value`.
void append_tsv(const std::string& name, const std::string& key, const Value& value,
                std::string& out) {
  const std::string start = key.empty() ? "" : key + '.';
  if (value.type() == json_spirit::obj_type && !value.get_obj().empty()) {
    for (const auto& [member, below] : value.get_obj()) {
      append_tsv(name, start + key_part(member), below, out);
    }
    return;
  }
  if (value.type() == json_spirit::array_type && !value.get_array().empty()) {
    std::size_t index = 0;
    for (const Value& below : value.get_array()) {
      append_tsv(name, start + std::to_string(index++), below, out);
    }
    return;
  }
  out += tsv_field(name) + '\t' + tsv_field(key) + '\t';
  if (value.is_null()) {
    out += "\\N";
  } else if (value.type() == json_spirit::str_type) {
    out += tsv_field(value.get_str());
  } else {
    out += json_spirit::write(value);
  }
  out += '\n';
}

}  // namespace

Output_Format parse_output_format(const std::string& text) {
  if (text == "table") return Output_Format::table;
  if (text == "json") return Output_Format::json;
  if (text == "tsv") return Output_Format::tsv;
  throw Usage_Error("'" + text + "' is not an output format: use table, json or tsv");
}

std::string render(const std::vector<Record>& records, Output_Format format, std::size_t width) {
  if (format == Output_Format::table) return table_text(records, width);
  std::string out;
  for (const Record& record : records) {
    if (format == Output_Format::json) {
      json_spirit::write_to(record.object, out);
      out += '\n';
    } else {
      append_tsv(record.name, "", record.object, out);
    }
  }
  return out;
}

}  // namespace zqpool::cli
