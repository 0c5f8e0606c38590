#include "tools/check/JsonPlaces.hpp"

#include <algorithm>
#include <set>
#include <utility>

#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/JsonParser.hpp"

namespace wayloom::tools {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// Nobody reads more of them, and each has a path of its own.
constexpr std::size_t kMostRepeated = 100;

void appendEscaped(std::string& pointer, std::string_view name) {
  pointer += '/';
  for (const char character : name) {
    if (character == '~')
      pointer += "~0";
    else if (character == '/')
      pointer += "~1";
    else
      pointer += character;
  }
}

// The text between the quotes, or what it stands for if there are escapes in it.
std::string decoded(std::string_view quoted) {
  if (quoted.find('\\') == quoted.npos && quoted.size() >= 2) return std::string(quoted.substr(1, quoted.size() - 2));
  const auto value = platform::Json::parse(quoted, nullptr, false);
  return value.is_string() ? value.get<std::string>() : std::string(quoted);
}

}  // namespace

std::string jsonPointer(const JsonPath& path) {
  std::string pointer;
  for (const auto& name : path) appendEscaped(pointer, name);
  return pointer;
}

// Every loop takes at least one byte a turn or ends, so that no text holds it up.
class JsonPlaces::Scanner {
 public:
  Scanner(std::string_view text, std::vector<Repeated>& repeated) : text_(text), repeated_(repeated) {}

  void run(Wanted& root) {
    if (text_.starts_with(kByteOrderMark)) at_ = kByteOrderMark.size();
    skipBlanks();
    root.offset = at_;
    scanValue(&root);
  }

 private:
  char next() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  bool skip(char character) {
    if (next() != character) return false;
    ++at_;
    return true;
  }

  void skipTo(std::size_t at) { at_ = std::min(at, text_.size()); }
  void skipBlanks() { skipTo(text_.find_first_not_of(" \t\r\n", at_)); }

  std::string_view scanString() {
    const auto begin = at_++;
    for (bool escaped = false; at_ < text_.size() && (escaped || text_[at_] != '"'); ++at_)
      escaped = !escaped && text_[at_] == '\\';
    skipTo(at_ + 1);
    return text_.substr(begin, at_ - begin);
  }

  void scanValue(Wanted* wanted) {
    skipBlanks();
    if (path_.size() > static_cast<std::size_t>(platform::kMaximumJsonDepth)) return skipTo(text_.size());
    switch (next()) {
      case '{':
        return scanObject(wanted);
      case '[':
        return scanArray(wanted);
      case '"':
        scanString();
        return;
      default:
        skipTo(text_.find_first_of(",]} \t\r\n", at_));
    }
  }

  void scanObject(Wanted* wanted) {
    std::set<std::string> names;
    ++at_;
    for (skipBlanks(); next() == '"'; skipBlanks()) {
      const auto begin = at_;
      auto name = decoded(scanString());
      const bool isNew = names.insert(name).second;
      skipBlanks();
      skip(':');
      path_.push_back(std::move(name));
      if (!isNew && repeated_.size() < kMostRepeated) repeated_.push_back({path_, begin});
      scanMember(wanted, begin);
      if (!skip(',')) break;
    }
    skip('}');
  }

  void scanArray(Wanted* wanted) {
    ++at_;
    skipBlanks();
    for (std::size_t index = 0; at_ < text_.size() && next() != ']'; ++index) {
      path_.push_back(std::to_string(index));
      skipBlanks();
      scanMember(wanted, at_);
      if (!skip(',')) break;
    }
    skip(']');
  }

  // The value of the path's last component.
  void scanMember(Wanted* wanted, std::size_t begin) {
    Wanted* member = nullptr;
    if (wanted != nullptr) {
      const auto found = wanted->members.find(path_.back());
      if (found != wanted->members.end()) member = found->second.get();
    }
    if (member != nullptr) member->offset = begin;
    scanValue(member);
    path_.pop_back();
    skipBlanks();
  }

  std::string_view text_;
  std::vector<Repeated>& repeated_;
  std::size_t at_ = 0;
  JsonPath path_;
};

JsonPlaces::JsonPlaces(std::string_view text) : text_(text), lines_{0} {
  for (auto end = text.find('\n'); end != text.npos; end = text.find('\n', end + 1)) lines_.push_back(end + 1);
}

JsonPlaces::~JsonPlaces() = default;

void JsonPlaces::want(const JsonPath& path) {
  Wanted* wanted = &root_;
  for (const auto& name : path) {
    auto& member = wanted->members[name];
    if (!member) member = std::make_unique<Wanted>();
    wanted = member.get();
  }
}

void JsonPlaces::find() { Scanner(text_, repeated_).run(root_); }

std::size_t JsonPlaces::offsetOf(const JsonPath& path) const {
  const Wanted* wanted = &root_;
  std::size_t offset = root_.offset.value_or(0);
  for (const auto& name : path) {
    const auto member = wanted->members.find(name);
    if (member == wanted->members.end() || !member->second->offset) break;
    wanted = member->second.get();
    offset = *wanted->offset;
  }
  return offset;
}

TextPlace JsonPlaces::placeOf(std::size_t offset) const {
  const auto next = std::upper_bound(lines_.begin(), lines_.end(), std::min(offset, text_.size()));
  const auto line = static_cast<std::size_t>(next - lines_.begin());
  return {line, std::min(offset, text_.size()) - lines_[line - 1] + 1};
}

}  // namespace wayloom::tools
