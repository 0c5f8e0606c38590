// The binary format: a header, objects, a table of the objects' offsets, and a trailer of 32 bytes that says where the
// table is and how wide its numbers and the references between objects are. All numbers are big-endian.
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <utility>

#include "backends/posix/Base64.hpp"
#include "backends/posix/PlistFormats.hpp"
#include "platform/JsonMembers.hpp"

namespace wayloom::posix {
namespace {

using platform::Json;

constexpr std::size_t kTrailerSize = 32;
constexpr double kSecondsFrom1970To2001 = 978'307'200.0;
// What one property list may come to: every visit of an object costs its bytes and a fixed share. Without a bound, a
// few hundred bytes of arrays that hold the next one twice would grow for ever.
constexpr std::int64_t kBudget = 16 << 20;
constexpr std::int64_t kObjectCost = 64;

std::uint64_t bigEndian(std::string_view bytes) {
  std::uint64_t number = 0;
  for (const char byte : bytes) number = (number << 8U) | static_cast<unsigned char>(byte);
  return number;
}

class BinaryPlist {
 public:
  explicit BinaryPlist(std::string_view bytes) : bytes_(bytes) {}

  std::optional<Json> parse() {
    std::optional<Json> value(std::in_place);
    if (!readTrailer() || !readObject(topObject_, *value, 1)) return std::nullopt;
    return value;
  }

 private:
  // A place in the bytes that objects are read from; `take` fails at the end of the objects.
  struct Cursor {
    std::string_view rest;
    bool take(std::uint64_t count, std::string_view& taken) {
      if (count > rest.size()) return false;
      taken = rest.substr(0, count);
      rest.remove_prefix(count);
      return true;
    }
  };

  bool readTrailer() {
    if (bytes_.size() < kBinaryPlistMagic.size() + kTrailerSize) return false;
    const auto trailer = bytes_.substr(bytes_.size() - kTrailerSize);
    const auto end = bytes_.size() - kTrailerSize;
    offsetSize_ = bigEndian(trailer.substr(6, 1));
    referenceSize_ = bigEndian(trailer.substr(7, 1));
    objectCount_ = bigEndian(trailer.substr(8, 8));
    topObject_ = bigEndian(trailer.substr(16, 8));
    const auto table = bigEndian(trailer.substr(24, 8));
    const auto isWidth = [](std::uint64_t size) { return size >= 1 && size <= 8; };
    if (!isWidth(offsetSize_) || !isWidth(referenceSize_) || table > end) return false;
    if (objectCount_ > (end - table) / offsetSize_) return false;
    offsets_ = bytes_.substr(table, objectCount_ * offsetSize_);
    objects_ = bytes_.substr(0, table);
    return true;
  }

  bool pay(std::uint64_t bytes) {
    budget_ -= kObjectCost + static_cast<std::int64_t>(bytes);
    return budget_ >= 0;
  }

  bool readObject(std::uint64_t reference, Json& target, int depth) {
    if (reference >= objectCount_ || depth > kMaximumPlistDepth) return false;
    const auto offset = bigEndian(offsets_.substr(reference * offsetSize_, offsetSize_));
    if (offset >= objects_.size()) return false;
    Cursor cursor{objects_.substr(offset)};
    std::string_view marker;
    cursor.take(1, marker);
    const auto type = static_cast<unsigned char>(marker[0]) >> 4U;
    const auto detail = static_cast<unsigned char>(marker[0]) & 0x0FU;
    switch (type) {
      case 0x0:
        return pay(0) && readSimple(detail, target);
      case 0x1:
        return pay(0) && readInteger(cursor, detail, target);
      case 0x2:
        return pay(0) && readReal(cursor, detail, target);
      case 0x3:
        return pay(0) && readDate(cursor, target);
      case 0x8:
        return pay(0) && readIdentifier(cursor, detail, target);
      default:
        break;
    }
    std::uint64_t count = detail;
    if (detail == 0x0F && !readCount(cursor, count)) return false;
    // More than there are bytes: cut off, and no product of it may overflow.
    if (count > cursor.rest.size() || !pay(count)) return false;
    switch (type) {
      case 0x4:
        return readData(cursor, count, target);
      case 0x5:
      case 0x7:
        return readUtf8(cursor, count, type == 0x5, target);
      case 0x6:
        return readUtf16(cursor, count, target);
      case 0xA:
      case 0xC:
        return readArray(cursor, count, target, depth);
      case 0xD:
        return readDictionary(cursor, count, target, depth);
      default:
        return false;
    }
  }

  static bool readSimple(unsigned detail, Json& target) {
    if (detail == 0x8 || detail == 0x9) target = detail == 0x9;
    return detail == 0x0 || detail == 0x8 || detail == 0x9;
  }

