#include "platform/JsonMembers.hpp"

#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace wayloom::platform {
namespace {

using Members = Json::object_t;

// Up to this many members, comparing all names with one another is cheaper than hashing them.
constexpr std::size_t kFewMembers = 12;

bool hasDuplicates(const Members& members) {
  if (members.size() <= kFewMembers) {
    for (std::size_t i = 1; i < members.size(); ++i)
      for (std::size_t j = 0; j < i; ++j)
        if (members.data()[i].first == members.data()[j].first) return true;
    return false;
  }
  std::unordered_set<std::string_view> names(members.size());
  for (const auto& [name, value] : members)
    if (!names.emplace(name).second) return true;
  return false;
}

}  // namespace

void mergeDuplicates(Members& members) {
  if (!hasDuplicates(members)) return;
  Members merged;
  merged.reserve(members.size());
  std::unordered_map<std::string_view, std::size_t> places(members.size());
  for (auto& [name, value] : members) {
    const auto [place, isNew] = places.emplace(name, merged.size());
    if (isNew)
      merged.emplace_back(name, std::move(value));
    else
      merged.data()[place->second].second = std::move(value);
  }
  members = std::move(merged);
}

}  // namespace wayloom::platform
