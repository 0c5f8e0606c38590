#pragma once

#include <memory>
#include <string>

#include "wayloom/platform/DeviceIdentity.hpp"
#include "wayloom/platform/LogSink.hpp"

namespace wayloom::posix {

// A random identifier, made on the first run and kept in a file as its text. Processes that make it at the same time
// end up with the same one. When the file can't be written, the identifier holds for this run only and the log says so;
// a file with something else in it is replaced.
class FileDeviceIdentity : public platform::DeviceIdentity {
 public:
  FileDeviceIdentity(const std::string& file, platform::LogSink& log);  // log: used by the constructor only

  platform::UUID identifierForVendor() const override { return identifier_; }

 private:
  platform::UUID identifier_;
};

}  // namespace wayloom::posix
