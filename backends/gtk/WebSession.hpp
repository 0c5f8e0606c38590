#pragma once

#include <webkit/webkit.h>

#include "backends/gtk/Objects.hpp"

namespace wayloom::gtk {

// What the web views of one factory share: nothing is kept on disk or between loads, and no network is reached.
class WebSession {
 public:
  explicit WebSession(bool accelerated);

  // A new web view of this session; its reference is floating.
  GtkWidget* makeView() const;

 private:
  ObjectRef<WebKitWebContext> context_;
  ObjectRef<WebKitNetworkSession> network_;
  ObjectRef<WebKitSettings> settings_;
  Signals signals_;
};

}  // namespace wayloom::gtk
