#include "storage/DatabaseFaults.hpp"

#include <algorithm>
#include <sqlite3.h>
#include <utility>

#include "wayloom/platform/Platform.hpp"

namespace wayloom::storage {
namespace {

using namespace std::chrono_literals;
constexpr platform::Duration kPatience = 250ms;
constexpr platform::Duration kFirstWait = 1s;
constexpr platform::Duration kLongestWait = 30s;

}  // namespace

DatabaseFaults::DatabaseFaults(platform::Platform& platform, std::string name)
    : platform_(platform), name_(std::move(name)) {}

bool DatabaseFaults::passes(const DatabaseError& error) {
  return error.code == SQLITE_BUSY || error.code == SQLITE_LOCKED || error.code == SQLITE_FULL;
}

void DatabaseFaults::failed(const DatabaseError& error, During during) {
  failing_ = true;
  failsToWrite_ |= during == During::writing;
  const std::uint32_t bit = 1U << (static_cast<unsigned>(error.code) % 32U);
  if ((told_ & bit) != 0) return;
  told_ |= bit;
  if (during == During::setUp) platform_.systemLog().write("Woah, SQL failed!");
  platform_.systemLog().write("Database " + name_ + " can't be used: " + error.message + " (" +
                              std::to_string(error.code) + "); what happens meanwhile is not recorded");
}

void DatabaseFaults::succeeded(bool hasWritten) {
  if (!failing_ || (failsToWrite_ && !hasWritten)) return;
  platform_.systemLog().write("Database " + name_ +
                              " can be used again; changes lost meanwhile: " + std::to_string(lost_));
  failing_ = false;
  failsToWrite_ = false;
  told_ = 0;
  lost_ = 0;
  wait_ = {};
  notBefore_.reset();
}

bool DatabaseFaults::mayOpen() const { return !notBefore_ || platform_.monotonicClock().now() >= *notBefore_; }

void DatabaseFaults::couldNotOpen() {
  wait_ = std::clamp(wait_ * 2, kFirstWait, kLongestWait);
  notBefore_ = platform_.monotonicClock().now() + wait_;
}

platform::Duration DatabaseFaults::patience() const { return failing_ ? platform::Duration::zero() : kPatience; }

}  // namespace wayloom::storage
