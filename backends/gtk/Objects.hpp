// GObjects with C++ lifetimes.
#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <memory>
#include <utility>
#include <vector>

namespace wayloom::gtk {

// A reference to a GObject.
template <class T>
class ObjectRef {
 public:
  ObjectRef() = default;
  // Takes over a new object, whether its reference is floating or not.
  static ObjectRef adopting(T* object) {
    ObjectRef ref;
    ref.object_ = g_object_is_floating(object) ? static_cast<T*>(g_object_ref_sink(object)) : object;
    return ref;
  }
  ~ObjectRef() {
    if (object_ != nullptr) g_object_unref(object_);
  }
  ObjectRef(ObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ObjectRef& operator=(ObjectRef&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  T* get() const { return object_; }

 private:
  T* object_ = nullptr;
};

// Signal handlers that go with their C++ owner.
class Signals {
 public:
  Signals() = default;
  ~Signals() {
    for (const auto& [object, handler] : handlers_) {
      g_signal_handler_disconnect(object, handler);
      g_object_unref(object);
    }
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  // `function` has the signal's own parameters and then the data. It must be noexcept: GTK is no place to unwind.
  template <class Function>
  void connect(gpointer object, const char* signal, Function* function, gpointer data) {
    handlers_.emplace_back(g_object_ref(object),
                           g_signal_connect(object, signal, reinterpret_cast<GCallback>(function), data));
  }

 private:
  std::vector<std::pair<gpointer, gulong>> handlers_;
};

// Calls a function once, after a while; destruction cancels.
class Timeout {
 public:
  Timeout(unsigned milliseconds, std::function<void()> call) : call_(std::move(call)) {
    source_ = g_timeout_add(milliseconds, fire, this);
  }
  ~Timeout() {
    if (source_ != 0) g_source_remove(source_);
  }
  Timeout(const Timeout&) = delete;
  Timeout& operator=(const Timeout&) = delete;

 private:
  static gboolean fire(gpointer data) noexcept {
    auto& timeout = *static_cast<Timeout*>(data);
    timeout.source_ = 0;
    const auto call = std::move(timeout.call_);  // which may destroy the timeout
    call();
    return G_SOURCE_REMOVE;
  }

  std::function<void()> call_;
  guint source_ = 0;
};

}  // namespace wayloom::gtk
