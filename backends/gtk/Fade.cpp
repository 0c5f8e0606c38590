#include "backends/gtk/Fade.hpp"

#include <algorithm>

namespace wayloom::gtk {
namespace {

bool wantsAnimations(GtkWidget* widget) {
  gboolean enabled = TRUE;
  g_object_get(gtk_widget_get_settings(widget), "gtk-enable-animations", &enabled, nullptr);
  return enabled != FALSE;
}

}  // namespace

void Fade::set(double alpha) {
  stop();
  show(alpha);
}

void Fade::animate(double alpha, platform::Duration duration) {
  stop();
  if (gtk_widget_get_mapped(widget_) == FALSE || !wantsAnimations(widget_)) return show(alpha);
  from_ = alpha_;
  to_ = alpha;
  began_ = 0;
  length_ = static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(duration).count());
  callback_ = gtk_widget_add_tick_callback(widget_, tick, this, nullptr);
}

void Fade::setConcealed(bool concealed) {
  concealed_ = concealed;
  show(alpha_);
}

gboolean Fade::tick(GtkWidget*, GdkFrameClock* clock, gpointer data) noexcept {
  auto& fade = *static_cast<Fade*>(data);
  const auto now = gdk_frame_clock_get_frame_time(clock);
  if (fade.began_ == 0) fade.began_ = now;
  const double part = fade.length_ > 0 ? static_cast<double>(now - fade.began_) / fade.length_ : 1.0;
  fade.show(fade.from_ + (fade.to_ - fade.from_) * std::min(part, 1.0));
  if (part < 1.0) return G_SOURCE_CONTINUE;
  fade.callback_ = 0;
  return G_SOURCE_REMOVE;
}

void Fade::show(double alpha) {
  alpha_ = alpha;
  gtk_widget_set_opacity(widget_, concealed_ ? 0.0 : alpha);
}

void Fade::stop() {
  if (callback_ != 0) gtk_widget_remove_tick_callback(widget_, callback_);
  callback_ = 0;
}

}  // namespace wayloom::gtk
