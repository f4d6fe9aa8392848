#include "service/api/scenario.h"

#include <SQLiteCpp/Exception.h>
#include <sqlite3.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>

#include "service/api/text.h"

namespace zqpool::service {

using json_spirit::Value;

std::string identity_by_uuid(const Object& entry) {
  return lower_case(json_spirit::object_get_str_or_throw(entry, "uuid"));
}

Object Scenario::load(Connection& db, const Object& document, bool replace) const {
  Request_Fields fields(document, "");
  fields.optional_text("comment");
  for (const Scenario_Section& section : sections_)
    fields.optional_array(section.name);
  fields.finish();  // before anything is changed

  if (replace) {
    for (auto it = sections_.rbegin(); it != sections_.rend(); ++it)
      it->clear(db);
  }
  Object loaded;
  for (const Scenario_Section& section : sections_) {
    std::set<std::string> identities;
    std::int64_t number = 0;
    for (Request_Fields& entry : fields.optional_objects(section.name)) {
      const std::string place = section.name + '[' + std::to_string(number) + ']';
      try {
        section.load(db, entry);
      } catch (const Request_Error& error) {
        throw placed(error, place);
      } catch (const SQLite::Exception& error) {
        if (error.getErrorCode() != SQLITE_CONSTRAINT) throw;
        throw Request_Error(422, place + ": contradicts another entry: " + error.what());
      }
      entry.finish();
      if (!identities.insert(section.identity(entry.whole())).second) {
        throw Request_Error(422, place + ": is given twice");
      }
      ++number;
    }
    loaded.emplace(section.name, number);
  }
  return loaded;
}

Object Scenario::dump(Connection& db) const {
  Object out;
  for (const Scenario_Section& section : sections_) {
    out.emplace(section.name, section.dump(db));
  }
  return out;
}

Object read_scenario(const std::string& file) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(std::fopen(file.c_str(), "rb"),
                                                           std::fclose);
  std::string text;
  std::array<char, 65536> piece{};
  while (in) {
    const std::size_t count = std::fread(piece.data(), 1, piece.size(), in.get());
    if (count == 0) break;
    text.append(piece.data(), count);
  }
  if (!in || std::ferror(in.get()) != 0) {
    throw Request_Error(400, "cannot read it: " + std::string(std::strerror(errno)));
  }
  Value value;
  std::string why;
  if (!json_spirit::read(text, value, why)) throw Request_Error(400, "is not JSON: " + why);
  if (value.type() != json_spirit::obj_type) throw Request_Error(400, "must hold an object");
  return std::move(value.get_obj());
}

}  // namespace zqpool::service
