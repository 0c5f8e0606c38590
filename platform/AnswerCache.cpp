#include "platform/AnswerCache.hpp"

#include "wayloom/platform/Url.hpp"

namespace wayloom::platform {
namespace {

// Beside "x.data" stands "x.url".
std::string addressFileOf(const std::string& path) { return path.substr(0, path.rfind('.')) + ".url"; }

// What the server is asked for; the fragment isn't sent.
std::string_view addressOf(std::string_view url) { return url.substr(0, url.find('#')); }

}  // namespace

std::optional<std::string> AnswerCache::fileNameFor(std::string_view url) const {
  return cacheFileNameForUrl(prefix_, url);
}

std::optional<std::string> AnswerCache::pathFor(std::string_view url) const {
  const auto name = fileNameFor(url);
  return name ? std::optional(files_.documentsDirectory() + "/" + *name) : std::nullopt;
}

// Whenever this is interrupted, the answer that is there belongs to the address that is there.
std::optional<Error> AnswerCache::write(std::string_view url, std::string_view answer) {
  const auto path = pathFor(url);
  if (!path) return std::nullopt;
  const auto owner = files_.readFile(addressFileOf(*path));
  if (owner != addressOf(url)) {
    if (owner && files_.fileExists(*path))
      if (auto error = files_.removeFile(*path)) return error;
    if (auto error = files_.writeFileAtomically(addressFileOf(*path), addressOf(url))) return error;
  }
  return files_.writeFileAtomically(*path, answer);
}

std::optional<std::string> AnswerCache::read(std::string_view url) const {
  const auto path = pathFor(url);
  if (!path) return std::nullopt;
  const auto owner = files_.readFile(addressFileOf(*path));
  return !owner || *owner == addressOf(url) ? files_.readFile(*path) : std::nullopt;
}

}  // namespace wayloom::platform
