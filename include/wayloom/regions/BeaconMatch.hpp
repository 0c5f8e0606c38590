#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "wayloom/platform/Json.hpp"

namespace wayloom {

// What the kit says of one region: the part that every kind of region has. Immutable and shared.
struct RegionDetails {
  RegionDetails() = default;
  RegionDetails(std::optional<std::string> regionName, std::optional<std::string> regionIdentifier,
                platform::Json regionAttributes);

  // From a kit entry: "name", "identifier" and "attributes" of whatever type; what isn't text is absent, what isn't an
  // object is an empty one.
  static RegionDetails fromDictionary(const platform::Json& dictionary);

  std::optional<std::string> name;
  std::optional<std::string> identifier;
  platform::Json attributes = platform::Json::object();  // always an object
};

// What the kit says of one beacon identity, all entries that match it merged. Immutable, shared by all beacons of that
// identity.
class BeaconMatch : public RegionDetails {
 public:
  BeaconMatch() = default;
  explicit BeaconMatch(RegionDetails details) : RegionDetails(std::move(details)) {}
  ~BeaconMatch();
  BeaconMatch(const BeaconMatch&) = delete;
  BeaconMatch& operator=(const BeaconMatch&) = delete;

  bool isListed = false;  // an entry of the kit names this very UUID, major and minor

  // What a layer above this one reads in the attributes at every ranging: a Reading is made from them when it is first
  // asked for, and then kept, so that no ranging searches a document. Any thread.
  template <class Reading>
  const Reading& reading() const {
    for (const Kept* kept = readings_.load(std::memory_order_acquire); kept != nullptr; kept = kept->next)
      if (kept->type == &kType<Reading>) return static_cast<const KeptReading<Reading>*>(kept)->reading;
    return keep(std::make_unique<KeptReading<Reading>>(attributes)).reading;
  }

 private:
  template <class Reading>
  static constexpr char kType = 0;  // its address tells the types apart

  struct Kept {
    explicit Kept(const void* typeOfReading) : type(typeOfReading) {}
    virtual ~Kept() = default;
    const void* type;
    Kept* next = nullptr;
  };
  template <class Reading>
  struct KeptReading : Kept {
    explicit KeptReading(const platform::Json& attributes) : Kept(&kType<Reading>), reading(attributes) {}
    const Reading reading;
  };

  // Two threads may make the same at once: both are kept, and one is used from then on.
  template <class Made>
  const Made& keep(std::unique_ptr<Made> made) const {
    made->next = readings_.load(std::memory_order_relaxed);
    while (!readings_.compare_exchange_weak(made->next, made.get(), std::memory_order_release,
                                            std::memory_order_relaxed)) {
    }
    return *made.release();
  }

  mutable std::atomic<Kept*> readings_ = nullptr;
};

using BeaconMatchPtr = std::shared_ptr<const BeaconMatch>;

}  // namespace wayloom
