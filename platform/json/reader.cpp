#include <simdjson.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>

#include "platform/json/json_spirit.h"

namespace json_spirit {

namespace {

namespace dom = simdjson::dom;

// Larger documents are read with a parser of their own: a parser's working memory is some 14 times
// the document, too much for a thread to keep.
constexpr std::size_t kept_document_size = 1U << 20;
constexpr std::size_t smallest_capacity = 1U << 12;

std::atomic<std::size_t> document_size_limit{std::size_t{256} << 20};

// The parser that a thread keeps. Code that runs after a thread's objects are gone may still read
// (destructors of statics do), so the flag, which needs no destruction, says whether it is there.
thread_local bool kept_parser_gone = false;
struct Kept_Parser {
  ~Kept_Parser() { kept_parser_gone = true; }
  std::unique_ptr<dom::parser> parser;
};
thread_local Kept_Parser kept;

std::unique_ptr<dom::parser> make_parser(std::size_t capacity) {
  auto parser = std::make_unique<dom::parser>();
  // The library counts the document itself as a level, and an empty container as none.
  if (parser->allocate(capacity, std::size_t{max_depth} + 1) != simdjson::SUCCESS) {
    throw std::bad_alloc();
  }
  return parser;
}

struct Too_Deep {};

template <typename Emplace>
void add(dom::element element, int depth, Emplace emplace);

void fill(Object& object, dom::object members, int depth) {
  for (const dom::key_value_pair member : members) {
    add(member.value, depth, [&object, &member](auto value) -> Value& {
      const std::size_t size = object.size();
      // Keys that come in order go in at the end without a search.
      const auto place =
          object.try_emplace(object.end(), std::string(member.key), std::move(value));
      // With a key already there `value` was not touched.
      if (object.size() == size) place->second = Value(std::move(value));
      return place->second;
    });
  }
}

void fill(Array& array, dom::array elements, int depth) {
  array.reserve(elements.size());
  for (const dom::element element : elements) {
    add(element, depth,
        [&array](auto value) -> Value& { return array.emplace_back(std::move(value)); });
  }
}

// Hands the content of an element that stands in `depth` containers to `emplace`, which puts it
// into the tree, and goes on inside. The types are known where the content is taken.
template <typename Emplace>
void add(dom::element element, int depth, Emplace emplace) {
  switch (element.type()) {
    case dom::element_type::OBJECT:
      if (depth == max_depth) throw Too_Deep();
      fill(emplace(Object()).get_obj(), element.get_object().value_unsafe(), depth + 1);
      break;
    case dom::element_type::ARRAY:
      if (depth == max_depth) throw Too_Deep();
      fill(emplace(Array()).get_array(), element.get_array().value_unsafe(), depth + 1);
      break;
    case dom::element_type::STRING:
      emplace(element.get_string().value_unsafe());
      break;
    case dom::element_type::INT64:
      emplace(element.get_int64().value_unsafe());
      break;
    case dom::element_type::UINT64:
      emplace(element.get_uint64().value_unsafe());
      break;
    case dom::element_type::DOUBLE:
      emplace(element.get_double().value_unsafe());
      break;
    case dom::element_type::BOOL:
      emplace(element.get_bool().value_unsafe());
      break;
    case dom::element_type::NULL_VALUE:
      emplace(Value());
      break;
  }
}

// Null when the text was read, else why not.
const char* read_text(const std::string& text, Value& value) {
  if (text.size() > max_document_size()) return "the document is too large";
  const std::size_t capacity = std::max(text.size(), smallest_capacity);
  const bool keep = text.size() < kept_document_size && !kept_parser_gone;
  std::unique_ptr<dom::parser> temporary;
  std::unique_ptr<dom::parser>& parser = keep ? kept.parser : temporary;
  if (parser == nullptr) parser = make_parser(capacity);

  static_assert(read_padding >= simdjson::SIMDJSON_PADDING);
  const auto document = parser->parse(text);
  if (document.error() == simdjson::MEMALLOC) {
    // In whatever state a parser is that could not grow, it is not used again.
    parser.reset();
    throw std::bad_alloc();
  }
  if (document.error() != simdjson::SUCCESS) return simdjson::error_message(document.error());

  Value tree;
  try {
    add(document.value_unsafe(), 0, [&tree](auto content) -> Value& {
      tree = Value(std::move(content));
      return tree;
    });
  } catch (const Too_Deep&) {
    return simdjson::error_message(simdjson::DEPTH_ERROR);
  }
  value.swap(tree);
  return nullptr;
}

}  // namespace

std::size_t max_document_size() noexcept {
  return document_size_limit.load(std::memory_order_relaxed);
}

void set_max_document_size(std::size_t bytes) noexcept {
  document_size_limit.store(bytes, std::memory_order_relaxed);
}

bool read(const std::string& text, Value& value) {
  return read_text(text, value) == nullptr;
}

bool read(const std::string& text, Value& value, std::string& error) {
  const char* const failure = read_text(text, value);
  if (failure != nullptr) error = failure;
  return failure == nullptr;
}

}  // namespace json_spirit
