#pragma once

namespace wayloom {

// The analytics recorder as the region manager sees it. All operations are called on the main thread, save
// that a manager that ends on another one stops logging there.
class AnalyticsRecorder {
 public:
  virtual ~AnalyticsRecorder() = default;

  virtual void startLogging() = 0;
  virtual void stopLogging() = 0;
  virtual void uploadAnalyticsToServer() = 0;  // every 30 seconds while the manager is started; must not block
};

}  // namespace wayloom
