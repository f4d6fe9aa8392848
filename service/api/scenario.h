#pragma once

#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "service/api/request_fields.h"
#include "service/store/database.h"

namespace zqpool::service {

/// One list of a scenario document: "pools", "devices"... Each resource family brings its own.
struct Scenario_Section {
  std::string name;
  void (*clear)(Connection&);
  /// Writes one entry, in the place of one of the same identity. Throws Request_Error.
  void (*load)(Connection&, Request_Fields&);
  /// What tells the entry from others of the list, so that none is given twice.
  std::string (*identity)(const Object&);
  /// All entries, such that load() takes them.
  Array (*dump)(Connection&);
};

/// The identity of entries that have a member "uuid".
std::string identity_by_uuid(const Object& entry);

/// Reads and writes the whole state as one JSON document.
class Scenario {
 public:
  /// Sections are loaded in the order in which they are added, and cleared in the other one.
  void add(Scenario_Section section) { sections_.push_back(std::move(section)); }

  /// Loads a document. With `replace` all that was there goes first, otherwise entries of the same
  /// identity are replaced and the others stay. Throws Request_Error, whose text begins with the
  /// place
  /// ("devices[3].url: ..."); the caller then rolls back. Returns how many entries were loaded.
  Object load(Connection& db, const Object& document, bool replace) const;
  Object dump(Connection& db) const;

 private:
  std::vector<Scenario_Section> sections_;
};

/// Reads a scenario document from a file. Throws Request_Error with a text that names what is
/// wrong.
Object read_scenario(const std::string& file);

}  // namespace zqpool::service
