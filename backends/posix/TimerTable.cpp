#include "backends/posix/TimerTable.hpp"

#include <utility>

#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/posix/PosixClocks.hpp"

namespace wayloom::posix {

// The table has it in its heap only while a PosixTimer owns it; a callback that is posted or runs shares it.
struct TimerRecord : platform::TimerEntry, std::enable_shared_from_this<TimerRecord> {
  std::shared_ptr<TimerTable> table;
  std::weak_ptr<TaskSink> sink;
  platform::Task task;
  platform::TaskScope scope;
  bool running = false;    // touched inside the scope, or after it was closed
  bool cancelled = false;  // under the table's lock

  void post() {
    if (const auto target = sink.lock()) target->post([self = shared_from_this()] { self->run(); });
  }

  void run() {
    const platform::TaskScope::Guard guard(scope.weak());
    if (!guard) return;
    const Run under(*this);
    task();
  }

  // A repeating timer goes on whether its task returns or throws.
  struct Run {
    explicit Run(TimerRecord& timer) : record(timer) { record.running = true; }
    ~Run() {
      record.running = false;
      if (record.interval) record.table->resume(record);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    TimerRecord& record;
  };
};

class PosixTimer final : public platform::Timer {
 public:
  explicit PosixTimer(std::shared_ptr<TimerRecord> record) : record_(std::move(record)) {}

  // What the task captured goes too, unless this happens inside the task.
  ~PosixTimer() override {
    record_->table->cancel(*record_);
    record_->scope.close();
    if (!record_->running) record_->task = nullptr;
  }

 private:
  std::shared_ptr<TimerRecord> record_;
};

std::unique_ptr<platform::Timer> TimerTable::start(std::weak_ptr<TaskSink> sink, platform::Duration delay,
                                                   std::optional<platform::Duration> interval, platform::Task task) {
  auto record = std::make_shared<TimerRecord>();
  record->table = shared_from_this();
  record->sink = std::move(sink);
  record->task = std::move(task);
  record->due = platform::deadlineAfter(PosixMonotonicClock().now(), delay);
  record->interval = interval;
  auto timer = std::make_unique<PosixTimer>(record);
  const std::lock_guard lock(mutex_);
  if (closed_) return timer;
  heap_.start(*record);
  armIfEarlier();
  return timer;
}

std::optional<platform::MonotonicTime> TimerTable::firstDue() const {
  const std::lock_guard lock(mutex_);
  const auto* first = heap_.first();
  return first != nullptr ? std::optional(first->due) : std::nullopt;
}

void TimerTable::postDue() {
  const auto now = PosixMonotonicClock().now();
  while (const auto record = takeDue(now)) record->post();
  const std::lock_guard lock(mutex_);
  if (armed_ && *armed_ > now) return;
  const auto* first = heap_.first();
  if (!armed_ && first == nullptr) return;
  armed_ = first != nullptr ? std::optional(first->due) : std::nullopt;
  descriptor_.arm(armed_);
}

void TimerTable::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  while (auto* first = heap_.first()) heap_.remove(*first);
}

void TimerTable::resume(TimerRecord& record) {
  record.stepPast(PosixMonotonicClock().now());
  const std::lock_guard lock(mutex_);
  if (closed_ || record.cancelled) return;
  heap_.resume(record);
  armIfEarlier();
}

void TimerTable::cancel(TimerRecord& record) {
  const std::lock_guard lock(mutex_);
  record.cancelled = true;
  heap_.remove(record);
}

std::shared_ptr<TimerRecord> TimerTable::takeDue(platform::MonotonicTime now) {
  const std::lock_guard lock(mutex_);
  auto* due = heap_.takeDue(now);
  return due != nullptr ? static_cast<TimerRecord*>(due)->shared_from_this() : nullptr;
}

// A later time than the armed one is left to postDue(): waking once in vain costs less than arming at each change.
void TimerTable::armIfEarlier() {
  const auto due = heap_.first()->due;
  if (armed_ && *armed_ <= due) return;
  armed_ = due;
  descriptor_.arm(armed_);
}

}  // namespace wayloom::posix
