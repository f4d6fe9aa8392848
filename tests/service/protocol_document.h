#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"

namespace zqpool::test {

/// A request and its answer.
struct Exchange {
  std::string method;
  std::string target;  ///< path and query, as sent
  std::string body;
  unsigned status = 0;
  std::string answer;
};

/// docs/protocol/openapi.yaml, and whether what goes over the wire is what it says. Knows the
/// keywords of OpenAPI that the document uses; another one ends the test with std::logic_error
/// instead of being passed over.
class Protocol_Document {
 public:
  /// The document of this tree. Throws when it cannot be read.
  static const Protocol_Document& instance();
  /// Throws std::runtime_error when the text is no YAML.
  explicit Protocol_Document(const std::string& yaml);

  /// How the exchange contradicts the document, "" when it does not: a 2xx answer to a request that
  /// the document does not allow, or an answer that it does not allow to this request. What is no
  /// part of the protocol (/zq/lab/) and the answer to OPTIONS never contradict it.
  std::string contradiction(const Exchange& exchange) const;

  /// How a request contradicts the document, whatever is answered; "" when it does not.
  std::string contradiction(const std::string& method, const std::string& target,
                            const std::string& body) const;

  /// Path to methods, in capitals.
  std::map<std::string, std::vector<std::string>> paths() const;

  /// Examples of bodies and schemas that are not what they stand for, one a line.
  std::string example_contradictions() const;

 private:
  const Object* find_operation(const std::string& method, const std::string& path) const;
  std::string query_contradiction(const Object& operation, const std::string& query) const;
  std::string answer_contradiction(const Object* operation, const Exchange& exchange) const;
  std::string examples_within(const json_spirit::Value& part, const std::string& place) const;
  const json_spirit::Value& resolve(const json_spirit::Value& value) const;
  std::string mismatch(const json_spirit::Value& given, const json_spirit::Value& value,
                       const std::string& place) const;
  std::string object_mismatch(const Object& schema, const Object& object,
                              const std::string& place) const;

  json_spirit::Value document_;
};

}  // namespace zqpool::test
