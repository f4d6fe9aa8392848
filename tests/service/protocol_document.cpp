#include "tests/service/protocol_document.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

namespace zqpool::test {

using json_spirit::Value;

namespace {

/// A plain scalar by YAML's core rules; a quoted one is always a text.
Value scalar(const YAML::Node& node) {
  const std::string& text = node.Scalar();
  if (node.Tag() == "!") return text;
  if (text == "true" || text == "false") return text == "true";
  if (text == "null" || text == "~" || text.empty()) return {};
  std::int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error == std::errc() && stop == end) return number;
  return text;
}

Value to_json(const YAML::Node& node) {
  if (node.IsMap()) {
    Object out;
    for (const auto& member : node) {
      if (!out.emplace(member.first.Scalar(), to_json(member.second)).second) {
        throw std::runtime_error("'" + member.first.Scalar() + "' is given twice");
      }
    }
    return out;
  }
  if (node.IsSequence()) {
    Array out;
    for (const auto& element : node)
      out.push_back(to_json(element));
    return out;
  }
  return scalar(node);
}

const Value* member(const Object& object, const std::string& key) {
  const auto it = object.find(key);
  return it == object.end() ? nullptr : &it->second;
}

bool flag(const Object& object, const std::string& key) {
  const Value* value = member(object, key);
  return value && value->get_bool();
}

std::string lower(std::string text) {
  for (char& c : text)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

int digit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : std::tolower(c) - 'a' + 10;
}

/// A query's name or value; absent for a broken escape.
std::optional<std::string> decoded(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i] == '+' ? ' ' : text[i];
      continue;
    }
    if (i + 2 >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[i + 1])) ||
        !std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      return std::nullopt;
    }
    out += static_cast<char>(digit(text[i + 1]) * 16 + digit(text[i + 2]));
    i += 2;
  }
  return out;
}

/// Fields of a query in their order; absent when one is no text.
std::optional<std::vector<std::pair<std::string, std::string>>> fields_of(std::string query) {
  std::vector<std::pair<std::string, std::string>> out;
  while (!query.empty()) {
    const std::string field = query.substr(0, query.find('&'));
    query.erase(0, field.size() + 1);
    if (field.empty()) continue;
    const std::size_t equals = field.find('=');
    const auto name = decoded(field.substr(0, equals));
    const auto value = decoded(equals == std::string::npos ? "" : field.substr(equals + 1));
    if (!name || !value) return std::nullopt;
    out.emplace_back(*name, *value);
  }
  return out;
}

/// A query value as what its schema says that it is.
Value typed(const Value& schema, const std::string& text) {
  if (const std::string* type = json_spirit::object_get_str(schema.get_obj(), "type");
      type && *type == "string") {
    return text;
  }
  Value value;
  return json_spirit::read(text, value) ? value : Value(text);
}

bool has_type(const std::string& type, const Value& value) {
  switch (value.type()) {
    case json_spirit::obj_type:
      return type == "object";
    case json_spirit::array_type:
      return type == "array";
    case json_spirit::str_type:
      return type == "string";
    case json_spirit::bool_type:
      return type == "boolean";
    case json_spirit::int_type:
      return type == "integer" || type == "number";
    case json_spirit::real_type:
      return type == "number";
    case json_spirit::null_type:
      break;
  }
  return false;
}

/// What a schema bounds by a least and a most.
std::string bound_mismatch(const Object& schema, const char* least, const char* most,
                           std::int64_t number, const std::string& what) {
  const Value* low = member(schema, least);
  const Value* high = member(schema, most);
  if (low && number < low->get_int64()) return what + " is below " + least;
  if (high && number > high->get_int64()) return what + " is above " + most;
  return "";
}

std::size_t characters(const std::string& utf8) {
  return static_cast<std::size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

void check_keywords(const Object& schema) {
  static const std::set<std::string> known = {"type",       "required",      "additionalProperties",
                                              "properties", "items",         "enum",
                                              "pattern",    "minimum",       "maximum",
                                              "minLength",  "maxLength",     "minItems",
                                              "maxItems",   "minProperties", "maxProperties",
                                              "oneOf",      "allOf",         "nullable",
                                              "format",     "description",   "example",
                                              "default"};
  for (const auto& [key, value] : schema) {
    if (known.count(key) == 0) throw std::logic_error("unknown keyword '" + key + "'");
  }
}

bool is_free(const std::string& method, const std::string& path) {
  return method == "OPTIONS" || path.rfind("/zq/lab/", 0) == 0;
}

/// JSON-RPC refuses with an answer of 200.
bool is_refusal(const Exchange& exchange) {
  Value answer;
  return exchange.status >= 400 ||
         (json_spirit::read(exchange.answer, answer) && answer.type() == json_spirit::obj_type &&
          answer.get_obj().count("error") != 0);
}

/// Path and query of a target, whose scheme and host do not matter.
std::pair<std::string, std::string> split(std::string target) {
  const std::size_t authority = target.find("://");
  if (authority != std::string::npos && authority < target.find_first_of("/?")) {
    const std::size_t path = target.find('/', authority + 3);
    target = path == std::string::npos ? "/" : target.substr(path);
  }
  const std::size_t question = target.find('?');
  return {target.substr(0, question),
          question == std::string::npos ? "" : target.substr(question + 1)};
}

}  // namespace

