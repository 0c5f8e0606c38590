// The XML format, and as much of XML as it uses: elements, character data, CDATA sections, the predefined entities and
// character references; comments, processing instructions and a document type without declarations are passed over.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <utility>

#include "backends/posix/PlistFormats.hpp"
#include "platform/JsonMembers.hpp"

namespace wayloom::posix {
namespace {

using platform::Json;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const auto begin = std::min(text.find_first_not_of(kBlanks), text.size());
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

template <class Number>
bool readWhole(std::string_view text, Number& number, int base) {
  const auto outcome = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return outcome.ec == std::errc() && outcome.ptr == text.data() + text.size();
}

bool readInteger(std::string_view text, Json& target) {
  text = trimmed(text);
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) text.remove_prefix(1);
  const int base = text.starts_with("0x") || text.starts_with("0X") ? 16 : 10;
  if (base == 16) text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  if (!readWhole(text, magnitude, base)) return false;
  constexpr auto kLargestNegative = std::uint64_t{1} << 63U;
  if (isNegative && magnitude > kLargestNegative) return false;
  target = magnitude;
  if (isNegative) target = static_cast<std::int64_t>(0 - magnitude);
  return true;
}

bool readReal(std::string_view text, Json& target) {
  text = trimmed(text);
  if (text.starts_with('+')) text.remove_prefix(1);
  if (text.find_first_not_of("+-.0123456789eE") != text.npos) return false;  // "inf", "nan"
  double number = 0.0;
  const auto outcome = std::from_chars(text.data(), text.data() + text.size(), number);
  target = number;
  return outcome.ec == std::errc() && outcome.ptr == text.data() + text.size();
}

// "2015-01-30T16:09:32Z", to seconds since 1970.
bool readDate(std::string_view text, Json& target) {
  text = trimmed(text);
  constexpr std::string_view kPattern = "0000-00-00T00:00:00Z";
  if (text.size() != kPattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (kPattern[i] == '0' ? text[i] < '0' || text[i] > '9' : text[i] != kPattern[i]) return false;
  const auto field = [&](std::size_t begin, std::size_t length) {
    unsigned number = 0;
    readWhole(text.substr(begin, length), number, 10);
    return number;
  };
  const std::chrono::year_month_day day(std::chrono::year(static_cast<int>(field(0, 4))),
                                        std::chrono::month(field(5, 2)), std::chrono::day(field(8, 2)));
  const auto seconds = field(11, 2) * 3600 + field(14, 2) * 60 + field(17, 2);
  if (!day.ok() || field(11, 2) > 23 || field(14, 2) > 59 || field(17, 2) > 60) return false;
  target = static_cast<double>(std::chrono::sys_days(day).time_since_epoch().count()) * 86'400.0 + seconds;
  return true;
}

bool readData(std::string_view text, Json& target) {
  std::string digits;
  for (const char character : text)
    if (kBlanks.find(character) == kBlanks.npos) digits.push_back(character);
  const auto length = std::min(digits.find('='), digits.size());
  const auto isDigit = [](char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
           (character >= '0' && character <= '9') || character == '+' || character == '/';
  };
  if (digits.size() % 4 != 0 || digits.size() - length > 2 || digits.find_first_not_of('=', length) != digits.npos ||
      !std::all_of(digits.begin(), digits.begin() + static_cast<std::ptrdiff_t>(length), isDigit))
    return false;
  target = std::move(digits);
  return true;
}

class XmlPlist {
 public:
  explicit XmlPlist(std::string_view text) : rest_(text) {}

  std::optional<Json> parse() {
    std::optional<Json> value(std::in_place);
    Tag tag;
    const bool isComplete = readTag(tag) && tag.opens("plist") && readTag(tag) && readValue(tag, *value, 1) &&
                            readTag(tag) && tag.closes("plist") && skipMarkup() && rest_.empty();
    return isComplete ? std::move(value) : std::nullopt;
  }

 private:
  struct Tag {
    std::string_view name;
    bool isClosing = false;
    bool isEmpty = false;
    bool opens(std::string_view wanted) const { return name == wanted && !isClosing && !isEmpty; }
    bool closes(std::string_view wanted) const { return name == wanted && isClosing; }
  };

  // Drops what is up to and including `end`; false when there is none.
  bool skipPast(std::string_view end) {
    const auto place = rest_.find(end);
    if (place == rest_.npos) return false;
    rest_.remove_prefix(place + end.size());
    return true;
  }

  bool takePrefix(std::string_view prefix) {
    if (!rest_.starts_with(prefix)) return false;
    rest_.remove_prefix(prefix.size());
    return true;
  }

  // A document type's own declarations could define entities that multiply: not accepted.
  bool skipDocumentType() {
    const auto end = rest_.find_first_of("[>");
    if (end == rest_.npos || rest_[end] == '[') return false;
    rest_.remove_prefix(end + 1);
    return true;
  }

  // Blanks and all markup that is no tag; false when some of it never ends.
  bool skipMarkup() {
    for (;;) {
      rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
      if (takePrefix("<!--")) {
        if (!skipPast("-->")) return false;
      } else if (takePrefix("<?")) {
        if (!skipPast("?>")) return false;
      } else if (takePrefix("<!DOCTYPE")) {
        if (!skipDocumentType()) return false;
      } else {
        return true;
      }
    }
  }

  bool readTag(Tag& tag) {
    if (!skipMarkup() || !takePrefix("<")) return false;
    const auto end = rest_.find('>');
    if (end == rest_.npos) return false;
    auto content = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    tag.isClosing = content.starts_with('/');
    if (tag.isClosing) content.remove_prefix(1);
    tag.isEmpty = content.ends_with('/');
    if (tag.isEmpty) content.remove_suffix(1);
    tag.name = content.substr(0, content.find_first_of(kBlanks));  // attributes mean nothing here
    return !tag.name.empty();
  }

  // The characters up to the closing tag.
  bool readText(const Tag& tag, std::string& text) {
    while (!tag.isEmpty) {
      const auto place = rest_.find_first_of("<&");
      if (place == rest_.npos) return false;
      text.append(rest_.substr(0, place));
      rest_.remove_prefix(place);
      if (rest_.starts_with('&')) {
        if (!readEntity(text)) return false;
      } else if (takePrefix("<![CDATA[")) {
        const auto begin = rest_;
        if (!skipPast("]]>")) return false;
        text.append(begin.substr(0, begin.size() - rest_.size() - 3));
      } else if (takePrefix("<!--")) {
        if (!skipPast("-->")) return false;
      } else {
        Tag closing;
        return readTag(closing) && closing.closes(tag.name);
      }
    }
    return true;
  }

  bool readEntity(std::string& text) {
    constexpr std::pair<std::string_view, char> kEntities[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    constexpr std::size_t kLongestEntity = 12;
    const auto end = rest_.substr(0, kLongestEntity).find(';');
    if (end == rest_.npos) return false;
    auto name = rest_.substr(1, end - 1);
    rest_.remove_prefix(end + 1);
    for (const auto& [known, character] : kEntities) {
      if (name != known) continue;
      text.push_back(character);
      return true;
    }
    if (!name.starts_with('#')) return false;
    name.remove_prefix(1);
    const int base = name.starts_with('x') ? 16 : 10;
    if (base == 16) name.remove_prefix(1);
    std::uint32_t codePoint = 0;
    return readWhole(name, codePoint, base) && codePoint != 0 && appendUtf8(text, codePoint);
  }

  bool readValue(const Tag& tag, Json& target, int depth) {
    if (tag.isClosing || depth > kMaximumPlistDepth) return false;
    if (tag.name == "dict") return readDictionary(tag, target, depth);
    if (tag.name == "array") return readArray(tag, target, depth);
    std::string text;
    if (!readText(tag, text)) return false;
    if (tag.name == "true" || tag.name == "false") {
      target = tag.name == "true";
      return trimmed(text).empty();
    }
    if (tag.name == "integer") return readInteger(text, target);
    if (tag.name == "real") return readReal(text, target);
    if (tag.name == "date") return readDate(text, target);
    if (tag.name == "data") return readData(text, target);
    target = std::move(text);
    return tag.name == "string";
  }

  bool readArray(const Tag& tag, Json& target, int depth) {
    target = Json::array();
    auto& elements = target.get_ref<Json::array_t&>();
    while (!tag.isEmpty) {
      Tag next;
      if (!readTag(next)) return false;
      if (next.closes("array")) break;
      if (!readValue(next, elements.emplace_back(), depth + 1)) return false;
    }
    return true;
  }

  bool readDictionary(const Tag& tag, Json& target, int depth) {
    target = Json::object();
    auto& members = target.get_ref<Json::object_t&>();
    while (!tag.isEmpty) {
      Tag next;
      std::string key;
      if (!readTag(next)) return false;
      if (next.closes("dict")) break;
      if (next.isClosing || next.name != "key" || !readText(next, key) || !readTag(next)) return false;
      if (!readValue(next, members.emplace_back(std::move(key), Json()).second, depth + 1)) return false;
    }
    platform::mergeDuplicates(members);
    return true;
  }

  std::string_view rest_;
};

}  // namespace

std::optional<Json> parseXmlPlist(std::string_view text) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  if (!isUtf8(text)) return std::nullopt;
  return XmlPlist(text).parse();
}

}  // namespace wayloom::posix
