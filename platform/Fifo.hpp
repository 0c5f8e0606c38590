#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace wayloom::platform {

// A first-in first-out buffer that stops allocating once it has reached its working size (std::deque goes on taking
// and returning blocks as it moves along). T is default-constructible and cheap to move. Not thread-safe.
template <class T>
class Fifo {
 public:
  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  T& operator[](std::size_t index) { return slots_[(first_ + index) & (slots_.size() - 1)]; }

  void push(T value) {
    if (size_ == slots_.size()) grow();
    (*this)[size_++] = std::move(value);
  }

  T pop() {
    T value = std::exchange((*this)[0], T());
    first_ = (first_ + 1) & (slots_.size() - 1);
    --size_;
    return value;
  }

  // Takes an element out of the middle; the others keep their order.
  T take(std::size_t index) {
    T value = std::exchange((*this)[index], T());
    for (; index > 0; --index) std::swap((*this)[index], (*this)[index - 1]);
    pop();
    return value;
  }

 private:
  void grow() {
    std::vector<T> larger(slots_.empty() ? 16 : slots_.size() * 2);
    for (std::size_t i = 0; i < size_; ++i) larger[i] = std::move((*this)[i]);
    slots_.swap(larger);
    first_ = 0;
  }

  std::vector<T> slots_;  // a power of two of them
  std::size_t first_ = 0;
  std::size_t size_ = 0;
};

}  // namespace wayloom::platform
