#include "wayloom/posix/FileDeviceIdentity.hpp"

#include <cerrno>
#include <optional>
#include <random>

#include "backends/posix/PosixFiles.hpp"

namespace wayloom::posix {
namespace {

using platform::UUID;

constexpr std::size_t kLargestIdentity = 256;

std::optional<UUID> readIdentifier(const std::string& path) {
  const auto text = readRegularFile(path, kLargestIdentity);
  return text ? UUID::parse(text->substr(0, text->find_last_not_of(" \r\n") + 1)) : std::nullopt;
}

// RFC 4122, version 4, from the system's random source.
UUID randomIdentifier() {
  std::random_device random;
  UUID::Bytes bytes;
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);
  return UUID(bytes);
}

}  // namespace

FileDeviceIdentity::FileDeviceIdentity(const std::string& file, platform::LogSink& log) {
  const auto path = absolutePath(file);
  if (const auto stored = readIdentifier(path)) {
    identifier_ = *stored;
    return;
  }
  identifier_ = randomIdentifier();
  const auto text = identifier_.string() + "\n";
  makeDirectories(path.substr(0, path.rfind('/') + 1));
  auto error = writeFileAsAWhole(path, text, Existing::isKept);
  if (error && error->code == EEXIST) {
    if (const auto stored = readIdentifier(path)) {  // another process was faster
      identifier_ = *stored;
      return;
    }
    log.write("Device identifier unreadable, replaced: " + path);
    error = writeFileAsAWhole(path, text, Existing::isReplaced);
  }
  if (error) log.write("Device identifier not saved: " + error->description);
}

}  // namespace wayloom::posix
