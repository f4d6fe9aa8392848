#include <simdjson.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "platform/json/json_spirit.h"

namespace json_spirit {

namespace {

namespace dom = simdjson::dom;

static_assert(read_padding >= simdjson::SIMDJSON_PADDING);

// A parser's working memory is some 14 times its largest document, so a thread keeps a parser only
// for documents below this size.
constexpr std::size_t max_kept_document_size = 1U << 20;
constexpr std::size_t min_capacity = 1U << 12;

std::atomic<std::size_t> document_size_limit{std::size_t{256} << 20};

// The parser that a thread keeps. The flag needs no destruction, so it can still be read by code
// that runs after the thread's objects are gone, such as destructors of statics.
thread_local bool kept_parser_gone = false;
struct Kept_Parser {
  ~Kept_Parser() { kept_parser_gone = true; }
  std::unique_ptr<dom::parser> parser;
};
thread_local Kept_Parser kept;

std::unique_ptr<dom::parser> make_parser(std::size_t capacity) {
  auto parser = std::make_unique<dom::parser>();
  // simdjson counts the document itself as a level, and an empty container as none.
  if (parser->allocate(capacity, std::size_t{max_depth} + 1) != simdjson::SUCCESS) {
    throw std::bad_alloc();
  }
  return parser;
}

// Converts an element nested in `depth` containers. Throws simdjson::simdjson_error for an empty
// container that lies too deep, which the parser lets pass.
Value make_value(dom::element element, int depth) {
  if (depth == max_depth && (element.is_object() || element.is_array())) {
    throw simdjson::simdjson_error(simdjson::DEPTH_ERROR);
  }
  switch (element.type()) {
    case dom::element_type::OBJECT: {
      Object object;
      for (const dom::key_value_pair member : dom::object(element)) {
        // Members that come in order go in at the end without a search.
        object.insert_or_assign(object.end(), std::string(member.key),
                                make_value(member.value, depth + 1));
      }
      return object;
    }
    case dom::element_type::ARRAY: {
      const dom::array elements(element);
      Array array;
      array.reserve(elements.size());
      for (const dom::element inner : elements)
        array.push_back(make_value(inner, depth + 1));
      return array;
    }
    case dom::element_type::STRING:
      return std::string_view(element);
    case dom::element_type::INT64:
      return std::int64_t(element);
    case dom::element_type::UINT64:
      return std::uint64_t(element);
    case dom::element_type::DOUBLE:
      return double(element);
    case dom::element_type::BOOL:
      return bool(element);
    case dom::element_type::NULL_VALUE:
      break;
  }
  return Value();
}

// Returns null, or why the text cannot be read. Frees `spent`, which may be the text itself, before
// the tree is built: the parser has its own copy of the strings.
const char* read_document(const std::string& text, std::string* spent, Value& value) {
  if (text.size() > max_document_size()) return "the document is too large";
  const bool keep = text.size() < max_kept_document_size && !kept_parser_gone;
  std::unique_ptr<dom::parser> temporary;
  std::unique_ptr<dom::parser>& parser = keep ? kept.parser : temporary;
  if (parser == nullptr) parser = make_parser(std::max(text.size(), min_capacity));

  const auto document = parser->parse(text);
  if (document.error() == simdjson::MEMALLOC) {
    // Never reuse a parser after an allocation failure.
    parser.reset();
    throw std::bad_alloc();
  }
  if (document.error() != simdjson::SUCCESS) return simdjson::error_message(document.error());
  if (spent != nullptr) std::string().swap(*spent);
  try {
    value = make_value(document.value_unsafe(), 0);
  } catch (const simdjson::simdjson_error& error) {
    return simdjson::error_message(error.error());
  }
  return nullptr;
}

bool succeeded(const char* failure, std::string& error) {
  if (failure != nullptr) error = failure;
  return failure == nullptr;
}

}  // namespace

std::size_t max_document_size() noexcept {
  return document_size_limit.load(std::memory_order_relaxed);
}

void set_max_document_size(std::size_t bytes) noexcept {
  document_size_limit.store(bytes, std::memory_order_relaxed);
}

bool read(const std::string& text, Value& value) {
  return read_document(text, nullptr, value) == nullptr;
}

bool read(const std::string& text, Value& value, std::string& error) {
  return succeeded(read_document(text, nullptr, value), error);
}

bool read(std::string&& text, Value& value, std::string& error) {
  return succeeded(read_document(text, &text, value), error);
}

}  // namespace json_spirit
