// Values under identifiers, in the order of their addition.
#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace wayloom::ranging {

// Each operation costs the logarithm of the number of values at most, whoever chose the identifiers. Values stay where
// they are until they are removed.
template <class Value>
class IdentifiedList {
 public:
  IdentifiedList() = default;
  IdentifiedList(const IdentifiedList&) = delete;  // the places point into the list
  IdentifiedList& operator=(const IdentifiedList&) = delete;

  std::size_t size() const { return places_.size(); }
  bool empty() const { return places_.empty(); }
  // Of std::pair<const std::string, Value>.
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

  // Null when there is none.
  Value* find(std::string_view identifier) {
    const auto place = places_.find(identifier);
    return place == places_.end() ? nullptr : &place->second->second;
  }

  // At the end; what there was under the identifier.
  Value put(const std::string& identifier, Value value) {
    const auto place = places_.lower_bound(identifier);
    if (place != places_.end() && place->first == identifier) {
      entries_.splice(entries_.end(), entries_, place->second);
      return std::exchange(place->second->second, std::move(value));
    }
    auto& entry = entries_.emplace_back(identifier, std::move(value));
    places_.emplace_hint(place, entry.first, std::prev(entries_.end()));
    return Value();
  }

  // What there was under the identifier.
  Value remove(std::string_view identifier) {
    const auto place = places_.find(identifier);
    if (place == places_.end()) return Value();
    const auto entry = place->second;
    places_.erase(place);
    Value value = std::move(entry->second);
    entries_.erase(entry);
    return value;
  }

  template <class Predicate>
  void eraseIf(Predicate predicate) {
    for (auto entry = entries_.begin(); entry != entries_.end();) {
      if (!predicate(entry->second)) {
        ++entry;
        continue;
      }
      places_.erase(entry->first);
      entry = entries_.erase(entry);
    }
  }

  template <class Visit>
  void forEach(Visit visit) {
    for (auto& entry : entries_) visit(entry.second);
  }

 private:
  using Entries = std::list<std::pair<const std::string, Value>>;

  Entries entries_;
  std::map<std::string_view, typename Entries::iterator> places_;
};

}  // namespace wayloom::ranging
