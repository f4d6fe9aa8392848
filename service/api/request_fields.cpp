#include "service/api/request_fields.h"

#include <charconv>
#include <limits>
#include <string_view>

#include "platform/text/percent.h"
#include "platform/text/utf8.h"
#include "platform/text/uuid.h"
#include "service/api/text.h"

namespace zqpool::service {

using json_spirit::Value;

namespace {

std::string listed(std::initializer_list<const char*> words) {
  std::string out;
  for (const char* word : words) {
    if (!out.empty()) out += ", ";
    out += word;
  }
  return out;
}

}  // namespace

std::string Request_Fields::place(const std::string& key) const {
  return place_.empty() ? key : place_ + '.' + key;
}

void Request_Fields::refuse(const std::string& key, const std::string& why, unsigned status) const {
  throw Request_Error(status, place(key) + ": " + why);
}

const Value* Request_Fields::find(const std::string& key, json_spirit::Value_type type,
                                  const char* wanted) {
  const Value* value = optional_value(key);
  if (!value) return nullptr;
  if (value->type() != type) {
    refuse(key, std::string("must be ") + wanted + ", not " + type_name(value->type()), 400);
  }
  if (type == json_spirit::str_type && value->get_str().find('\0') != std::string::npos) {
    refuse(key, "must not contain a zero character");
  }
  return value;
}

const Value& Request_Fields::need(const std::string& key, json_spirit::Value_type type,
                                  const char* wanted) {
  const Value* value = find(key, type, wanted);
  if (!value) refuse(key, "is missing", 400);
  return *value;
}

std::string Request_Fields::text(const std::string& key) {
  std::string out = needed_text(key);
  if (out.empty()) refuse(key, "must not be empty");
  return out;
}

std::string Request_Fields::needed_text(const std::string& key) {
  return need(key, json_spirit::str_type, "a string").get_str();
}

std::string Request_Fields::text_or(const std::string& key, const std::string& otherwise) {
  return optional_text(key).value_or(otherwise);
}

std::optional<std::string> Request_Fields::optional_text(const std::string& key) {
  const Value* value = find(key, json_spirit::str_type, "a string");
  if (!value) return std::nullopt;
  return value->get_str();
}

std::string Request_Fields::uuid(const std::string& key) {
  std::string out = text(key);
  if (!text::is_uuid(out)) refuse(key, "\"" + out + "\" is not a UUID");
  return out;
}

std::string Request_Fields::one_of(const std::string& key,
                                   std::initializer_list<const char*> words) {
  std::string out = text(key);
  for (const char* word : words) {
    if (out == word) return out;
  }
  refuse(key, "\"" + out + "\" is not one of " + listed(words));
}

std::string Request_Fields::one_of_or(const std::string& key,
                                      std::initializer_list<const char*> words,
                                      const std::string& otherwise) {
  return has(key) ? one_of(key, words) : (asked_.insert(key), otherwise);
}

std::optional<std::int64_t> Request_Fields::optional_count(const std::string& key) {
  const Value* value = find(key, json_spirit::int_type, "an integer");
  if (!value) return std::nullopt;
  if (value->is_uint64()) refuse(key, "is above 9223372036854775807");
  if (value->get_int64() < 0) refuse(key, "must not be negative");
  return value->get_int64();
}

std::int64_t Request_Fields::count(const std::string& key) {
  const std::optional<std::int64_t> value = optional_count(key);
  if (!value) refuse(key, "is missing", 400);
  return *value;
}

std::int64_t Request_Fields::count_or(const std::string& key, std::int64_t otherwise) {
  return optional_count(key).value_or(otherwise);
}

std::optional<double> Request_Fields::optional_real(const std::string& key) {
  const Value* value = optional_value(key);
  if (!value) return std::nullopt;
  if (value->type() != json_spirit::int_type && value->type() != json_spirit::real_type) {
    refuse(key, std::string("must be a number, not ") + type_name(value->type()), 400);
  }
  return value->get_real();
}

bool Request_Fields::flag_or(const std::string& key, bool otherwise) {
  const Value* value = find(key, json_spirit::bool_type, "true or false");
  return value ? value->get_bool() : otherwise;
}

Request_Fields* Request_Fields::optional_object(const std::string& key) {
  const Value* value = find(key, json_spirit::obj_type, "an object");
  if (!value) return nullptr;
  std::vector<Request_Fields>& inner = inner_[key];
  inner.clear();
  return &inner.emplace_back(value->get_obj(), place(key));
}

const Object& Request_Fields::whole() {
  for (const auto& [key, value] : object_)
    asked_.insert(key);
  return object_;
}

const Array* Request_Fields::optional_array(const std::string& key) {
  const Value* value = find(key, json_spirit::array_type, "an array");
  return value ? &value->get_array() : nullptr;
}

const Value* Request_Fields::optional_value(const std::string& key) {
  asked_.insert(key);
  const auto it = object_.find(key);
  return it == object_.end() ? nullptr : &it->second;
}

void Request_Fields::finish() const {
  for (const auto& [key, value] : object_) {
    if (!asked_.count(key)) refuse(key, "is unknown", 400);
  }
  for (const auto& [key, inner] : inner_) {
    for (const Request_Fields& fields : inner)
      fields.finish();
  }
}

std::vector<Request_Fields>& Request_Fields::optional_objects(const std::string& key) {
  std::vector<Request_Fields>& out = inner_[key];
  out.clear();
  const Array* elements = optional_array(key);
  if (!elements) return out;
  for (std::size_t i = 0; i < elements->size(); ++i) {
    const std::string element = key + '[' + std::to_string(i) + ']';
    if ((*elements)[i].type() != json_spirit::obj_type) refuse(element, "must be an object", 400);
    out.emplace_back((*elements)[i].get_obj(), place(element));
  }
  return out;
}

bool Request_Fields::flag(const std::string& key) {
  return need(key, json_spirit::bool_type, "true or false").get_bool();
}

std::string read_created(Request_Fields& fields) {
  std::string created = fields.text_or("created", utc_now());
  const std::string_view shape = "dddd-dd-ddTdd:dd:dd";
  bool good = created.size() > shape.size() && created.back() == 'Z';
  for (std::size_t i = 0; good && i < shape.size(); ++i) {
    good = shape[i] == 'd' ? created[i] >= '0' && created[i] <= '9' : created[i] == shape[i];
  }
  if (!good) fields.refuse("created", "must look like 2026-11-21T09:30:00Z");
  return created;
}

Request_Error placed(const Request_Error& error, const std::string& place) {
  const std::string text = error.what();
  return {error.status() == 400 ? 400U : 422U,
          text.rfind(place, 0) == 0 ? text : place + ": " + text};
}

namespace {

Object read_body(const Request& request) {
  if (request.method != Method::post && request.method != Method::put) return {};
  const std::string_view type =
      std::string_view(request.content_type).substr(0, request.content_type.find_first_of("; \t"));
  if (!type.empty() && lower_case(type) != "application/json") {
    throw Request_Error(415, "the body must be application/json");
  }
  if (request.body.empty()) throw Request_Error(400, "the body is missing");
  Value value;
  std::string why;
  if (!json_spirit::read(request.body, value, why)) {
    throw Request_Error(400, "the body is not JSON: " + why);
  }
  if (value.type() != json_spirit::obj_type) {
    throw Request_Error(400,
                        std::string("the body must be an object, not ") + type_name(value.type()));
  }
  return std::move(value.get_obj());
}

}  // namespace

Query_Fields::Query_Fields(const Request& request) {
  std::string_view rest = request.query;
  while (!rest.empty()) {
    const std::string_view field = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(rest.size(), field.size() + 1));
    if (field.empty()) continue;
    const std::size_t equals = field.find('=');
    const std::optional<std::string> name = text::decode_query_text(field.substr(0, equals));
    std::optional<std::string> value =
        text::decode_query_text(equals == std::string_view::npos ? "" : field.substr(equals + 1));
    if (!name || !value) {
      throw Request_Error(400, "the query has a percent sign without two hexadecimal digits");
    }
    if (!text::is_utf8(*name) || !text::is_utf8(*value)) {
      throw Request_Error(400, "the query is not UTF-8");
    }
    if (value->find('\0') != std::string::npos) {
      throw Request_Error(400, "query field '" + *name + "' contains a zero character");
    }
    if (!fields_.emplace(*name, *std::move(value)).second) {
      throw Request_Error(400, "query field '" + *name + "' is given twice");
    }
  }
}

