#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "wayloom/platform/Time.hpp"

namespace wayloom {

inline constexpr char TPLBeaconSessionUUIDColumnName[] = "beacon_uuid";
inline constexpr char TPLBeaconSessionMajorColumnName[] = "beacon_major";
inline constexpr char TPLBeaconSessionMinorColumnName[] = "beacon_minor";
inline constexpr char TPLBeaconSessionFirstDetectedAtColumnName[] = "first_detected_at";
inline constexpr char TPLBeaconSessionLastDetectedAtColumnName[] = "last_detected_at";
inline constexpr char TPLBeaconSessionIDColumnName[] = "id";

// When a beacon was first and last seen: one row of the status store.
struct TPLBeaconSession {
  std::string uuid;
  std::int64_t major = 0;
  std::int64_t minor = 0;
  std::int64_t beaconSessionId = 0;
  std::optional<platform::CalendarTime> firstDetectedAt;
  std::optional<platform::CalendarTime> lastDetectedAt;
};

}  // namespace wayloom
