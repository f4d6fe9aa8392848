// What reading and writing JSON costs, compared with RapidJSON filling and writing the same tree.
// Takes the options of Google Benchmark and prints the ratios after its table.

#include <benchmark/benchmark.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "bench/http/thread_counters.h"
#include "bench/medians.h"
#include "platform/json/json_spirit.h"

namespace {

using json_spirit::Value;

constexpr double read_bar = 1.3;  // to RapidJSON

// --- The documents: their members are not in alphabetical order, as in a service's answers. ---

std::string lun(int i, const std::string& more = {}) {
  char text[1024];
  std::snprintf(
      text, sizeof text,
      R"({"lun_id":"0b54e2a0-7f3c-4d8e-9a51-%012x","lun_name":"volume-%05d",)"
      R"("pool_id":"5f0d7c1e-2b7a-4c93-8e0d-3a1f6b9c2d47","size":%lld,"used_ratio":0.%d,)"
      R"("block_size":4096,"online":%s,"target":"iqn.2026-11.org.zqpool:backup-day-%05d",)"
      R"("lun_num":%d,"create_time":%d,"remark":null%s})",
      static_cast<unsigned>(i), i, 1099511627776LL + 512LL * i, 1 + i % 9998,
      i % 3 != 0 ? "true" : "false", i, i % 256, 1767225600 + i, more.c_str());
  return text;
}

std::string nested() {
  std::string text = R"({"code":0,"message":"ok")";
  for (int i = 0; i < 10; ++i) {
    text +=
        ",\"lun_" + std::to_string((i * 7) % 10) + "\":" + lun(i, R"(,"tags":["nightly","gold"])");
  }
  return text + "}";
}

std::string list() {
  std::string text = "[";
  for (int i = 0; i < 10000; ++i) {
    text += (i != 0 ? "," : "") + lun(i, ",\"node\":" + std::to_string(i % 16));
  }
  return text + "]";
}

struct Document {
  const char* name;
  std::string text;
  double write_bar;  // to RapidJSON
};

const std::vector<Document>& documents() {
  static const std::vector<Document> all = [] {
    std::vector<Document> made = {{"a", lun(4711), 1.0}, {"b", nested(), 1.0}, {"c", list(), 0.8}};
    // As in the HTTP client.
    for (Document& document : made) {
      document.text.reserve(document.text.size() + json_spirit::read_padding);
    }
    return made;
  }();
  return all;
}

Value tree_of(const std::string& text) {
  Value value;
  if (!json_spirit::read(text, value)) std::abort();
  return value;
}

// --- RapidJSON, filling the tree as well as it can: in place, keys and texts moved. ---

class Tree_Handler {
 public:
  explicit Tree_Handler(Value& root) : root_(root) {}

  // NOLINTBEGIN(readability-identifier-naming): RapidJSON's names
  bool Null() { return put(Value()); }
  bool Bool(bool flag) { return put(flag); }
  bool Int(int number) { return put(number); }
  bool Uint(unsigned number) { return put(number); }
  bool Int64(std::int64_t number) { return put(number); }
  bool Uint64(std::uint64_t number) { return put(number); }
  bool Double(double number) { return put(number); }
  bool RawNumber(const char*, rapidjson::SizeType, bool) { return false; }
  bool String(const char* text, rapidjson::SizeType size, bool) {
    return put(std::string_view(text, size));
  }
  bool Key(const char* text, rapidjson::SizeType size, bool) {
    key_.assign(text, size);
    return true;
  }
  bool StartObject() { return open(json_spirit::Object()); }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool StartArray() { return open(json_spirit::Array()); }
  bool EndArray(rapidjson::SizeType) { return close(); }
  // NOLINTEND(readability-identifier-naming)

 private:
  struct Container {
    json_spirit::Object* object;
    json_spirit::Array* array;
  };

  template <typename Content>
  Value& place(Content&& content) {
    if (open_.empty()) return root_ = Value(std::forward<Content>(content));
    if (auto* const array = open_.back().array) {
      return array->emplace_back(std::forward<Content>(content));
    }
    auto& object = *open_.back().object;
    const std::size_t size = object.size();
    const auto where =
        object.try_emplace(object.end(), std::move(key_), std::forward<Content>(content));
    if (object.size() == size) where->second = Value(std::forward<Content>(content));
    return where->second;
  }
  template <typename Content>
  bool put(Content&& content) {
    place(std::forward<Content>(content));
    return true;
  }
  bool open(json_spirit::Object&& object) {
    Value& value = place(std::move(object));
    open_.push_back({&value.get_obj(), nullptr});
    return open_.size() <= json_spirit::max_depth;
  }
  bool open(json_spirit::Array&& array) {
    Value& value = place(std::move(array));
    open_.push_back({nullptr, &value.get_array()});
    return open_.size() <= json_spirit::max_depth;
  }
  bool close() {
    open_.pop_back();
    return true;
  }

