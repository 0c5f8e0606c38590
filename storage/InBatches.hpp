#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "wayloom/storage/DatabaseQueue.hpp"

namespace wayloom::storage {

// Executes a statement for each item, a hundred in one transaction: one for each would write a page of the log for
// every row, and one for all would make those who record wait. Returns the items for which it failed.
template <class Item, class Statement>
std::vector<Item> inBatches(DatabaseQueue& queue, const std::vector<Item>& items, const Statement& statement) {
  constexpr std::size_t kBatch = 100;
  std::vector<Item> failed;
  for (std::size_t first = 0; first < items.size(); first += kBatch) {
    const auto begin = items.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end = items.begin() + static_cast<std::ptrdiff_t>(std::min(first + kBatch, items.size()));
    std::vector<Item> refused;
    bool isCommitted = false;
    queue.inTransaction([&](DatabaseConnection& connection, bool&) {
      for (auto item = begin; item != end; ++item)
        if (!statement(connection, *item)) refused.push_back(*item);
      // Here, since the transaction as a whole counts as failed when one statement has.
      isCommitted = connection.executeUpdate("commit");
    });
    if (!isCommitted) refused.assign(begin, end);
    failed.insert(failed.end(), refused.begin(), refused.end());
  }
  return failed;
}

}  // namespace wayloom::storage
