#include <simdjson.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "platform/json/json_spirit.h"

namespace json_spirit {

namespace {

namespace dom = simdjson::dom;

// Larger documents are read with a parser of their own: a parser's working memory is some 14 times
// the document, too much for a thread to keep.
constexpr std::size_t kept_document_size = 1U << 20;
constexpr std::size_t smallest_capacity = 1U << 12;

// Longer lists are read in pieces of about this size.
constexpr std::size_t piece_size = 1U << 15;

constexpr std::string_view blanks = " \t\r\n";

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

// Parses the text and hands its root to `take`. Null when both went well, else why not.
template <typename Take>
const char* parse(const std::string& text, Take take) {
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
  try {
    take(document.value_unsafe());
  } catch (const Too_Deep&) {
    return simdjson::error_message(simdjson::DEPTH_ERROR);
  }
  return nullptr;
}

// The brace and the key with which the first object of a list begins; most lists' other objects
// begin with the same ones. Empty for what is no list of objects.
std::string first_key(std::string_view list) {
  if (list.front() != '[') return {};
  const std::size_t brace = list.find_first_not_of(blanks, 1);
  if (brace == list.npos || list[brace] != '{') return {};
  const std::size_t quote = list.find_first_not_of(blanks, brace + 1);
  if (quote == list.npos || list[quote] != '"') return {};
  const std::size_t end = list.find('"', quote + 1);
  return std::string(list.substr(brace, end == list.npos ? 0 : end + 1 - brace));
}

// The first comma behind a piece's size that seems to stand between two objects of the list.
std::size_t find_cut(std::string_view list, std::string_view key) {
  for (std::size_t at = list.find(key, piece_size); at != list.npos; at = list.find(key, at + 1)) {
    const std::size_t comma = list.find_last_not_of(blanks, at - 1);
    if (comma != 0 && list[comma] == ',') return comma;
  }
  return list.npos;
}

// Reads a long list of objects piece by piece, so that what the parser needs beside the tree does
// not grow with the list. A cut is a guess that proves itself: where what precedes it, closed with
// a bracket, is a list, it lies in no string and no inner list, and the whole is valid when the
// rest is, opened with a bracket. Where it is none, all the rest is read at once. (10,000 LUNs took
// 1.6 times the memory of their tree before, 1.0 times so.)
//
// `own` is null, or the text itself, which takes less room the more of it was read.
const char* read_list(std::string_view text, std::string* own, const std::string& key,
                      Array& list) {
  const std::size_t whole = text.size();
  std::string piece;
  const auto take = [&](dom::element root) {
    const dom::array elements = root.get_array().value_unsafe();
    if (list.empty()) {
      // As many as there will be if all are like these; but a list that begins with its smallest
      // objects gets no more memory than its text has.
      list.reserve(std::min(elements.size() * (whole / piece.size() + 1), whole / sizeof(Value)));
    }
    fill(list, elements, 1);
  };
  const auto drop = [&](std::size_t size) {
    text.remove_prefix(size);
    if (own == nullptr || text.size() > own->size() / 4) return;  // so a third is moved in all
    std::string(text).swap(*own);
    text = *own;
  };
  while (text.size() > piece_size) {
    const std::size_t cut = find_cut(text, key);
    if (cut == text.npos) break;
    piece.reserve(cut + 1 + read_padding);
    piece.assign(1, '[').append(text.substr(1, cut - 1)).append(1, ']');
    if (parse(piece, take) != nullptr) break;
    drop(cut);
  }
  piece.reserve(text.size() + read_padding);
  piece.assign(1, '[').append(text.substr(1));
  drop(text.size());
  return parse(piece, take);
}

// Null when the text was read, else why not. `own` is null, or the text itself to be given up.
const char* read_text(const std::string& text, std::string* own, Value& value) {
  if (text.size() > max_document_size()) return "the document is too large";
  Value tree;
  const char* failure = nullptr;
  const std::string key = text.size() > piece_size ? first_key(text) : std::string();
  if (!key.empty()) {
    tree = Array();
    failure = read_list(text, own, key, tree.get_array());
  } else {
    failure = parse(text, [own, &tree](dom::element root) {
      if (own != nullptr) std::string().swap(*own);
      add(root, 0, [&tree](auto content) -> Value& {
        tree = Value(std::move(content));
        return tree;
      });
    });
  }
  if (failure == nullptr) value.swap(tree);
  return failure;
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
  return read_text(text, nullptr, value) == nullptr;
}

bool read(const std::string& text, Value& value, std::string& error) {
  return succeeded(read_text(text, nullptr, value), error);
}

bool read(std::string&& text, Value& value, std::string& error) {
  std::string own = std::move(text);
  return succeeded(read_text(own, &own, value), error);
}

}  // namespace json_spirit