Protocol_Document::Protocol_Document(const std::string& yaml) {
  try {
    document_ = to_json(YAML::Load(yaml));
  } catch (const YAML::Exception& error) {
    throw std::runtime_error(error.what());
  }
}

const Protocol_Document& Protocol_Document::instance() {
  static const Protocol_Document document = [] {
    std::ostringstream text;
    text << std::ifstream(ZQ_PROTOCOL_DOCUMENT).rdbuf();
    return Protocol_Document(text.str());
  }();
  return document;
}

std::map<std::string, std::vector<std::string>> Protocol_Document::paths() const {
  std::map<std::string, std::vector<std::string>> out;
  for (const auto& [path, item] : document_.get_obj().at("paths").get_obj()) {
    for (const auto& [method, operation] : item.get_obj()) {
      std::string name;
      for (const char c : method)
        name += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      out[path].push_back(name);
    }
  }
  return out;
}

const Value& Protocol_Document::resolve(const Value& value) const {
  const std::string* reference = json_spirit::object_get_str(value.get_obj(), "$ref");
  if (!reference) return value;
  if (reference->rfind("#/", 0) != 0) throw std::logic_error("reference " + *reference);
  const Value* at = &document_;
  for (std::size_t i = 1; i != std::string::npos;) {
    const std::size_t next = reference->find('/', i + 1);
    at = &at->get_obj().at(reference->substr(i + 1, next - i - 1));
    i = next;
  }
  return resolve(*at);
}

const Object* Protocol_Document::find_operation(const std::string& method,
                                                const std::string& path) const {
  const Value* item = member(document_.get_obj().at("paths").get_obj(), path);
  const Value* operation =
      item ? member(item->get_obj(), method == "HEAD" ? "get" : lower(method)) : nullptr;
  // Methods are case-sensitive.
  const bool capitals = std::none_of(method.begin(), method.end(), [](char c) {
    return std::islower(static_cast<unsigned char>(c));
  });
  return operation && capitals ? &operation->get_obj() : nullptr;
}

std::string Protocol_Document::mismatch(const Value& given, const Value& value,
                                        const std::string& place) const {
  const Object& schema = resolve(given).get_obj();
  check_keywords(schema);
  if (value.is_null() && flag(schema, "nullable")) return "";
  if (const std::string* type = json_spirit::object_get_str(schema, "type");
      type && !has_type(*type, value)) {
    return place + " is no " + *type;
  }
  if (const Value* choices = member(schema, "enum")) {
    const Array& list = choices->get_array();
    if (std::find(list.begin(), list.end(), value) == list.end()) {
      return place + " is none of the enumeration: " + json_spirit::write(value);
    }
  }
  if (const Value* all = member(schema, "allOf")) {
    for (const Value& each : all->get_array()) {
      if (std::string wrong = mismatch(each, value, place); !wrong.empty()) return wrong;
    }
  }
  if (const Value* one = member(schema, "oneOf")) {
    int matches = 0;
    std::string all_wrong;
    for (const Value& each : one->get_array()) {
      const std::string wrong = mismatch(each, value, place);
      if (wrong.empty()) ++matches;
      all_wrong += " (" + wrong + ')';
    }
    if (matches != 1) return place + " fits " + std::to_string(matches) + " of oneOf" + all_wrong;
  }
  switch (value.type()) {
    case json_spirit::obj_type:
      return object_mismatch(schema, value.get_obj(), place);
    case json_spirit::array_type: {
      const Array& list = value.get_array();
      if (const Value* items = member(schema, "items")) {
        for (std::size_t i = 0; i < list.size(); ++i) {
          std::string wrong = mismatch(*items, list[i], place + '[' + std::to_string(i) + ']');
          if (!wrong.empty()) return wrong;
        }
      }
      return bound_mismatch(schema, "minItems", "maxItems", static_cast<std::int64_t>(list.size()),
                            place);
    }
    case json_spirit::str_type: {
      const std::string& text = value.get_str();
      if (const std::string* pattern = json_spirit::object_get_str(schema, "pattern");
          pattern && !std::regex_search(text, std::regex(*pattern))) {
        return place + " does not look like " + *pattern;
      }
      return bound_mismatch(schema, "minLength", "maxLength",
                            static_cast<std::int64_t>(characters(text)), place);
    }
    case json_spirit::int_type:
      if (value.is_uint64()) return place + " is above 2^63-1";
      return bound_mismatch(schema, "minimum", "maximum", value.get_int64(), place);
    default:
      return "";
  }
}

