#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace wayloom::tools {

// The way to a value of a JSON document: member names and, in arrays, indices in decimal.
using JsonPath = std::vector<std::string>;

// As a JSON pointer (RFC 6901), empty for the whole document.
std::string jsonPointer(const JsonPath& path);

// Lines and columns count from 1, columns in bytes; 0 stands for none.
struct TextPlace {
  std::size_t line = 0;
  std::size_t column = 0;
};

// Says where in a document's text its values are. What is parsed has lost that, so the text is gone through again, once
// for all values asked for: in proportion to its length, however many they are.
class JsonPlaces {
 public:
  // A member that its object has had before.
  struct Repeated {
    JsonPath path;
    std::size_t offset;
  };

  // The text must outlive this, and is one that parseJson takes; of any other the places are of no use.
  explicit JsonPlaces(std::string_view text);
  ~JsonPlaces();
  JsonPlaces(const JsonPlaces&) = delete;
  JsonPlaces& operator=(const JsonPlaces&) = delete;

  void want(const JsonPath& path);
  void find();

  // After find(). Byte offset of a wanted value, a member's at its name; of one that isn't there, that of the innermost
  // container on the way to it. Of values in repeated members the last.
  std::size_t offsetOf(const JsonPath& path) const;
  // The first hundred.
  const std::vector<Repeated>& repeated() const { return repeated_; }

  TextPlace placeOf(std::size_t offset) const;

 private:
  // A tree of the wanted paths.
  struct Wanted {
    std::optional<std::size_t> offset = {};
    std::map<std::string, std::unique_ptr<Wanted>, std::less<>> members = {};
  };
  class Scanner;

  std::string_view text_;
  std::vector<std::size_t> lines_;  // offsets of their beginnings
  Wanted root_;
  std::vector<Repeated> repeated_;
};

}  // namespace wayloom::tools
