#pragma once

#include <string_view>

#include "wayloom/platform/PropertyListReader.hpp"

namespace wayloom::posix {

// Property lists in the XML and the binary format. Trusts nothing in them: files of more than 4 MiB, nesting deeper
// than 256, references that loop or multiply, document types with entities of their own, numbers that aren't finite and
// invalid UTF-8 all count as malformed. Of members with one name the last value stands, in the place of the first.
class PlistReader : public platform::PropertyListReader {
 public:
  std::optional<platform::Json> readDictionary(const std::string& path) const override;

  // The same from bytes in memory.
  static std::optional<platform::Json> parseDictionary(std::string_view bytes);
};

}  // namespace wayloom::posix
