#include "backends/linux/FixDriver.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "wayloom/posix/PosixClocks.hpp"

#include "backends/linux/BusValues.hpp"

namespace wayloom::linux_ {
namespace {

using platform::CLLocation;

constexpr const char* kService = "org.freedesktop.GeoClue2";
constexpr const char* kManagerPath = "/org/freedesktop/GeoClue2/Manager";
constexpr const char* kManager = "org.freedesktop.GeoClue2.Manager";
constexpr const char* kClient = "org.freedesktop.GeoClue2.Client";
constexpr const char* kLocation = "org.freedesktop.GeoClue2.Location";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr std::uint32_t kExact = 8;
// Metres. The service says 0 for a dilution of precision of up to 1; no receiver knows its place that well.
constexpr double kBestAccuracy = 5.0;
constexpr platform::Duration kGathering = std::chrono::milliseconds(50);

// Every fix, at most one a second: filters by distance are applied behind the geofences.
struct Setting {
  const char* name;
  std::uint32_t value;
};
constexpr std::array<Setting, 3> kSettings = {
    {{"RequestedAccuracyLevel", kExact}, {"DistanceThreshold", 0}, {"TimeThreshold", 1}}};

// (seconds, microseconds) since 1970.
void readTimestamp(sdbus::Message& message, CLLocation& fix) {
  if (variantContent(message) != "(tt)") return skipVariant(message);
  std::uint64_t seconds = 0;
  std::uint64_t microseconds = 0;
  message.enterVariant("(tt)").enterStruct("tt");
  message >> seconds >> microseconds;
  message.exitStruct().exitVariant();
  fix.timestamp =
      platform::calendarTimeFromSeconds(static_cast<double>(seconds) + 1e-6 * static_cast<double>(microseconds));
}

CLLocation readFix(sdbus::Message& message) {
  CLLocation fix{.coordinate = {}, .horizontalAccuracy = -1.0, .timestamp = posix::PosixCalendarClock().now()};
  forEachProperty(message, [&](std::string_view key) {
    if (key == "Timestamp") return readTimestamp(message, fix);
    auto* number = key == "Latitude"    ? &fix.coordinate.latitude
                   : key == "Longitude" ? &fix.coordinate.longitude
                   : key == "Accuracy"  ? &fix.horizontalAccuracy
                                        : nullptr;
    if (number == nullptr) return skipVariant(message);
    readVariant(message, "d", *number);
  });
  return fix;
}

}  // namespace

FixDriver::FixDriver(GeoClueOptions options, FixCallbacks callbacks)
    : options_(std::move(options)),
      callbacks_(std::move(callbacks)),
      bus_({options_.bus, kGathering, options_.retry}, *this) {
  bus_.start(matches());
}

std::vector<BusMatch> FixDriver::matches() {
  return {{"type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',member='NameOwnerChanged',"
           "arg0='org.freedesktop.GeoClue2'",
           [this](sdbus::Message& message) { onOwnerChanged(message); }},
          {"type='signal',sender='org.freedesktop.GeoClue2',interface='org.freedesktop.GeoClue2.Client',"
           "member='LocationUpdated'",
           [this](sdbus::Message& message) { onLocationUpdated(message); }}};
}

// The service ends by itself when nobody uses it, and may crash when somebody does.
void FixDriver::onOwnerChanged(sdbus::Message& message) {
  std::string name;
  std::string before;
  std::string owner;
  message >> name >> before >> owner;
  if (!owner.empty()) return;
  bus_.tasks().mainQueue().async([this] {
    if (client_.empty()) return;
    client_.clear();
    calls_.abandon();
    if (wanted_) retryLater();
  });
}

void FixDriver::onLocationUpdated(sdbus::Message& message) {
  if (client_.empty() || message.getPath() != client_) return;
  sdbus::ObjectPath before;
  sdbus::ObjectPath now;
  message >> before >> now;
  bus_.tasks().mainQueue().async([this, path = std::string(now)] {
    if (path != "/" && !client_.empty()) readLocation(path);
  });
}

void FixDriver::setWanted(bool wanted) {
  bus_.tasks().mainQueue().async([this, wanted] {
    if (std::exchange(wanted_, wanted) == wanted) return;
    wanted ? begin() : end();
  });
}

void FixDriver::busOpened(sdbus::IConnection& connection) {
  calls_.open(connection);
  if (wanted_) begin();
}

void FixDriver::busLost() {
  client_.clear();
  retry_.reset();
  calls_.close();
  if (wanted_) setStatus(FixCondition::noBus, "the connection was lost");
}

void FixDriver::busUnavailable(const std::string& reason) {
  if (wanted_) setStatus(FixCondition::noBus, reason);
}

void FixDriver::begin() {
  retry_.reset();
  client_.clear();
  if (!calls_.isOpen()) return;
  calls_.abandon();
  if (!isTrouble(status_.condition)) setStatus(FixCondition::starting);
  calls_.call(
      {kService, kManagerPath, kManager, "GetClient"}, options_.callTimeout, {},
      [this](sdbus::Message& reply) {
        sdbus::ObjectPath path;
        reply >> path;
        return [this, client = std::string(path)] {
          client_ = client;
          configure(0);
        };
      },
      [this](const BusFailure& failure) { fail(failure, true); });
}

void FixDriver::end() {
  retry_.reset();
  calls_.abandon();
  if (const auto client = std::exchange(client_, {}); !client.empty())
    calls_.call(
        {kService, kManagerPath, kManager, "DeleteClient"}, options_.callTimeout,
        [client](sdbus::Message& call) { call << sdbus::ObjectPath(client); },
        [](sdbus::Message&) { return platform::Task(); }, [](const BusFailure&) {});
  setStatus(FixCondition::resting);
}

BusMethod FixDriver::clientMethod(const char* interface, const char* name) const {
  return {kService, client_, interface, name};
}

// The desktop identifier first: without it nothing else is taken.
void FixDriver::configure(std::size_t property) {
  if (property > kSettings.size()) return startClient();
  calls_.call(
      clientMethod(kProperties, "Set"), options_.callTimeout,
      [this, property](sdbus::Message& call) {
        call << kClient;
        if (property == 0)
          call << "DesktopId" << sdbus::Variant(options_.desktopId);
        else
          call << kSettings[property - 1].name << sdbus::Variant(kSettings[property - 1].value);
      },
      [this, property](sdbus::Message&) { return [this, property] { configure(property + 1); }; },
      [this](const BusFailure& failure) { fail(failure); });
}

void FixDriver::startClient() {
  calls_.call(
      clientMethod(kClient, "Start"), options_.callTimeout, {},
      [this](sdbus::Message&) {
        return [this] {
          if (status_.condition != FixCondition::fixing) setStatus(FixCondition::waiting);
        };
      },
      [this](const BusFailure& failure) { fail(failure); });
}

void FixDriver::readLocation(const std::string& path) {
  calls_.call(
      {kService, path, kProperties, "GetAll"}, options_.callTimeout, [](sdbus::Message& call) { call << kLocation; },
      [this](sdbus::Message& reply) { return [this, fix = readFix(reply)] { adopt(fix); }; },
      [](const BusFailure&) {});  // it has been replaced by a newer one
}

void FixDriver::adopt(const CLLocation& fix) {
  if (posix::PosixCalendarClock().now() - fix.timestamp > options_.oldest) return;
  setStatus(FixCondition::fixing);
  auto told = fix;
  if (told.horizontalAccuracy >= 0.0) told.horizontalAccuracy = std::max(told.horizontalAccuracy, kBestAccuracy);
  callbacks_.fixed(told);
}

void FixDriver::fail(const BusFailure& failure, bool isAsking) {
  const auto is = [&](std::string_view end) { return failure.name.ends_with(end); };
  const bool isLate = is(".NoReply") || is(".Timeout") || is(".TimedOut") || is("ETIMEDOUT");
  const auto condition = is(".ServiceUnknown") || is(".Spawn.ServiceNotFound") ? FixCondition::noService
                         : is(".AccessDenied")                                 ? FixCondition::refused
                         : isLate && isAsking                                  ? FixCondition::noAgent
                                                                               : FixCondition::failing;
  client_.clear();
  setStatus(condition, failure.name + ": " + failure.text);
  retryLater();
}

void FixDriver::retryLater() {
  retry_ = bus_.tasks().startTimer(bus_.tasks().mainQueue(), options_.retry, std::nullopt, [this] { begin(); });
}

// Attempts that fail alike one after the other are told once.
void FixDriver::setStatus(FixCondition condition, std::string detail) {
  const bool isNews = status_.condition != condition;
  status_ = {condition, std::move(detail)};
  if (isNews) callbacks_.changed(status_);
}

}  // namespace wayloom::linux_
