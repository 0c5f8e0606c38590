#pragma once

namespace wayloom {

// The analytics recorder as the region manager sees it. All operations are called on the main thread.
class AnalyticsRecorder {
 public:
  virtual ~AnalyticsRecorder() = default;

  virtual void startLogging() = 0;
  virtual void stopLogging() = 0;
  virtual void uploadAnalyticsToServer() = 0;  // every 30 seconds while the manager is started; must not block
};

}  // namespace wayloom
