#include "backends/gtk/PageFocus.hpp"

namespace wayloom::gtk {

PageFocus::PageFocus(GtkWidget* view) : view_(view) { signals_.connect(view, "notify::root", rootChanged, this); }

PageFocus::~PageFocus() { forgetRoot(); }

// A key that the page has no use for comes again, after WebKit has moved the focus: one Tab is one move.
gboolean PageFocus::keyPressed(GtkEventControllerKey* keys, guint key, guint, GdkModifierType, gpointer self) noexcept {
  auto& page = *static_cast<PageFocus*>(self);
  if (key != GDK_KEY_Tab && key != GDK_KEY_ISO_Left_Tab) return FALSE;
  const auto time = gtk_event_controller_get_current_event_time(GTK_EVENT_CONTROLLER(keys));
  if (page.wasInPage_) {
    page.isBackward_ = key == GDK_KEY_ISO_Left_Tab;
    page.tabTime_ = time;
    return FALSE;
  }
  return time != 0 && time == page.tabTime_ ? TRUE : FALSE;
}

void PageFocus::forgetRoot() {
  if (keys_ != nullptr && gtk_event_controller_get_widget(keys_) != nullptr)
    gtk_widget_remove_controller(gtk_event_controller_get_widget(keys_), keys_);
  keys_ = nullptr;
  rootSignals_.reset();
}

void PageFocus::rootChanged(GtkWidget* view, GParamSpec*, gpointer self) noexcept {
  auto& page = *static_cast<PageFocus*>(self);
  page.forgetRoot();
  auto* root = gtk_widget_get_root(view);
  if (!GTK_IS_WINDOW(root)) return;
  page.rootSignals_ = std::make_unique<Signals>();
  page.rootSignals_->connect(root, "notify::focus-widget", focusChanged, self);
  page.keys_ = gtk_event_controller_key_new();
  gtk_event_controller_set_propagation_phase(page.keys_, GTK_PHASE_CAPTURE);
  page.rootSignals_->connect(page.keys_, "key-pressed", keyPressed, self);  // and keeps it
  gtk_widget_add_controller(GTK_WIDGET(root), page.keys_);
}

// What is done about it waits until GTK has ended its own move of the focus.
void PageFocus::focusChanged(GtkRoot* root, GParamSpec*, gpointer self) noexcept {
  auto& page = *static_cast<PageFocus*>(self);
  auto* focus = gtk_root_get_focus(root);
  if (focus == nullptr) return;
  if (focus == page.view_ || gtk_widget_is_ancestor(focus, page.view_) == FALSE) {
    page.wasInPage_ = focus == page.view_;
    return;
  }
  page.turn_ = std::make_unique<Timeout>(0, [&page, comesFromPage = page.wasInPage_] {
    if (comesFromPage)
      page.leave();
    else
      gtk_widget_grab_focus(page.view_);
  });
}

void PageFocus::leave() {
  auto* root = gtk_widget_get_root(view_);
  if (root == nullptr) return;
  const auto couldFocus = gtk_widget_get_can_focus(view_);
  gtk_widget_set_can_focus(view_, FALSE);
  const auto direction = isBackward_ ? GTK_DIR_TAB_BACKWARD : GTK_DIR_TAB_FORWARD;
  if (gtk_widget_child_focus(GTK_WIDGET(root), direction) == FALSE) {  // nothing comes after it: from the other end
    gtk_root_set_focus(root, nullptr);
    gtk_widget_child_focus(GTK_WIDGET(root), direction);
  }
  gtk_widget_set_can_focus(view_, couldFocus);
}

}  // namespace wayloom::gtk
