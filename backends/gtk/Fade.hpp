#pragma once

#include <gtk/gtk.h>

#include "wayloom/platform/Time.hpp"

namespace wayloom::gtk {

// A widget's opacity, and its way to another one in step with the display's frames. Where nobody sees it, or animations
// are switched off, the end comes at once.
class Fade {
 public:
  explicit Fade(GtkWidget* widget) : widget_(widget) {}  // not owned; lives longer
  ~Fade() { stop(); }
  Fade(const Fade&) = delete;
  Fade& operator=(const Fade&) = delete;

  void set(double alpha);
  void animate(double alpha, platform::Duration duration);
  // What is seen is 0 while it is concealed.
  void setConcealed(bool concealed);

 private:
  static gboolean tick(GtkWidget* widget, GdkFrameClock* clock, gpointer fade) noexcept;
  void show(double alpha);
  void stop();

  GtkWidget* widget_;
  double alpha_ = 1.0;
  bool concealed_ = false;
  double from_ = 1.0;
  double to_ = 1.0;
  gint64 began_ = 0;  // microseconds of the frame clock; 0 before the first frame
  double length_ = 0;
  guint callback_ = 0;
};

}  // namespace wayloom::gtk
