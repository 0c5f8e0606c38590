#include "wayloom/posix/FileDeviceIdentity.hpp"

#include <cerrno>
#include <optional>
#include <random>

#include "backends/posix/PosixFiles.hpp"

namespace wayloom::posix {
namespace {

using platform::UUID;

constexpr std::size_t kLargestIdentity = 256;

std::optional<UUID> parseIdentifier(const FileContent& content) {
  const auto text = content.bytes.value_or("");
  return UUID::parse(std::string_view(text).substr(0, text.find_last_not_of(" \r\n") + 1));
}

// Whether it was read, or is too long to be one: then it is malformed, and lost anyway.
bool wasRead(const FileContent& content) { return content.bytes || content.error == EFBIG; }

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

FileDeviceIdentity::FileDeviceIdentity(const std::string& file, platform::LogSink& log)
    : identifier_(randomIdentifier()) {
  const auto path = absolutePath(file);
  const auto text = identifier_.string() + "\n";
  std::optional<platform::Error> error;
  auto content = readContent(path, kLargestIdentity);
  if (content.isMissing()) {
    error = makeDirectories(directoryOf(path), Readers::ownerOnly);
    if (!error) error = writeFileAsAWhole(path, text, Existing::isKept, Readers::ownerOnly);
    if (!error) return;
    // Another process was faster, perhaps.
    if (error->code == EEXIST) content = readContent(path, kLargestIdentity);
  }
  if (const auto stored = parseIdentifier(content)) {
    identifier_ = *stored;
    return;
  }
  if (wasRead(content)) {
    log.write("Device identifier unreadable, replaced: " + path);
    error = writeFileAsAWhole(path, text, Existing::isReplaced, Readers::ownerOnly);
  } else if (!content.isMissing()) {
    error = systemError(content.error, "cannot read", path);
  }
  if (error) log.write("Device identifier holds for this run only: " + error->description);
}

}  // namespace wayloom::posix