  // Up to four bytes are unsigned, eight are signed, and sixteen hold what is too large for those.
  static bool readInteger(Cursor& cursor, unsigned detail, Json& target) {
    std::string_view bytes;
    if (detail > 4 || !cursor.take(std::uint64_t{1} << detail, bytes)) return false;
    if (detail == 4 && bigEndian(bytes.substr(0, 8)) != 0) return false;
    const auto number = bigEndian(bytes.substr(detail == 4 ? 8 : 0));
    if (detail == 3 && static_cast<std::int64_t>(number) < 0)
      target = static_cast<std::int64_t>(number);
    else
      target = number;
    return true;
  }

  static bool readCount(Cursor& cursor, std::uint64_t& count) {
    std::string_view marker;
    Json number;
    if (!cursor.take(1, marker) || (static_cast<unsigned char>(marker[0]) & 0xF0U) != 0x10) return false;
    if (!readInteger(cursor, static_cast<unsigned char>(marker[0]) & 0x0FU, number)) return false;
    if (!number.is_number_unsigned()) return false;
    count = number.get<std::uint64_t>();
    return true;
  }

  static bool readReal(Cursor& cursor, unsigned detail, Json& target) {
    std::string_view bytes;
    if ((detail != 2 && detail != 3) || !cursor.take(std::uint64_t{1} << detail, bytes)) return false;
    const auto number = detail == 2
                            ? static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(bytes))))
                            : std::bit_cast<double>(bigEndian(bytes));
    target = number;
    return std::isfinite(number);
  }

  static bool readDate(Cursor& cursor, Json& target) {
    if (!readReal(cursor, 3, target)) return false;
    target = target.get<double>() + kSecondsFrom1970To2001;
    return true;
  }

  static bool readIdentifier(Cursor& cursor, unsigned detail, Json& target) {
    std::string_view bytes;
    if (detail > 7 || !cursor.take(detail + 1, bytes)) return false;
    target = bigEndian(bytes);
    return true;
  }

  static bool readData(Cursor& cursor, std::uint64_t count, Json& target) {
    std::string_view bytes;
    if (!cursor.take(count, bytes)) return false;
    target = base64(bytes);
    return true;
  }

  static bool readUtf8(Cursor& cursor, std::uint64_t count, bool isAscii, Json& target) {
    std::string_view bytes;
    if (!cursor.take(count, bytes) || !isUtf8(bytes)) return false;
    target = bytes;
    if (!isAscii) return true;
    for (const char byte : bytes)
      if (static_cast<unsigned char>(byte) >= 0x80) return false;
    return true;
  }

  static bool readUtf16(Cursor& cursor, std::uint64_t count, Json& target) {
    std::string_view bytes;
    if (!cursor.take(count * 2, bytes)) return false;
    std::string text;
    const auto unit = [&](std::size_t index) { return static_cast<char32_t>(bigEndian(bytes.substr(index * 2, 2))); };
    for (std::size_t i = 0; i < count; ++i) {
      auto point = unit(i);
      const bool isPair = point >= 0xD800 && point <= 0xDBFF && i + 1 < count && (unit(i + 1) & 0xFC00U) == 0xDC00;
      if (isPair) point = 0x10000 + ((point - 0xD800) << 10U) + (unit(++i) - 0xDC00);
      if (!appendUtf8(text, point)) return false;
    }
    target = std::move(text);
    return true;
  }

  bool readReference(Cursor& cursor, Json& target, int depth) {
    std::string_view bytes;
    return cursor.take(referenceSize_, bytes) && readObject(bigEndian(bytes), target, depth);
  }

  bool readArray(Cursor& cursor, std::uint64_t count, Json& target, int depth) {
    target = Json::array();
    auto& elements = target.get_ref<Json::array_t&>();
    for (std::uint64_t i = 0; i < count; ++i)
      if (!readReference(cursor, elements.emplace_back(), depth + 1)) return false;
    return true;
  }

  // All references to keys come before those to values.
  bool readDictionary(Cursor& keys, std::uint64_t count, Json& target, int depth) {
    std::string_view keyReferences;
    Cursor values = keys;
    if (!values.take(count * referenceSize_, keyReferences)) return false;
    target = Json::object();
    auto& members = target.get_ref<Json::object_t&>();
    for (std::uint64_t i = 0; i < count; ++i) {
      Json key;
      if (!readReference(keys, key, depth + 1) || !key.is_string()) return false;
      auto& member = members.emplace_back(std::move(key.get_ref<std::string&>()), Json());
      if (!readReference(values, member.second, depth + 1)) return false;
    }
    platform::mergeDuplicates(members);
    return true;
  }

  const std::string_view bytes_;
  std::string_view objects_;
  std::string_view offsets_;
  std::uint64_t offsetSize_ = 0;
  std::uint64_t referenceSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t topObject_ = 0;
  std::int64_t budget_ = kBudget;
};

}  // namespace

std::optional<Json> parseBinaryPlist(std::string_view bytes) { return BinaryPlist(bytes).parse(); }

}  // namespace wayloom::posix
