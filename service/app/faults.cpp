#include "service/app/faults.h"

#include <array>
#include <utility>

#include "service/api/request_fields.h"

namespace zqpool::service {

using json_spirit::Value;

namespace {

constexpr std::array<std::pair<Fault_Kind, const char*>, 9> kind_names{
    {{Fault_Kind::status, "status"},
     {Fault_Kind::delay, "delay"},
     {Fault_Kind::reset_before_commit, "reset_before_commit"},
     {Fault_Kind::reset_after_commit, "reset_after_commit"},
     {Fault_Kind::cut, "cut"},
     {Fault_Kind::drip, "drip"},
     {Fault_Kind::garbage, "garbage"},
     {Fault_Kind::huge, "huge"},
     {Fault_Kind::wrong_type, "wrong_type"}}};

constexpr std::int64_t max_faults = 1000;
constexpr std::int64_t max_wait_ms = 600000;
constexpr std::int64_t max_garbage = 64 << 20;
constexpr std::int64_t max_huge = std::int64_t{1} << 40;

std::int64_t bounded(Request_Fields& fields, const std::string& key, std::int64_t otherwise,
                     std::int64_t min, std::int64_t max) {
  const std::int64_t value = fields.count_or(key, otherwise);
  if (value < min || value > max) {
    fields.refuse(key, "must be from " + std::to_string(min) + " to " + std::to_string(max));
  }
  return value;
}

void read_effect(Request_Fields& fields, Fault& fault) {
  fault.delay_ms = bounded(fields, "delay_ms", 0, 0, max_wait_ms);
  fault.delay_after_commit = fields.flag_or("delay_after_commit", false);
  switch (fault.kind) {
    case Fault_Kind::status: {
      fault.status = static_cast<unsigned>(bounded(fields, "status", 0, 200, 599));
      if (const Value* body = fields.optional_value("body")) {
        // A string is sent as it is, so that the body need not be JSON.
        fault.body =
            body->type() == json_spirit::str_type ? body->get_str() : json_spirit::write(*body);
      } else if (fault.status >= 400) {
        fault.body = error_response(fault.status, "scripted fault").body;
      }
      break;
    }
    case Fault_Kind::delay:
      if (fault.delay_ms == 0) fields.refuse("delay_ms", "is missing", 400);
      break;
    case Fault_Kind::reset_before_commit:
    case Fault_Kind::reset_after_commit:
      break;
    case Fault_Kind::cut:
      fault.bytes = fields.count("bytes");
      break;
    case Fault_Kind::drip:
      fault.bytes = bounded(fields, "bytes", 1, 1, 1 << 20);
      fault.interval_ms = bounded(fields, "interval_ms", 100, 1, max_wait_ms);
      break;
    case Fault_Kind::garbage:
      fault.bytes = bounded(fields, "bytes", 256, 1, max_garbage);
      fault.whole_answer = fields.flag_or("whole_answer", false);
      break;
    case Fault_Kind::huge:
      fault.bytes = bounded(fields, "bytes", 0, 2, max_huge);
      break;
    case Fault_Kind::wrong_type:
      fault.member = fields.text_or("member", "");
      fault.type = fields.one_of_or(
          "type", {"string", "number", "boolean", "null", "array", "object"}, "string");
      break;
  }
}

std::shared_ptr<Fault> read_fault(const Object& object, const std::string& place) {
  Request_Fields fields(object, place);
  auto fault = std::make_shared<Fault>();
  const std::string method = fields.text_or("method", "");
  fault->method = method_from(method);
  if (!method.empty() && fault->method == Method::other) {
    fields.refuse("method", "is not a method of the service");
  }
  fault->path = fields.text("path");
  fault->query = fields.text_or("query", "");

  fault->skip = fields.count_or("skip", 0);
  fault->every = fields.count_or("every", 1);
  if (fault->every == 0) fields.refuse("every", "must be 1 or more");
  if (const auto probability = fields.optional_real("probability")) {
    fault->probability = *probability;
    if (!(fault->probability >= 0 && fault->probability <= 1)) {
      fields.refuse("probability", "must be from 0 to 1");
    }
  }
  fault->seed = static_cast<std::uint64_t>(fields.count_or("seed", 0));
  fault->times = fields.optional_count("times").value_or(-1);

  const std::string kind = fields.text("kind");
  bool known = false;
  for (const auto& [value, name] : kind_names) {
    if (kind != name) continue;
    fault->kind = value;
    known = true;
  }
  if (!known) fields.refuse("kind", "\"" + kind + "\" is not a kind of fault");
  read_effect(fields, *fault);
  fields.finish();
  fault->description = object;
  return fault;
}

bool matches(const Fault& fault, Method method, const std::string& path, const std::string& query) {
  if (fault.method != Method::other && fault.method != method) return false;
  const bool prefix = fault.path.back() == '*';
  if (prefix ? path.compare(0, fault.path.size() - 1, fault.path, 0, fault.path.size() - 1) != 0
             : path != fault.path) {
    return false;
  }
  return query.find(fault.query) != std::string::npos;
}

}  // namespace

const char* fault_name(Fault_Kind kind) {
  for (const auto& [value, name] : kind_names) {
    if (value == kind) return name;
  }
  return "";
}

Array Fault_Script::add(const Object& document) {
  Request_Fields fields(document, "");
  const Array* faults = fields.optional_array("faults");
  fields.finish();
  if (!faults) fields.refuse("faults", "is missing", 400);
  std::vector<Entry> added;
  for (std::size_t i = 0; i < faults->size(); ++i) {
    const std::string place = "faults[" + std::to_string(i) + ']';
    if ((*faults)[i].type() != json_spirit::obj_type) {
      throw Request_Error(400, place + ": must be an object");
    }
    std::shared_ptr<Fault> fault = read_fault((*faults)[i].get_obj(), place);
    const std::uint64_t seed = fault->seed;
    added.push_back({std::move(fault), std::mt19937_64(seed)});
  }
  const std::lock_guard<std::mutex> hold(mutex_);
  if (entries_.size() + added.size() > static_cast<std::size_t>(max_faults)) {
    throw Request_Error(422, "more than " + std::to_string(max_faults) + " faults at once");
  }
  Array ids;
  for (Entry& entry : added) {
    entry.fault->id = ++last_id_;
    ids.emplace_back(entry.fault->id);
    entries_.push_back(std::move(entry));
  }
  return ids;
}

Fault_Pointer Fault_Script::choose(Method method, const std::string& path,
                                   const std::string& query) {
  const std::lock_guard<std::mutex> hold(mutex_);
  for (Entry& entry : entries_) {
    const Fault& fault = *entry.fault;
    if (!matches(fault, method, path, query)) continue;
    const std::int64_t number = ++fault.matched;
    if (fault.times >= 0 && fault.chosen >= fault.times) continue;
    if (number <= fault.skip || (number - fault.skip) % fault.every != 0) continue;
    // 53 random bits as a number below 1. A standard distribution may differ between platforms.
    const double chance = static_cast<double>(entry.random() >> 11) * 0x1.0p-53;
    if (chance >= fault.probability) continue;
    ++fault.chosen;
    return entry.fault;
  }
  return nullptr;
}

Array Fault_Script::list() const {
  const std::lock_guard<std::mutex> hold(mutex_);
  Array out;
  for (const Entry& entry : entries_) {
    Object object = entry.fault->description;
    object["id"] = entry.fault->id;
    object["matched"] = entry.fault->matched.load();
    object["chosen"] = entry.fault->chosen.load();
    object["fired"] = entry.fault->fired.load();
    out.emplace_back(std::move(object));
  }
  return out;
}

std::int64_t Fault_Script::clear() {
  const std::lock_guard<std::mutex> hold(mutex_);
  const auto count = static_cast<std::int64_t>(entries_.size());
  entries_.clear();
  return count;
}

bool change_type(const Fault& fault, Response& response) {
  Value value;
  if (!json_spirit::read(response.body, value)) return false;
  Value* target = &value;
  if (!fault.member.empty()) {
    if (value.type() != json_spirit::obj_type) return false;
    const auto it = value.get_obj().find(fault.member);
    if (it == value.get_obj().end()) return false;
    target = &it->second;
  }
  Value other = fault.type == "string"    ? Value("wrong type")
                : fault.type == "number"  ? Value(4711)
                : fault.type == "boolean" ? Value(true)
                : fault.type == "array"   ? Value(Array{Value("wrong type")})
                : fault.type == "object"  ? Value(Object{{"wrong", "type"}})
                                          : Value();
  if (target->type() == other.type()) return false;
  *target = std::move(other);
  response.body = json_spirit::write(value);
  return true;
}

std::string random_bytes(std::uint64_t seed, std::size_t count) {
  std::mt19937_64 random(seed);
  std::string out(count, '\0');
  for (char& c : out)
    c = static_cast<char>(random() & 0xff);
  return out;
}

}  // namespace zqpool::service
