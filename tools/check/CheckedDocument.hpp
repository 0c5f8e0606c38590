#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "wayloom/platform/Json.hpp"

#include "tools/check/JsonPlaces.hpp"

namespace wayloom::tools {

enum class Severity {
  error,    // something will not work
  warning,  // something is probably not meant so
  note      // good to know
};
std::string_view nameOf(Severity severity);

// What is said about one place in a venue folder.
struct Finding {
  Severity severity = Severity::error;
  std::string file = {};
  TextPlace place = {};      // none when it is about the file as a whole
  std::string pointer = {};  // of the JSON value; empty when it is the whole document, or none
  std::string message = {};
};

// "path:line:column: severity: message [pointer]", in one line whatever is in it.
std::string textOf(const Finding& finding);
platform::Json jsonOf(const Finding& finding);

// The text between quotes, as one can print it; of a long one the beginning.
std::string inQuotes(std::string_view text);

// A JSON file that is being judged. What is told about its values becomes findings, with their places, when it is done.
class CheckedDocument {
 public:
  // Reads the file; where that fails, the finding says why.
  explicit CheckedDocument(std::string file, Severity whenMissing = Severity::error);

  // Null when it can't be read.
  const platform::Json* json() const { return json_ ? &*json_ : nullptr; }
  const std::string& file() const { return file_; }

  void tell(Severity severity, JsonPath path, std::string message);

  // Hands over all findings, in the order of their places.
  std::vector<Finding> findings() const;

 private:
  struct Told {
    Severity severity;
    JsonPath path;
    std::string message;
  };

  void parse();

  std::string file_;
  std::string text_;
  std::optional<platform::Json> json_;
  std::optional<Finding> unreadable_;
  std::vector<Told> told_;
};

}  // namespace wayloom::tools
