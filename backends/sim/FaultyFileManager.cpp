#include "wayloom/sim/FaultyFileManager.hpp"

#include <cerrno>
#include <utility>

#include "backends/sim/SpoiledBytes.hpp"

namespace wayloom::sim {
namespace {

using platform::Error;

constexpr std::uint64_t kFileFaults = 102;

}  // namespace

FaultyFileManager::FaultyFileManager(std::shared_ptr<platform::FileManager> files, FileFaults faults,
                                     std::uint64_t seed)
    : files_(std::move(files)), faults_(faults), random_(seed, kFileFaults) {}

std::optional<Error> FaultyFileManager::drawFailure(double share, const std::string& path) const {
  if (!random_.chance(share)) return std::nullopt;
  return Error{"POSIX", EIO, path + ": Input/output error"};
}

std::optional<std::string> FaultyFileManager::readFile(const std::string& path) const {
  if (drawFailure(faults_.failRead, path)) return std::nullopt;
  auto bytes = files_->readFile(path);
  if (bytes && random_.chance(faults_.garbageRead)) garbleBytes(*bytes, random_);
  return bytes;
}

std::optional<Error> FaultyFileManager::writeFile(const std::string& path, std::string_view bytes) {
  if (auto error = drawFailure(faults_.failWrite, path)) return error;
  auto cut = drawFailure(faults_.cutWrite, path);
  if (cut && !bytes.empty()) bytes = bytes.substr(0, random_.index(bytes.size()));
  auto error = files_->writeFile(path, bytes);
  return cut ? cut : error;
}

std::optional<Error> FaultyFileManager::writeFileAtomically(const std::string& path, std::string_view bytes) {
  if (auto error = drawFailure(faults_.failWrite, path)) return error;
  if (auto error = drawFailure(faults_.cutWrite, path)) return error;
  return files_->writeFileAtomically(path, bytes);
}

std::optional<Error> FaultyFileManager::removeFile(const std::string& path) {
  if (auto error = drawFailure(faults_.failWrite, path)) return error;
  return files_->removeFile(path);
}

std::optional<Error> FaultyFileManager::copyFile(const std::string& from, const std::string& to) {
  if (auto error = drawFailure(faults_.failWrite, to)) return error;
  return files_->copyFile(from, to);
}

std::optional<Error> FaultyFileManager::moveFile(const std::string& from, const std::string& to) {
  if (auto error = drawFailure(faults_.failWrite, to)) return error;
  return files_->moveFile(from, to);
}

std::optional<Error> FaultyFileManager::createDirectory(const std::string& path) {
  if (auto error = drawFailure(faults_.failWrite, path)) return error;
  return files_->createDirectory(path);
}

}  // namespace wayloom::sim
