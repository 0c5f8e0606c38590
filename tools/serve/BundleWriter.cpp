#include "tools/serve/BundleWriter.hpp"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <plist/plist.h>
#include <utility>
#include <vector>

#include "backends/posix/PosixFiles.hpp"

namespace wayloom::tools {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestPropertyList = 4U << 20U;

using Members = std::vector<std::pair<const char*, std::string>>;

// The list with these texts in its dictionary, as XML; empty when it is none. Other members stay, whatever they are.
std::string withMembers(const std::string& list, const Members& members) {
  plist_t parsed = nullptr;
  plist_from_memory(list.data(), static_cast<std::uint32_t>(list.size()), &parsed);
  const std::unique_ptr<void, void (*)(plist_t)> root(parsed, plist_free);
  if (!root || plist_get_node_type(parsed) != PLIST_DICT) return {};
  for (const auto& [key, value] : members) plist_dict_set_item(parsed, key, plist_new_string(value.c_str()));
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(parsed, &text, &length);
  const std::unique_ptr<char, void (*)(char*)> owner(text, plist_to_xml_free);
  return text == nullptr ? std::string() : std::string(text, length);
}

std::string pointPropertyList(const fs::path& path, const Members& members) {
  const auto content = posix::readRegularFile(posix::absolutePath(path), kLargestPropertyList);
  if (!content) return {};  // a bundle needn't have both
  const auto pointed = withMembers(*content, members);
  if (pointed.empty()) return path.string() + ": no property list with a dictionary";
  const auto error = posix::writeWholeFile(posix::absolutePath(path), pointed);
  return error ? error->description : std::string();
}

// Whether the folder, which needn't be there yet, is the other one or somewhere in it.
bool isWithin(const fs::path& folder, const fs::path& other) {
  std::error_code failure;
  const auto inner = fs::weakly_canonical(folder, failure);
  const auto outer = fs::canonical(other, failure);
  return !failure && std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

}  // namespace

std::string writeBundle(const VenueEndpoints& endpoints, const std::string& base, const std::string& folder) {
  const fs::path bundle = endpoints.venue() + "/bundle";
  if (isWithin(folder, bundle)) return folder + ": is in the venue's own bundle, which stays as it is";
  std::error_code failure;
  fs::create_directories(folder, failure);
  fs::copy(bundle, folder, fs::copy_options::recursive | fs::copy_options::overwrite_existing, failure);
  if (failure) return "can't copy " + bundle.string() + " to " + folder + ": " + failure.message();
  Members members = {{"GFKitURL", endpoints.kitUrl(base)}, {"GFAnalyticsURL", endpoints.analyticsUrl(base)}};
  if (auto error = pointPropertyList(folder + "/Geofold.plist", members); !error.empty()) return error;
  members.emplace_back("WLMapConfigURL", endpoints.mapConfigUrl(base));
  return pointPropertyList(folder + "/Wayloom.plist", members);
}

}  // namespace wayloom::tools
