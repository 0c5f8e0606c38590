#include "backends/gtk/GtkAlert.hpp"

#include <utility>

namespace wayloom::gtk {
namespace {

constexpr int kOther = 1;            // response of the button that does something
constexpr glong kLongestText = 600;  // characters: names come from outside, and a dialog has to fit a screen

// Valid UTF-8, and of a long text the beginning.
std::string shown(const std::string& text) {
  const std::string start = text.substr(0, kLongestText * 4);
  g_autofree char* valid = g_utf8_make_valid(start.c_str(), static_cast<gssize>(start.size()));
  if (g_utf8_strlen(valid, -1) <= kLongestText && start.size() == text.size()) return valid;
  g_autofree char* beginning = g_utf8_substring(valid, 0, std::min(g_utf8_strlen(valid, -1), kLongestText));
  return std::string(beginning) + "\u2026";
}

GtkWindow* windowOf(GtkWidget* view) {
  auto* root = gtk_widget_get_root(view);
  return GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
}

}  // namespace

GtkAlert::GtkAlert(const platform::AlertContent& content, GtkWidget* view,
                   std::function<void(const std::string& title)> pressed)
    : content_(content), pressed_(std::move(pressed)) {
  const auto flags = static_cast<GtkDialogFlags>(GTK_DIALOG_MODAL | GTK_DIALOG_DESTROY_WITH_PARENT);
  auto* dialog = gtk_message_dialog_new(windowOf(view), flags, GTK_MESSAGE_OTHER, GTK_BUTTONS_NONE, "%s",
                                        shown(content_.title).c_str());
  dialog_ = ObjectRef<GtkWidget>::adopting(GTK_WIDGET(g_object_ref(dialog)));  // the first one is GTK's
  gtk_message_dialog_format_secondary_text(GTK_MESSAGE_DIALOG(dialog), "%s", shown(content_.message).c_str());
  gtk_dialog_add_button(GTK_DIALOG(dialog), content_.cancelButton.c_str(), GTK_RESPONSE_CANCEL);
  if (content_.otherButton) gtk_dialog_add_button(GTK_DIALOG(dialog), content_.otherButton->c_str(), kOther);
  gtk_dialog_set_default_response(GTK_DIALOG(dialog), content_.otherButton ? kOther : GTK_RESPONSE_CANCEL);
  signals_->connect(dialog, "response", responded, this);
  gtk_window_present(GTK_WINDOW(dialog));
}

GtkAlert::~GtkAlert() {
  signals_.reset();
  gtk_window_destroy(GTK_WINDOW(dialog_.get()));
}

void GtkAlert::responded(GtkDialog* dialog, int response, gpointer data) noexcept {
  auto& alert = *static_cast<GtkAlert*>(data);
  gtk_widget_set_visible(GTK_WIDGET(dialog), FALSE);
  const auto pressed = std::move(alert.pressed_);  // at most once; it may destroy the alert
  const auto title = response == kOther ? *alert.content_.otherButton : alert.content_.cancelButton;
  if (pressed) pressed(title);
}

}  // namespace wayloom::gtk
