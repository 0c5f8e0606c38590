#pragma once

#include <gtk/gtk.h>
#include <memory>

#include "backends/gtk/Objects.hpp"

namespace wayloom::gtk {

// Lets the keyboard out of a web view. When Tab goes beyond a page's first or last control, WebKit hands the focus to a
// text view of its own inside the web view, where it would stay for ever: this passes it on to the next widget of the
// window. When the focus comes back to that text view from another widget, the page gets it.
class PageFocus {
 public:
  explicit PageFocus(GtkWidget* view);  // not owned; lives longer
  ~PageFocus();
  PageFocus(const PageFocus&) = delete;
  PageFocus& operator=(const PageFocus&) = delete;

 private:
  static gboolean keyPressed(GtkEventControllerKey* keys, guint key, guint code, GdkModifierType modifiers,
                             gpointer self) noexcept;
  static void rootChanged(GtkWidget* view, GParamSpec*, gpointer self) noexcept;
  static void focusChanged(GtkRoot* root, GParamSpec*, gpointer self) noexcept;
  void forgetRoot();
  void leave();

  GtkWidget* view_;
  bool isBackward_ = false;  // where the last Tab went
  guint32 tabTime_ = 0;
  bool wasInPage_ = false;              // whether the web view itself had the focus last
  GtkEventController* keys_ = nullptr;  // of the window; rootSignals_ keeps it
  std::unique_ptr<Timeout> turn_;
  std::unique_ptr<Signals> rootSignals_;
  Signals signals_;
};

}  // namespace wayloom::gtk
