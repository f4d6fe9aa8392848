#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/command/command_context.h"
#include "cli/command/command_line.h"
#include "cli/command/raw_request.h"
#include "utils/pool/image_pool_manager.h"
#include "utils/pool/scsi_target_manager.h"

namespace zqpool::cli {

/// The pool that a verb works on, and objects in it.
struct Pool_Arguments {
  std::string uuid;
  std::vector<std::string> names;  ///< LUNs, snapshots or filesystems
  bool yes = false;
  // For exports of SCSI pools:
  std::string type;
  std::string target;
  std::vector<std::string> initiators;

  const char* type_or_null() const { return type.empty() ? nullptr : type.c_str(); }
  const char* target_or_null() const { return target.empty() ? nullptr : target.c_str(); }
};

/// Adds the options that say who gets access to an export.
Verb& add_initiators(Verb& verb, Pool_Arguments& pool);
/// The same, and those for transport and target.
Verb& add_export(Verb& verb, Pool_Arguments& pool);

/// The library's manager of the pool. Each thread needs its own.
template <typename Manager>
Manager open_pool(const Target& target, const Pool_Arguments& pool);
template <>
inline SCSI_Target_Manager open_pool(const Target& target, const Pool_Arguments& pool) {
  return {target.host,       target.port, target.ssl,
          target.access_key, pool.uuid,   pool.initiators.empty() ? nullptr : &pool.initiators};
}
template <>
inline Image_Pool_Manager open_pool(const Target& target, const Pool_Arguments& pool) {
  return {target.host, target.port, target.ssl, target.access_key, pool.uuid};
}

/// The policy of changes that may grant access to a SCSI pool.
Call_Policy change_of_access();

/// The arguments with "-" expanded to the lines of standard input. Throws Usage_Error for names
/// with special characters of a query, because the library does not encode them.
std::vector<std::string> expand_names(const std::vector<std::string>& arguments);
void check_names(const std::vector<std::string>& names);

/// The names to change. If the change destroys something, asks first; `destroying` ("Delete") and
/// `kind` ("LUNs") form the question.
std::vector<std::string> names_to_change(const Command_Context& context, const Pool_Arguments& pool,
                                         const char* destroying, const char* kind);

/// A noun whose verbs work on a pool. They share their arguments, which have a member `pool`.
template <typename Arguments>
class Pool_Noun {
 public:
  explicit Pool_Noun(Noun noun, const Arguments& arguments = {})
      : noun_(noun), arguments_(std::make_shared<Arguments>(arguments)) {}

  Arguments& arguments() { return *arguments_; }

  /// Adds a verb with the pool as its first argument.
  Verb verb(const char* name, const std::string& help, const std::vector<std::string>& examples,
            Exit_Code (*action)(Command_Context&, const Arguments&)) {
    return noun_.verb(name, help, examples, action, arguments_)
        .argument("POOL_UUID", arguments_->pool.uuid, "The pool");
  }

 private:
  Noun noun_;
  std::shared_ptr<Arguments> arguments_;
};

/// Prints a record of each name. `work(manager, name, record)` returns an Outcome.
template <typename Manager, typename Work>
Exit_Code show_each(Command_Context& context, const Pool_Arguments& pool, const Work& work) {
  check_names({pool.uuid});
  return context.show(expand_names(pool.names), [&](const std::string& name, Object& record) {
    Manager manager = open_pool<Manager>(context.target(), pool);
    return work(manager, name, record);
  });
}

/// Changes each name. `change(manager, name)` returns the bool of the library.
template <typename Manager, typename Change>
Exit_Code change_each(Command_Context& context, const Pool_Arguments& pool, const Change& change,
                      const char* destroying = nullptr, const char* kind = nullptr) {
  check_names({pool.uuid});
  return context.change(
      names_to_change(context, pool, destroying, kind), [&](const std::string& name, Object&) {
        Manager manager = open_pool<Manager>(context.target(), pool);
        return context.call(change_of_access(), [&] { return change(manager, name); });
      });
}

}  // namespace zqpool::cli
