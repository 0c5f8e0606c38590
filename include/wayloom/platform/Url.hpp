// The little that the library needs to know of URLs, which stay plain texts otherwise. Nothing here throws; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace wayloom::platform {

// Whether the text can be a URL: not empty, ASCII without blanks, control characters and the delimiters that a URL must
// escape, and every "%" followed by two hexadecimal digits (RFC 3986, 2).
bool isWellFormedUrl(std::string_view text);

// The percent-decoded path, split at "/"; without the root and empty components. Scheme, host, query and fragment take
// no part. A component never holds a "/", but it may be "..", or hold any other byte.
std::vector<std::string> urlPathComponents(std::string_view url);

// The name of a file that caches what `url` answered: "<prefix>-<path components joined with "-">.data". Nothing for a
// URL that no file should be named after: one with a "." or ".." component or a control character, or a path too long
// for a file name. What is returned is one component of a path, always.
std::optional<std::string> cacheFileNameForUrl(std::string_view prefix, std::string_view url);

// The text without its percent escapes; nothing when one is malformed, or when the result is not UTF-8.
std::optional<std::string> withoutPercentEscapes(std::string_view text);

// The file: URL of an absolute path. Bytes that a URL must escape are escaped.
std::string fileUrlForPath(std::string_view path);

}  // namespace wayloom::platform
