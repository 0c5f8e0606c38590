#include "backends/gtk/GtkControls.hpp"

#include <cmath>

namespace wayloom::gtk {
namespace {

constexpr int kIconSize = 24;     // pixels
constexpr int kSpinnerSize = 48;  // pixels
constexpr const char* kIconWithoutImage = "find-location-symbolic";

}  // namespace

GtkPushButton::GtkPushButton() : GtkWidgetOf(gtk_button_new()) {
  setImage(std::nullopt);
  signals_.connect(native(), "clicked", clicked, this);
}

void GtkPushButton::setImage(const std::optional<std::string>& path) {
  auto* image = path ? gtk_image_new_from_file(path->c_str()) : gtk_image_new_from_icon_name(kIconWithoutImage);
  gtk_image_set_pixel_size(GTK_IMAGE(image), kIconSize);
  gtk_widget_set_halign(image, GTK_ALIGN_CENTER);
  gtk_widget_set_valign(image, GTK_ALIGN_CENTER);
  gtk_button_set_child(GTK_BUTTON(native()), image);
}

void GtkPushButton::setLabel(const std::string& label) {
  gtk_widget_set_tooltip_text(native(), label.c_str());
  gtk_accessible_update_property(GTK_ACCESSIBLE(native()), GTK_ACCESSIBLE_PROPERTY_LABEL, label.c_str(), -1);
}

void GtkPushButton::setCornerRadius(double points) {
  setStyle("border: none; box-shadow: none; padding: 0; min-width: 0; min-height: 0; border-radius: " +
           std::to_string(std::lround(points)) + "px;");
}

void GtkPushButton::clicked(GtkButton*, gpointer data) noexcept {
  if (const auto pressed = static_cast<GtkPushButton*>(data)->pressed_) pressed();
}

GtkActivityIndicator::GtkActivityIndicator() : GtkWidgetOf(gtk_spinner_new()) {
  gtk_widget_set_halign(native(), GTK_ALIGN_CENTER);
  gtk_widget_set_valign(native(), GTK_ALIGN_CENTER);
  gtk_widget_set_size_request(native(), kSpinnerSize, kSpinnerSize);
  gtk_widget_set_can_target(native(), FALSE);
  setStyle("color: white;");
  stop();
}

void GtkActivityIndicator::start() {
  gtk_spinner_start(GTK_SPINNER(native()));
  setHidden(false);
}

void GtkActivityIndicator::stop() {
  gtk_spinner_stop(GTK_SPINNER(native()));
  setHidden(true);
}

}  // namespace wayloom::gtk
