#include "platform/JsonMembers.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace wayloom::platform {
namespace {

using Members = Json::object_t;

// Up to this many members, comparing all names with one another is cheaper than sorting them.
constexpr std::size_t kFewMembers = 12;

bool isAnyTwice(const Members& members) {
  for (std::size_t i = 1; i < members.size(); ++i)
    for (std::size_t j = 0; j < i; ++j)
      if (members.data()[i].first == members.data()[j].first) return true;
  return false;
}

}  // namespace

// By sorting: a hash table can be made quadratic by whoever chooses the names.
void mergeDuplicates(Members& members) {
  if (members.size() <= kFewMembers && !isAnyTwice(members)) return;
  auto* const all = members.data();
  std::vector<std::size_t> sorted(members.size());
  for (std::size_t i = 0; i < sorted.size(); ++i) sorted[i] = i;
  std::sort(sorted.begin(), sorted.end(), [all](std::size_t left, std::size_t right) {
    const int order = all[left].first.compare(all[right].first);
    return order != 0 ? order < 0 : left < right;
  });
  std::vector<bool> goes(members.size());
  std::size_t kept = members.size();
  for (std::size_t begin = 0, end = 0; begin < sorted.size(); begin = end) {
    for (end = begin + 1; end < sorted.size() && all[sorted[end]].first == all[sorted[begin]].first; ++end)
      goes[sorted[end]] = true;
    if (end > begin + 1) all[sorted[begin]].second = std::move(all[sorted[end - 1]].second);
    kept -= end - begin - 1;
  }
  if (kept == members.size()) return;
  Members merged;
  merged.reserve(kept);
  for (std::size_t i = 0; i < members.size(); ++i)
    if (!goes[i]) merged.emplace_back(all[i].first, std::move(all[i].second));
  members = std::move(merged);
}

}  // namespace wayloom::platform
