#pragma once

#include <memory>

#include "wayloom/platform/LogSink.hpp"

namespace wayloom::platform {

// A service that logs what keeps it from working. Its Platform names the system log when it is made, which may be
// another than there was when the service was: hosts wrap logs in between. Who wraps such a service hands it on.
class LogUser {
 public:
  virtual void setLog(std::shared_ptr<LogSink> log) = 0;  // main thread

 protected:
  ~LogUser() = default;
};

}  // namespace wayloom::platform
