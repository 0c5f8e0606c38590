#pragma once

#include <mutex>
#include <string>

namespace wayloom {

namespace platform {
class Platform;
}

// The partner on whose behalf the host runs; analytics uploads carry it. Thread-safe.
class TGFPartner {
 public:
  static TGFPartner& shared(platform::Platform& platform);  // one for each Platform

  std::string getIdentifier() const;  // "" until it is set
  void setIdentifier(std::string identifier);

 private:
  mutable std::mutex mutex_;
  std::string identifier_;
};

}  // namespace wayloom
