#include "storage/DatabaseFaults.hpp"

#include <sqlite3.h>
#include <utility>

#include "wayloom/platform/Platform.hpp"

namespace wayloom::storage {
namespace {

using namespace std::chrono_literals;
constexpr platform::Duration kPatience = 250ms;
constexpr platform::Duration kStatementsToldFor = 1h;

}  // namespace

DatabaseFaults::DatabaseFaults(platform::Platform& platform, std::string name)
    : platform_(platform), name_(std::move(name)) {}

DatabaseFaults::Reach DatabaseFaults::reachOf(const DatabaseError& error) {
  switch (error.code) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_FULL:
      return Reach::passing;
    case SQLITE_CANTOPEN:
    case SQLITE_IOERR:
    case SQLITE_NOTADB:
    case SQLITE_PROTOCOL:
    case SQLITE_READONLY:
      return Reach::connection;
    default:
      return Reach::statement;
  }
}

void DatabaseFaults::failed(const DatabaseError& error, bool wasWriting) {
  const auto reason = error.message + " (" + std::to_string(error.code) + ")";
  if (reachOf(error) == Reach::statement) {
    // The statements that still work must not make it news again each time.
    const auto now = platform_.monotonicClock().now();
    if (toldOfStatementAt_ && now - *toldOfStatementAt_ > kStatementsToldFor) toldOfStatement_ = 0;
    toldOfStatementAt_ = now;
    return sayOnce(error, toldOfStatement_, "Database " + name_ + ": a statement failed: " + reason);
  }
  failing_ = true;
  failsToWrite_ |= wasWriting;
  sayOnce(error, told_, "Database " + name_ + " can't be used: " + reason + "; what happens meanwhile is not recorded");
}

void DatabaseFaults::setUpFailed(const DatabaseError& error) {
  const auto& told = reachOf(error) == Reach::statement ? toldOfStatement_ : told_;
  if ((told & bitOf(error)) == 0) platform_.systemLog().write("Woah, SQL failed!");
  failed(error, false);
}

void DatabaseFaults::sayOnce(const DatabaseError& error, std::uint32_t& told, const std::string& line) {
  if ((std::exchange(told, told | bitOf(error)) & bitOf(error)) == 0) platform_.systemLog().write(line);
}

std::uint32_t DatabaseFaults::bitOf(const DatabaseError& error) {
  return 1U << (static_cast<unsigned>(error.code) % 32U);
}

void DatabaseFaults::succeeded(bool hasWritten) {
  if (!failing_ || (failsToWrite_ && !hasWritten)) return;
  platform_.systemLog().write("Database " + name_ +
                              " can be used again; changes lost meanwhile: " + std::to_string(lost_));
  failing_ = false;
  failsToWrite_ = false;
  told_ = 0;
  lost_ = 0;
  pause_.end();
}

bool DatabaseFaults::mayOpen() const { return pause_.isOver(platform_.monotonicClock().now()); }

void DatabaseFaults::couldNotOpen() { pause_.lengthen(platform_.monotonicClock().now()); }

platform::Duration DatabaseFaults::patience() const { return failing_ ? platform::Duration::zero() : kPatience; }

}  // namespace wayloom::storage
