#pragma once

#include <optional>

#include "wayloom/platform/Time.hpp"

namespace wayloom::posix {

// An owned file descriptor; constructors throw std::system_error with `what` when the system gave none.
class Descriptor {
 public:
  Descriptor(int descriptor, const char* what);
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return descriptor_; }

 protected:
  // Reads the counter, and so makes the descriptor unreadable again.
  void drain();

 private:
  int descriptor_;
};

// Readable from signal() to clear().
class EventDescriptor : public Descriptor {
 public:
  EventDescriptor();
  void signal();
  void clear() { drain(); }
};

// Readable from a time of PosixMonotonicClock on, until it is armed anew or disarmed.
class TimerDescriptor : public Descriptor {
 public:
  TimerDescriptor();
  void arm(std::optional<platform::MonotonicTime> time);
};

// Readable when one of two descriptors is.
class EitherDescriptor : public Descriptor {
 public:
  EitherDescriptor(const Descriptor& first, const Descriptor& second);
  void wait() const;
};

}  // namespace wayloom::posix
