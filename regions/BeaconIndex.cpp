#include "BeaconIndex.hpp"

#include "wayloom/platform/JsonValue.hpp"

namespace wayloom {

using platform::Json;

namespace {

constexpr std::size_t kFewUUIDs = 16;
constexpr std::int64_t kLargestWord = 0xFFFF;

std::uint64_t majorKey(std::uint32_t uuidPlace, std::uint16_t major) {
  return (static_cast<std::uint64_t>(uuidPlace) << 33U) | (static_cast<std::uint64_t>(major) << 16U);
}

std::uint64_t exactKey(std::uint32_t uuidPlace, std::uint16_t major, std::uint16_t minor) {
  return majorKey(uuidPlace, major) | (std::uint64_t{1} << 32U) | minor;
}

// One member of an entry: JSON null for any number, or a number, which is 0 when the member is missing.
struct EntryNumber {
  explicit EntryNumber(const Json* value) : wildCard(platform::isNull(value)), number(platform::integerValue(value)) {}

  bool possible() const { return wildCard || (number >= 0 && number <= kLargestWord); }
  std::uint16_t word() const { return static_cast<std::uint16_t>(number); }

  bool wildCard;
  std::int64_t number;
};

}  // namespace

class BeaconIndex::Builder {
 public:
  explicit Builder(BeaconIndex& index) : index_(index) {}

  void add(const Json& entry, std::uint32_t position) {
    const auto uuidPlace = placeOfUUID(platform::member(entry, "uuid"));
    if (uuidPlace == kNone) return;
    const EntryNumber major(platform::member(entry, "major"));
    const EntryNumber minor(platform::member(entry, "minor"));
    if (major.wildCard) {
      index_.entryOf_[uuidPlace] = position;
      return;
    }
    if (!major.possible() || !minor.possible()) return;
    const auto majorPlace = placeOfMajor(majorKey(uuidPlace, major.word()));
    const auto place = minor.wildCard ? majorPlace : placeOfKey(exactKey(uuidPlace, major.word(), minor.word()));
    index_.entryOf_[place] = position;
  }

 private:
  std::uint32_t nextPlace() const { return static_cast<std::uint32_t>(index_.entryOf_.size()); }

  std::uint32_t placed(std::uint32_t place) {
    if (place == nextPlace()) index_.entryOf_.push_back(kNone);
    return place;
  }

  // Entries of one UUID and major mostly follow one another, so the last ones are kept at hand.
  std::uint32_t placeOfUUID(const Json* value) {
    if (!value || !value->is_string()) return kNone;
    const auto& text = value->get_ref<const std::string&>();
    if (lastText_ && *lastText_ == text) return lastUUIDPlace_;
    const auto uuid = platform::UUID::parse(text);
    lastText_ = &text;
    lastUUIDPlace_ = uuid ? placed(index_.uuids_.findOrInsert(*uuid, nextPlace())) : kNone;
    return lastUUIDPlace_;
  }

  std::uint32_t placeOfMajor(std::uint64_t key) {
    if (lastMajorPlace_ == kNone || key != lastMajorKey_) {
      lastMajorKey_ = key;
      lastMajorPlace_ = placeOfKey(key);
    }
    return lastMajorPlace_;
  }

  std::uint32_t placeOfKey(std::uint64_t key) { return placed(index_.numbers_.findOrInsert(key, nextPlace())); }

  BeaconIndex& index_;
  const std::string* lastText_ = nullptr;
  std::uint32_t lastUUIDPlace_ = kNone;
  std::uint64_t lastMajorKey_ = 0;
  std::uint32_t lastMajorPlace_ = kNone;
};

BeaconIndex::BeaconIndex(const Json::array_t* entries) : uuids_(kFewUUIDs), numbers_(entries ? entries->size() : 0) {
  if (!entries) return;
  entryOf_.reserve(entries->size() + kFewUUIDs);
  Builder builder(*this);
  std::uint32_t position = 0;
  for (const auto& entry : *entries) builder.add(entry, position++);
}

std::uint32_t BeaconIndex::placeOf(const platform::UUID& uuid, Word major, Word minor) const {
  const auto uuidPlace = uuids_.find(uuid);
  if (uuidPlace == kNone || !major) return uuidPlace;
  if (minor) {
    const auto exactPlace = numbers_.find(exactKey(uuidPlace, *major, *minor));
    if (exactPlace != kNone) return exactPlace;
  }
  const auto majorPlace = numbers_.find(majorKey(uuidPlace, *major));
  return majorPlace != kNone ? majorPlace : uuidPlace;
}

BeaconIndex::Entries BeaconIndex::entriesOf(const platform::UUID& uuid, Word major, Word minor) const {
  const auto uuidPlace = uuids_.find(uuid);
  if (uuidPlace == kNone) return {};
  Entries entries{.uuid = entryAt(uuidPlace)};
  if (!major) return entries;
  entries.major = entryAt(numbers_.find(majorKey(uuidPlace, *major)));
  if (minor) entries.exact = entryAt(numbers_.find(exactKey(uuidPlace, *major, *minor)));
  return entries;
}

bool BeaconIndex::knows(const platform::UUID& uuid, Word major, Word minor) const {
  const auto uuidPlace = uuids_.find(uuid);
  if (uuidPlace == kNone) return false;
  if (!major || entryAt(uuidPlace) != kNone) return true;
  const auto majorPlace = numbers_.find(majorKey(uuidPlace, *major));
  if (majorPlace == kNone) return false;
  return !minor || entryAt(majorPlace) != kNone || numbers_.find(exactKey(uuidPlace, *major, *minor)) != kNone;
}

}  // namespace wayloom
