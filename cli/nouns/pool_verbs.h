#pragma once

#include <CLI/App.hpp>

#include <functional>
#include <string>
#include <vector>

#include "cli/command/command_context.h"
#include "utils/pool/scsi_target_manager.h"

namespace zqpool::cli {

/// The SCSI pool that a command is about, and how this host reaches what is exported from it.
struct SCSI_Pool {
  std::string uuid;
  std::string type;
  std::string target;
  std::vector<std::string> initiators;

  /// The pool, a first argument.
  void add_to(CLI::App& verb);
  /// Who is let in.
  void add_access_to(CLI::App& verb);
  /// Over which transport and target.
  void add_way_to(CLI::App& verb);

  const char* type_or_null() const { return type.empty() ? nullptr : type.c_str(); }
  const char* target_or_null() const { return target.empty() ? nullptr : target.c_str(); }

  /// Calls one operation on the pool; the rest as for Session::call().
  using Operation = std::function<bool(SCSI_Target_Manager&)>;
  Outcome call(Session& session, const Target& service, const Way& way,
               const Operation& operation) const;
};

/// Ends the command with a Usage_Error when the service would take one of `names`, which go into
/// its queries as they stand, for something else.
void check_names(const std::vector<std::string>& names);

/// check_names() of expand_objects().
std::vector<std::string> expand_names(const std::vector<std::string>& arguments);

}  // namespace zqpool::cli
