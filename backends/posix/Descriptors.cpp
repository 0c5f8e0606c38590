#include "backends/posix/Descriptors.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <system_error>
#include <unistd.h>

namespace wayloom::posix {

Descriptor::Descriptor(int descriptor, const char* what) : descriptor_(descriptor) {
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), what);
}

Descriptor::~Descriptor() { close(descriptor_); }

void Descriptor::drain() {
  std::uint64_t count = 0;
  while (read(descriptor_, &count, sizeof count) < 0 && errno == EINTR) {
  }
}

EventDescriptor::EventDescriptor() : Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd") {}

void EventDescriptor::signal() {
  const std::uint64_t one = 1;
  while (write(get(), &one, sizeof one) < 0 && errno == EINTR) {
  }
}

TimerDescriptor::TimerDescriptor()
    : Descriptor(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd") {}

void TimerDescriptor::arm(std::optional<platform::MonotonicTime> time) {
  itimerspec setting{};  // all zero disarms
  if (time) {
    const auto sinceBoot = std::max(time->time_since_epoch(), platform::Duration(1));
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceBoot);
    setting.it_value.tv_sec = seconds.count();
    setting.it_value.tv_nsec = (sinceBoot - seconds).count();
  }
  timerfd_settime(get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

EitherDescriptor::EitherDescriptor(const Descriptor& first, const Descriptor& second)
    : Descriptor(epoll_create1(EPOLL_CLOEXEC), "epoll") {
  for (const Descriptor* one : {&first, &second}) {
    epoll_event event{};
    event.events = EPOLLIN;
    if (epoll_ctl(get(), EPOLL_CTL_ADD, one->get(), &event) != 0)
      throw std::system_error(errno, std::generic_category(), "epoll_ctl");
  }
}

void EitherDescriptor::wait() const {
  epoll_event event{};
  epoll_wait(get(), &event, 1, -1);
}

}  // namespace wayloom::posix
