#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "service/api/message.h"

namespace zqpool::service {

/// Reads the members of one JSON object strictly. Each reader throws Request_Error, whose text
/// begins with the member's place ("devices[3].url: ..."): 400 when a member is missing or of
/// another type, 422 when its value is invalid. finish() refuses members that nobody read.
class Request_Fields {
 public:
  /// `object` must outlive this. `place` is its place in the document ("devices[3]"), "" at the
  /// top.
  Request_Fields(const Object& object, std::string place)
      : object_(object), place_(std::move(place)) {}

  std::string text(const std::string& key);         ///< not empty
  std::string needed_text(const std::string& key);  ///< may be empty
  std::string text_or(const std::string& key, const std::string& otherwise);
  std::optional<std::string> optional_text(const std::string& key);
  std::string uuid(const std::string& key);
  std::string one_of(const std::string& key, std::initializer_list<const char*> words);
  std::string one_of_or(const std::string& key, std::initializer_list<const char*> words,
                        const std::string& otherwise);
  std::int64_t count(const std::string& key);  ///< 0 or more
  std::int64_t count_or(const std::string& key, std::int64_t otherwise);
  std::optional<std::int64_t> optional_count(const std::string& key);
  std::optional<double> optional_real(const std::string& key);
  bool flag(const std::string& key);
  bool flag_or(const std::string& key, bool otherwise);
  const Array* optional_array(const std::string& key);
  const json_spirit::Value* optional_value(const std::string& key);
  /// The fields of the member's object, null when it is missing. finish() checks them, too.
  Request_Fields* optional_object(const std::string& key);
  /// The same for each element of an array of objects; none when it is missing.
  std::vector<Request_Fields>& optional_objects(const std::string& key);
  bool has(const std::string& key) const { return object_.count(key) != 0; }
  /// The object itself: all its members count as read.
  const Object& whole();

  void finish() const;
  std::string place(const std::string& key) const;
  [[noreturn]] void refuse(const std::string& key, const std::string& why,
                           unsigned status = 422) const;

 private:
  const json_spirit::Value* find(const std::string& key, json_spirit::Value_type type,
                                 const char* wanted);
  const json_spirit::Value& need(const std::string& key, json_spirit::Value_type type,
                                 const char* wanted);

  const Object& object_;
  std::string place_;
  std::set<std::string> asked_;
  std::map<std::string, std::vector<Request_Fields>> inner_;  ///< fields of the objects in it
};

/// The member "created", or now.
std::string read_created(Request_Fields& fields);

/// The error with `place` in front of its text, unless it is there already; 400 or 422.
Request_Error placed(const Request_Error& error, const std::string& place);

/// The fields of a query string, each at most once. Throws Request_Error (400) from the constructor
/// for a broken escape, a text that is not UTF-8, or a field given twice.
class Query_Fields {
 public:
  explicit Query_Fields(const Request& request);

  std::optional<std::string> text(const std::string& name);
  std::string needed_text(const std::string& name);              ///< 400 when absent
  std::optional<std::int64_t> count(const std::string& name);    ///< 0 or more
  std::optional<std::int64_t> integer(const std::string& name);  ///< may be negative
  std::int64_t needed_count(const std::string& name);
  bool flag_or(const std::string& name, bool otherwise);  ///< "true" or "false"
  /// Refuses fields that nobody read.
  void finish() const;

 private:
  std::optional<std::int64_t> number(const std::string& name, std::int64_t least,
                                     const char* wanted);

  std::map<std::string, std::string> fields_;
  std::set<std::string> asked_;
};

/// A request with its query and body as fields. The body of POST and PUT is a JSON object; that of
/// other methods is ignored. Throws Request_Error: 400 for a query or body that cannot be read, 415
/// for a body that is not application/json.
class Parsed_Request {
  Object object_;  // before the fields that read it

 public:
  explicit Parsed_Request(const Request& request);
  Parsed_Request(const Parsed_Request&) = delete;
  Parsed_Request& operator=(const Parsed_Request&) = delete;

  Query_Fields query;
  Request_Fields body;

  /// Refuses fields that nobody read. Called after each handler; a handler with effects outside the
  /// transaction must call it first.
  void finish() const;
};

}  // namespace zqpool::service
