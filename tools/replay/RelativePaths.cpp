#include "tools/replay/RelativePaths.hpp"

#include <algorithm>

namespace wayloom::tools {
namespace {

bool isNameCharacter(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x80 || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
         character == '_' || character == '-' || character == '.';
}

}  // namespace

RelativePaths::RelativePaths(std::vector<std::string> folders) : folders_(std::move(folders)) {
  std::erase_if(folders_, [](const std::string& folder) { return folder.size() < 2; });
  std::stable_sort(folders_.begin(), folders_.end(),
                   [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
}

std::string RelativePaths::shorten(std::string_view text) const {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const auto length = text[at] == '/' ? folderLength(text, at) : 0;
    if (length == 0) {
      out += text[at++];
      continue;
    }
    at += length;
    if (text[at - 1] != '/') out += '.';
  }
  return out;
}

// A path begins where no other name goes on before it.
std::size_t RelativePaths::folderLength(std::string_view text, std::size_t at) const {
  if (at > 0 && (isNameCharacter(text[at - 1]) || text[at - 1] == '/')) return 0;
  for (const auto& folder : folders_) {
    if (!text.substr(at).starts_with(folder)) continue;
    const auto end = at + folder.size();
    if (end < text.size() && text[end] == '/') return folder.size() + 1;
    if (end == text.size() || !isNameCharacter(text[end])) return folder.size();
  }
  return 0;
}

}  // namespace wayloom::tools