std::optional<std::string> Query_Fields::text(const std::string& name) {
  asked_.insert(name);
  const auto it = fields_.find(name);
  if (it == fields_.end()) return std::nullopt;
  return it->second;
}

std::string Query_Fields::needed_text(const std::string& name) {
  const std::optional<std::string> value = text(name);
  if (!value) throw Request_Error(400, "query field '" + name + "' is missing");
  return *value;
}

std::optional<std::int64_t> Query_Fields::number(const std::string& name, std::int64_t least,
                                                 const char* wanted) {
  const std::optional<std::string> value = text(name);
  if (!value) return std::nullopt;
  std::int64_t number = 0;
  const char* const end = value->data() + value->size();
  const auto [stop, error] = std::from_chars(value->data(), end, number);
  if (error != std::errc() || stop != end || number < least) {
    throw Request_Error(400, "query field '" + name + "' must be " + wanted);
  }
  return number;
}

std::optional<std::int64_t> Query_Fields::count(const std::string& name) {
  return number(name, 0, "a number, 0 or more");
}

std::optional<std::int64_t> Query_Fields::integer(const std::string& name) {
  return number(name, std::numeric_limits<std::int64_t>::min(), "a number");
}

std::int64_t Query_Fields::needed_count(const std::string& name) {
  needed_text(name);
  return *count(name);
}

bool Query_Fields::flag_or(const std::string& name, bool otherwise) {
  const std::optional<std::string> value = text(name);
  if (!value) return otherwise;
  if (*value != "true" && *value != "false") {
    throw Request_Error(400, "query field '" + name + "' must be true or false");
  }
  return *value == "true";
}

void Query_Fields::finish() const {
  for (const auto& [name, value] : fields_) {
    if (!asked_.count(name)) throw Request_Error(400, "query field '" + name + "' is unknown");
  }
}

Parsed_Request::Parsed_Request(const Request& request)
    : object_(read_body(request)), query(request), body(object_, "") {}

void Parsed_Request::finish() const {
  query.finish();
  body.finish();
}

}  // namespace zqpool::service
