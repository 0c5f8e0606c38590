#pragma once

#include <cstdint>
#include <memory>

#include "wayloom/platform/Tasks.hpp"

namespace wayloom::sim {

class VirtualScheduler;

class VirtualConditionLock final : public platform::ConditionLock {
 public:
  explicit VirtualConditionLock(std::shared_ptr<VirtualScheduler> scheduler);

  void lock() override;
  void unlock() override;
  void wait() override;
  void signalAll() override;

 private:
  std::shared_ptr<VirtualScheduler> scheduler_;
  bool locked_ = false;
  std::uint64_t signals_ = 0;
};

}  // namespace wayloom::sim
