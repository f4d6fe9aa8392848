#pragma once

#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "service/api/request_fields.h"
#include "service/store/database.h"

namespace zqpool::service {

/// One list of a scenario document: "pools", "devices"...
struct Scenario_Section {
  std::string name;
  void (*clear)(Connection&);
  /// Writes one entry, replacing one of the same identity. Throws Request_Error.
  void (*load)(Connection&, Request_Fields&);
  /// The entry's key within the list, to find entries given twice.
  std::string (*identity)(const Object&);
  /// All entries, in the form that load() reads.
  Array (*dump)(Connection&);
};

/// The identity of entries that have a member "uuid".
std::string identity_by_uuid(const Object& entry);

/// Reads and writes the whole state as one JSON document.
class Scenario {
 public:
  /// Sections are loaded in the order in which they are added, and cleared in reverse.
  void add(Scenario_Section section) { sections_.push_back(std::move(section)); }

  /// Loads a document and returns how many entries each section got. With `replace` everything is
  /// cleared first; otherwise entries of the same identity are replaced and others stay. Throws
  /// Request_Error, whose text begins with the place ("devices[3].url: ..."); the caller rolls
  /// back.
  Object load(Connection& db, const Object& document, bool replace) const;
  Object dump(Connection& db) const;

 private:
  std::vector<Scenario_Section> sections_;
};

/// Reads a scenario document from a file. Throws Request_Error when it cannot.
Object read_scenario(const std::string& file);

}  // namespace zqpool::service
