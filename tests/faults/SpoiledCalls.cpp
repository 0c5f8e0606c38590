// The C library's functions, defined once more: those in the program come before the library's own, for SQLite and the
// C++ library as well.
#include "tests/faults/SpoiledCalls.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace wayloom::test {
namespace {

std::string directory;
FileFault fault;
std::atomic<bool> isOn = false;
std::atomic<int> strikeCount = 0;

bool isBelow(const char* path) { return std::string_view(path).starts_with(directory); }

bool isBelow(int descriptor) {
  std::array<char, 4096> path{};
  const auto link = "/proc/self/fd/" + std::to_string(descriptor);
  return ::readlink(link.c_str(), path.data(), path.size() - 1) > 0 && isBelow(path.data());
}

template <class File>
bool strikes(SpoiledCall call, File file) {
  if (!isOn || fault.call != call || !isBelow(file)) return false;
  ++strikeCount;
  return true;
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

int refused() {
  errno = fault.error;
  return -1;
}

int opened(const char* name, const char* path, int flags, va_list arguments) {
  const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  if (strikes(SpoiledCall::open, path)) return refused();
  return next<int(const char*, int, ...)>(name)(path, flags, mode);
}

// Of a transfer of `count` bytes: by `call(count)`, or by what the fault leaves of it.
template <class Call>
ssize_t transferred(SpoiledCall kind, int descriptor, std::size_t count, Call call) {
  if (count == 0 || !strikes(kind, descriptor)) return call(count);
  return fault.error == FileFault::isShort ? call((count + 1) / 2) : refused();
}

}  // namespace

SpoiledCalls::SpoiledCalls(const std::string& below, const FileFault& which) {
  directory = below;
  fault = which;
  strikeCount = 0;
  isOn = true;
}

SpoiledCalls::~SpoiledCalls() { isOn = false; }

int SpoiledCalls::strikes() { return strikeCount; }

}  // namespace wayloom::test

using wayloom::test::SpoiledCall;

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int descriptor = wayloom::test::opened("open", path, flags, arguments);
  va_end(arguments);
  return descriptor;
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int descriptor = wayloom::test::opened("open64", path, flags, arguments);
  va_end(arguments);
  return descriptor;
}

std::FILE* fopen64(const char* path, const char* mode) {
  if (wayloom::test::strikes(SpoiledCall::open, path)) return wayloom::test::refused(), nullptr;
  return wayloom::test::next<std::FILE*(const char*, const char*)>("fopen64")(path, mode);
}

ssize_t read(int descriptor, void* bytes, std::size_t size) {
  static auto* const real = wayloom::test::next<ssize_t(int, void*, std::size_t)>("read");
  return wayloom::test::transferred(SpoiledCall::read, descriptor, size,
                                    [&](std::size_t count) { return real(descriptor, bytes, count); });
}

ssize_t pread64(int descriptor, void* bytes, std::size_t size, off64_t offset) {
  static auto* const real = wayloom::test::next<ssize_t(int, void*, std::size_t, off64_t)>("pread64");
  return wayloom::test::transferred(SpoiledCall::read, descriptor, size,
                                    [&](std::size_t count) { return real(descriptor, bytes, count, offset); });
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  static auto* const real = wayloom::test::next<ssize_t(int, const void*, std::size_t)>("write");
  return wayloom::test::transferred(SpoiledCall::write, descriptor, size,
                                    [&](std::size_t count) { return real(descriptor, bytes, count); });
}

ssize_t pwrite64(int descriptor, const void* bytes, std::size_t size, off64_t offset) {
  static auto* const real = wayloom::test::next<ssize_t(int, const void*, std::size_t, off64_t)>("pwrite64");
  return wayloom::test::transferred(SpoiledCall::write, descriptor, size,
                                    [&](std::size_t count) { return real(descriptor, bytes, count, offset); });
}

// Short, it writes the first part only.
ssize_t writev(int descriptor, const iovec* parts, int count) {
  static auto* const real = wayloom::test::next<ssize_t(int, const iovec*, int)>("writev");
  return wayloom::test::transferred(SpoiledCall::write, descriptor, static_cast<std::size_t>(count),
                                    [&](std::size_t some) { return real(descriptor, parts, static_cast<int>(some)); });
}

int fsync(int descriptor) {
  if (wayloom::test::strikes(SpoiledCall::sync, descriptor)) return wayloom::test::refused();
  return wayloom::test::next<int(int)>("fsync")(descriptor);
}

int fdatasync(int descriptor) {
  if (wayloom::test::strikes(SpoiledCall::sync, descriptor)) return wayloom::test::refused();
  return wayloom::test::next<int(int)>("fdatasync")(descriptor);
}

int rename(const char* from, const char* to) noexcept {
  if (wayloom::test::strikes(SpoiledCall::rename, to)) return wayloom::test::refused();
  return wayloom::test::next<int(const char*, const char*)>("rename")(from, to);
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
  if (wayloom::test::strikes(SpoiledCall::rename, to)) return wayloom::test::refused();
  return wayloom::test::next<int(int, const char*, int, const char*, unsigned)>("renameat2")(fromFolder, from, toFolder,
                                                                                             to, flags);
}

}  // extern "C"