  Value& root_;
  std::string key_;
  std::vector<Container> open_;
};

bool rapidjson_read(const std::string& text, Value& value) {
  constexpr unsigned strict =
      rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag;
  Tree_Handler handler(value);
  rapidjson::Reader reader;
  rapidjson::StringStream stream(text.c_str());
  return !reader.Parse<strict>(stream, handler).IsError();
}

using Rapid_Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void rapidjson_walk(const Value& value, Rapid_Writer& writer) {
  const auto size = [](const std::string& text) {
    return static_cast<rapidjson::SizeType>(text.size());
  };
  switch (value.type()) {
    case json_spirit::obj_type:
      writer.StartObject();
      for (const auto& [key, member] : value.get_obj()) {
        writer.Key(key.data(), size(key));
        rapidjson_walk(member, writer);
      }
      writer.EndObject();
      break;
    case json_spirit::array_type:
      writer.StartArray();
      for (const Value& element : value.get_array())
        rapidjson_walk(element, writer);
      writer.EndArray();
      break;
    case json_spirit::str_type:
      writer.String(value.get_str().data(), size(value.get_str()));
      break;
    case json_spirit::bool_type:
      writer.Bool(value.get_bool());
      break;
    case json_spirit::int_type:
      if (value.is_uint64()) {
        writer.Uint64(value.get_uint64());
      } else {
        writer.Int64(value.get_int64());
      }
      break;
    case json_spirit::real_type:
      writer.Double(value.get_real());
      break;
    case json_spirit::null_type:
      writer.Null();
      break;
  }
}

// --- The runs ---

using Run = void (*)(const Document&, benchmark::State&);

void read_ours(const Document& document, benchmark::State& state) {
  for (auto _ : state) {
    Value value;
    if (!json_spirit::read(document.text, value)) state.SkipWithError("refused");
    benchmark::DoNotOptimize(value);
  }
}

void read_rapidjson(const Document& document, benchmark::State& state) {
  for (auto _ : state) {
    Value value;
    if (!rapidjson_read(document.text, value)) state.SkipWithError("refused");
    benchmark::DoNotOptimize(value);
  }
}

void parse_simdjson(const Document& document, benchmark::State& state) {
  simdjson::dom::parser parser;
  for (auto _ : state) {
    if (parser.parse(document.text).error() != simdjson::SUCCESS) state.SkipWithError("refused");
    benchmark::ClobberMemory();
  }
}

void write_ours(const Document& document, benchmark::State& state) {
  const Value value = tree_of(document.text);
  for (auto _ : state) {
    std::string text = json_spirit::write(value);
    benchmark::DoNotOptimize(text.data());
  }
}

void write_rapidjson(const Document& document, benchmark::State& state) {
  const Value value = tree_of(document.text);
  for (auto _ : state) {
    rapidjson::StringBuffer buffer;
    Rapid_Writer writer(buffer);
    rapidjson_walk(value, writer);
    benchmark::DoNotOptimize(buffer.GetString());
  }
}

const std::map<std::string, Run> runs = {{"read/json_spirit", read_ours},
                                         {"read/rapidjson_same_tree", read_rapidjson},
                                         {"read/simdjson_no_tree", parse_simdjson},
                                         {"write/json_spirit", write_ours},
                                         {"write/rapidjson", write_rapidjson}};

// Both libraries must give the same results.
void check(const Document& document) {
  const Value ours = tree_of(document.text);
  Value theirs;
  rapidjson::StringBuffer buffer;
  Rapid_Writer writer(buffer);
  rapidjson_walk(ours, writer);
  if (!rapidjson_read(document.text, theirs) || theirs != ours ||
      json_spirit::write(ours) != buffer.GetString()) {
    std::fprintf(stderr, "%s: the libraries do not agree\n", document.name);
    std::exit(1);
  }
}

template <typename Work>
std::uint64_t allocations_of(Work work) {
  const std::uint64_t before = zqpool::bench::usage().allocations;
  work();
  return zqpool::bench::usage().allocations - before;
}

std::uint64_t allocations_of_read(bool (*read)(const std::string&, Value&),
                                  const std::string& text) {
  return allocations_of([&] {
    Value value;
    if (!read(text, value)) std::abort();
  });
}

// Prints how many times as fast we are, and whether that meets the bar.
void print_ratio(double ours, double theirs, double bar) {
  const double ratio = theirs / ours;
  std::printf("%6.2fx (%s %.2fx)", ratio, ratio >= bar ? "meets" : "MISSES", bar);
}

}  // namespace

int main(int argc, char** argv) {
  zqpool::bench::initialize_for_medians(argc, argv);

  for (const Document& document : documents()) {
    check(document);
    for (const auto& [name, run] : runs) {
      benchmark::RegisterBenchmark(
          (name + "/" + document.name).c_str(),
          [&document, run = run](benchmark::State& state) { run(document, state); });
    }
  }
  zqpool::bench::Median_Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  const auto time = [&reporter](const char* name, const Document& document) {
    return reporter.nanoseconds[std::string(name) + "/" + document.name] / 1e3;
  };
  std::printf("\nMedians of CPU time in microseconds.\n\n%s\n%-4s%10s%12s%12s%12s%21s%20s\n",
              "Reading: text to tree, and the tree's destruction", "doc", "bytes", "ours",
              "RapidJSON", "no tree", "ours to RapidJSON", "allocations");
  for (const Document& document : documents()) {
    const double ours = time("read/json_spirit", document);
    const double theirs = time("read/rapidjson_same_tree", document);
    std::printf("%-4s%10zu%12.3f%12.3f%12.3f ", document.name, document.text.size(), ours, theirs,
                time("read/simdjson_no_tree", document));
    print_ratio(ours, theirs, read_bar);
    std::printf(
        "%9llu to %llu\n",
        static_cast<unsigned long long>(allocations_of_read(json_spirit::read, document.text)),
        static_cast<unsigned long long>(allocations_of_read(rapidjson_read, document.text)));
  }
  std::printf("\nWriting the tree\n%-4s%10s%12s%12s%33s\n", "doc", "bytes", "ours", "RapidJSON",
              "ours to RapidJSON");
  for (const Document& document : documents()) {
    const double ours = time("write/json_spirit", document);
    const double theirs = time("write/rapidjson", document);
    std::printf("%-4s%10zu%12.3f%12.3f%12s ", document.name, document.text.size(), ours, theirs,
                "");
    print_ratio(ours, theirs, document.write_bar);
    std::printf("\n");
  }
  return 0;
}
