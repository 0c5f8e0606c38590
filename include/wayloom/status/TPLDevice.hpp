#pragma once

#include <string>

namespace wayloom {

namespace platform {
class Platform;
}

class TPLDevice {
 public:
  // The identifier of this installation, an upper-case UUID. Any thread.
  static std::string getUUID(platform::Platform& platform);
};

}  // namespace wayloom
