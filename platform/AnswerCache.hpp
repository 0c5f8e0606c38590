#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "wayloom/platform/Error.hpp"
#include "wayloom/platform/FileManager.hpp"

namespace wayloom::platform {

// The last good answer of each address, in the Documents directory: "<prefix>-<components of the URL's path, joined
// with
// '-'>.data". Host, query and some paths don't show in that name, so a file beside it says of which address it is, and
// no other address is answered from it. An answer without such a file counts for every address of its name. Any thread;
// nobody else writes the files of a prefix meanwhile.
class AnswerCache {
 public:
  AnswerCache(FileManager& files, std::string prefix) : files_(files), prefix_(std::move(prefix)) {}

  // Nothing when the URL's path can't name a file.
  std::optional<std::string> fileNameFor(std::string_view url) const;
  std::optional<std::string> pathFor(std::string_view url) const;

  // Where no file can be named, nothing is kept, which is no error.
  std::optional<Error> write(std::string_view url, std::string_view answer);
  std::optional<std::string> read(std::string_view url) const;

 private:
  FileManager& files_;
  std::string prefix_;
};

}  // namespace wayloom::platform
