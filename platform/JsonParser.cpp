// Two ways to one result. The fast one reads the whole text with simdjson and copies its tape. The careful one, a SAX
// handler behind the Json type's own parser, is slower but knows where a text is wrong and reads integers of any
// length; it takes over whenever the fast one refuses, and for documents whose tape would need too much memory.
#include "wayloom/platform/JsonParser.hpp"

#include <algorithm>
#include <new>
#include <simdjson.h>
#include <utility>
#include <vector>

#include "platform/JsonMembers.hpp"

namespace wayloom::platform {
namespace {

namespace dom = simdjson::dom;
using Members = Json::object_t;
using Elements = Json::array_t;

// simdjson reserves up to twelve times the size of the text as address space.
constexpr std::size_t kLargestFastDocument = 64U << 20U;
constexpr std::size_t kLongestReason = 160;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

void copyElement(dom::element element, Json& target);

void copyArray(const dom::array& source, Json& target) {
  target = Json::array();
  auto& elements = target.get_ref<Elements&>();
  elements.reserve(source.size());
  for (const auto element : source) copyElement(element, elements.emplace_back());
}

void copyObject(const dom::object& source, Json& target) {
  target = Json::object();
  auto& members = target.get_ref<Members&>();
  members.reserve(source.size());
  for (const auto& field : source) copyElement(field.value, members.emplace_back(field.key, Json()).second);
  mergeDuplicates(members);
}

// The recursion ends at kMaximumJsonDepth. Integers that are not negative are unsigned, as the Json type's parser has
// them.
void copyElement(dom::element element, Json& target) {
  switch (element.type()) {
    case dom::element_type::ARRAY:
      return copyArray(element.get_array().value_unsafe(), target);
    case dom::element_type::OBJECT:
      return copyObject(element.get_object().value_unsafe(), target);
    case dom::element_type::STRING:
      target = element.get_string().value_unsafe();
      return;
    case dom::element_type::INT64: {
      const std::int64_t number = element.get_int64().value_unsafe();
      if (number < 0)
        target = number;
      else
        target = static_cast<std::uint64_t>(number);
      return;
    }
    case dom::element_type::UINT64:
      target = element.get_uint64().value_unsafe();
      return;
    case dom::element_type::DOUBLE:
      target = element.get_double().value_unsafe();
      return;
    case dom::element_type::BOOL:
      target = element.get_bool().value_unsafe();
      return;
    case dom::element_type::NULL_VALUE:
      target = nullptr;
      return;
  }
}

// No less than the number of values: each but the first comes behind one of these.
std::size_t mostElements(std::string_view text) {
  return 1 + static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char character) {
           return character == ',' || character == '[' || character == '{';
         }));
}

// Whether there are too many values is known here only after memory was spent on them.
std::optional<Json> parseFast(std::string_view text, const DocumentLimits& limits) {
  if (text.size() > kLargestFastDocument) return std::nullopt;
  if (limits.elements < text.size() && mostElements(text) > limits.elements) return std::nullopt;
  dom::parser parser;
  // Its own count has the document as a level but not an empty innermost container: up to the limit either way.
  if (parser.allocate(text.size(), kMaximumJsonDepth) != simdjson::SUCCESS) return std::nullopt;
  dom::element root;
  if (parser.parse(text.data(), text.size()).get(root) != simdjson::SUCCESS) return std::nullopt;
  std::optional<Json> value(std::in_place);
  copyElement(root, *value);
  return value;
}

// Builds the value from the events of the Json type's parser, which keeps its own state off the call stack.
class DocumentBuilder : public nlohmann::json_sax<Json> {
 public:
  explicit DocumentBuilder(std::size_t maximumElements) : maximumElements_(maximumElements) {}
  DocumentBuilder(const DocumentBuilder&) = delete;
  DocumentBuilder& operator=(const DocumentBuilder&) = delete;

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(value); }
  bool number_unsigned(number_unsigned_t value) override { return add(value); }
  bool number_float(number_float_t value, const string_t&) override { return add(value); }
  bool string(string_t& value) override { return add(std::move(value)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return open(Json::object()); }
  bool start_array(std::size_t) override { return open(Json::array()); }
  bool key(string_t& name) override {
    name_ = std::move(name);
    return true;
  }
  bool end_object() override {
    mergeDuplicates(open_.back()->get_ref<Members&>());
    return end_array();
  }
  bool end_array() override {
    open_.pop_back();
    return true;
  }
  bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& failure) override {
    error_ = "byte " + std::to_string(position) + ": " + reasonOf(failure.what());
    return false;
  }

  JsonParseResult result(bool complete) && {
    if (complete) return {std::move(root_), {}};
    return {std::nullopt, std::move(error_)};
  }

 private:
  // The parser's text without its own prefix and without what it read last, which can be long and is not to be trusted.
  static std::string reasonOf(std::string_view text) {
    if (const auto prefix = text.find("column "); prefix != text.npos) text.remove_prefix(text.find(": ", prefix) + 2);
    if (const auto prefix = text.find("] "); prefix != text.npos && text.starts_with('['))
      text.remove_prefix(prefix + 2);
    text = text.substr(0, std::min(text.find("; last read"), kLongestReason));
    std::string reason(text);
    for (auto& character : reason)
      if (character < ' ' || character > '~') character = '?';
    return reason;
  }

  bool refuse(const char* what, std::size_t limit) {
    error_ = what + std::to_string(limit);
    return false;
  }

  template <class Value>
  bool add(Value&& value) {
    if (++elements_ > maximumElements_) return refuse("a document of more values than ", maximumElements_);
    place(std::forward<Value>(value));
    return true;
  }

  bool open(Json container) {
    if (open_.size() >= static_cast<std::size_t>(kMaximumJsonDepth))
      return refuse("nested deeper than ", kMaximumJsonDepth);
    if (++elements_ > maximumElements_) return refuse("a document of more values than ", maximumElements_);
    open_.push_back(&place(std::move(container)));
    return true;
  }

  template <class Value>
  Json& place(Value&& value) {
    if (open_.empty()) return root_ = std::forward<Value>(value);
    auto& container = *open_.back();
    if (container.is_array()) return container.get_ref<Elements&>().emplace_back(std::forward<Value>(value));
    return container.get_ref<Members&>().emplace_back(std::move(name_), std::forward<Value>(value)).second;
  }

  const std::size_t maximumElements_;
  std::size_t elements_ = 0;
  Json root_;
  std::vector<Json*> open_;  // the containers that are being filled, outermost first
  std::string name_;
  std::string error_;
};

JsonParseResult parseCarefully(std::string_view text, const DocumentLimits& limits) {
  // The Json type's parser would take a zero byte for the end of the text.
  if (const auto zero = text.find('\0'); zero != text.npos)
    return {std::nullopt, "byte " + std::to_string(zero + 1) + ": a zero byte"};
  DocumentBuilder builder(limits.elements);
  const bool complete = Json::sax_parse(text.begin(), text.end(), &builder);
  return std::move(builder).result(complete);
}

}  // namespace

JsonParseResult parseJson(std::string_view text, const DocumentLimits& limits) {
  if (text.size() > limits.bytes)
    return {std::nullopt, "a document of more bytes than " + std::to_string(limits.bytes)};
  try {
    const auto markLength = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    if (auto value = parseFast(text.substr(markLength), limits)) return {std::move(value), {}};
    return parseCarefully(text, limits);  // skips the mark itself, and counts it
  } catch (const std::bad_alloc&) {
    return {std::nullopt, "byte 0: not enough memory for the document"};
  }
}

}  // namespace wayloom::platform
