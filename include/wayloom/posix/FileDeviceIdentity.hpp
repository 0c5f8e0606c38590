#pragma once

#include <memory>
#include <string>

#include "wayloom/platform/DeviceIdentity.hpp"
#include "wayloom/platform/LogSink.hpp"

namespace wayloom::posix {

// A random identifier, made on the first run and kept as its text in a file that its owner alone may read. Processes
// that make it at the same time end up with the same one. A file with something else in it is replaced. When the file
// can't be read or written (no descriptor left, no permission, a full disk), it stays as it is; the identifier then
// holds for this run only, and the log says so.
class FileDeviceIdentity : public platform::DeviceIdentity {
 public:
  FileDeviceIdentity(const std::string& file, platform::LogSink& log);  // log: used by the constructor only

  platform::UUID identifierForVendor() const override { return identifier_; }

 private:
  platform::UUID identifier_;
};

}  // namespace wayloom::posix