std::string Protocol_Document::object_mismatch(const Object& schema, const Object& object,
                                               const std::string& place) const {
  if (const Value* required = member(schema, "required")) {
    for (const Value& key : required->get_array()) {
      if (object.count(key.get_str()) == 0) return place + " lacks " + key.get_str();
    }
  }
  const std::string within = place + '.';
  const Value* properties = member(schema, "properties");
  const Value* others = member(schema, "additionalProperties");
  for (const auto& [key, value] : object) {
    const Value* property = properties ? member(properties->get_obj(), key) : nullptr;
    if (!property && others && others->type() == json_spirit::bool_type && !others->get_bool()) {
      return std::string(place).append(" has an unknown member ").append(key);
    }
    if (!property && others && others->type() == json_spirit::obj_type) property = others;
    if (!property) continue;
    if (std::string wrong = mismatch(*property, value, within + key); !wrong.empty()) {
      return wrong;
    }
  }
  return bound_mismatch(schema, "minProperties", "maxProperties",
                        static_cast<std::int64_t>(object.size()), place);
}

std::string Protocol_Document::example_contradictions() const {
  return examples_within(document_, "");
}

std::string Protocol_Document::examples_within(const Value& part, const std::string& place) const {
  std::string out;
  if (part.type() == json_spirit::array_type) {
    for (const Value& element : part.get_array())
      out += examples_within(element, place + "[]");
  }
  if (part.type() != json_spirit::obj_type) return out;
  const Object& object = part.get_obj();
  if (const Value* example = member(object, "example")) {
    // Beside its schema, or within it.
    const Value* schema = member(object, "schema");
    const std::string wrong = mismatch(schema ? *schema : part, *example, place + ".example");
    if (!wrong.empty()) out += wrong + '\n';
  }
  const std::string within = place + '.';
  for (const auto& [key, value] : object) {
    if (key != "example") out += examples_within(value, within + key);
  }
  return out;
}

std::string Protocol_Document::query_contradiction(const Object& operation,
                                                   const std::string& query) const {
  const auto fields = fields_of(query);
  if (!fields) return "the query has a broken escape";
  std::map<std::string, const Object*> known;
  if (const Value* parameters = member(operation, "parameters")) {
    for (const Value& each : parameters->get_array()) {
      const Object& parameter = resolve(each).get_obj();
      if (parameter.at("in").get_str() == "query") {
        known.emplace(parameter.at("name").get_str(), &parameter);
      }
    }
  }
  std::set<std::string> given;
  for (const auto& [name, value] : *fields) {
    const auto parameter = known.find(name);
    if (parameter == known.end()) return "the query has an unknown field " + name;
    if (!given.insert(name).second) return "the query has two fields " + name;
    const Value& schema = resolve(parameter->second->at("schema"));
    if (std::string wrong = mismatch(schema, typed(schema, value), "query field " + name);
        !wrong.empty()) {
      return wrong;
    }
  }
  for (const auto& [name, parameter] : known) {
    if (flag(*parameter, "required") && given.count(name) == 0) return "the query lacks " + name;
  }
  return "";
}

std::string Protocol_Document::contradiction(const std::string& method, const std::string& target,
                                             const std::string& body) const {
  const auto [path, query] = split(target);
  if (is_free(method, path)) return "";
  const Object* operation = find_operation(method, path);
  if (!operation) return "there is no " + method + ' ' + path;
  if (std::string wrong = query_contradiction(*operation, query); !wrong.empty()) return wrong;
  const Value* request = member(*operation, "requestBody");
  if (!request) return body.empty() ? "" : "a body is sent where there is none";
  Value value;
  if (!json_spirit::read(body, value)) return "the body is no JSON";
  return mismatch(
      request->get_obj().at("content").get_obj().at("application/json").get_obj().at("schema"),
      value, "the body");
}

std::string Protocol_Document::answer_contradiction(const Object* operation,
                                                    const Exchange& exchange) const {
  // What is no path or method of the protocol is refused like everything else.
  const Value* refusal =
      &document_.get_obj().at("components").get_obj().at("responses").get_obj().at("Refusal");
  const Value* response = refusal;
  if (operation) {
    const Object& responses = operation->at("responses").get_obj();
    response = member(responses, std::to_string(exchange.status));
    if (!response && exchange.status >= 400) response = member(responses, "default");
    if (!response) return "no answer " + std::to_string(exchange.status) + " is described";
  } else if (exchange.status < 400) {
    return "an undescribed operation is answered";
  }
  if (exchange.method == "HEAD") return exchange.answer.empty() ? "" : "HEAD has a body";
  const Value* content = member(resolve(*response).get_obj(), "content");
  if (!content) return exchange.answer.empty() ? "" : "an answer has a body where there is none";
  Value value;
  if (!json_spirit::read(exchange.answer, value)) return "the answer is no JSON";
  return mismatch(content->get_obj().at("application/json").get_obj().at("schema"), value,
                  "the answer");
}

std::string Protocol_Document::contradiction(const Exchange& exchange) const {
  const std::string path = split(exchange.target).first;
  if (is_free(exchange.method, path)) return "";
  std::string wrong = answer_contradiction(find_operation(exchange.method, path), exchange);
  if (wrong.empty() && !is_refusal(exchange)) {
    wrong = contradiction(exchange.method, exchange.target, exchange.body);
    if (!wrong.empty()) wrong = "what must be refused is carried out: " + wrong;
  }
  return wrong.empty() ? "" : exchange.method + ' ' + exchange.target + ": " + wrong;
}

}  // namespace zqpool::test
