#include "backends/gtk/NativeWidget.hpp"

#include <cmath>

namespace wayloom::gtk {

OwnStyle::OwnStyle(GtkWidget* widget) : provider_(ObjectRef<GtkCssProvider>::adopting(gtk_css_provider_new())) {
  gtk_style_context_add_provider(gtk_widget_get_style_context(widget), GTK_STYLE_PROVIDER(provider_.get()),
                                 GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
}

void OwnStyle::set(const std::string& declarations) {
  const auto sheet = "* {" + declarations + "}";
  gtk_css_provider_load_from_data(provider_.get(), sheet.c_str(), static_cast<gssize>(sheet.size()));
}

// In whole numbers: a locale may write a decimal comma.
std::string cssColour(const platform::Grey& grey) {
  const auto white = std::to_string(std::lround(grey.white * 255.0));
  const long thousandths = std::lround(grey.alpha * 1000.0);
  const auto fraction = std::to_string(1000 + thousandths % 1000).substr(1);
  return "rgba(" + white + "," + white + "," + white + "," + std::to_string(thousandths / 1000) + "." + fraction + ")";
}

}  // namespace wayloom::gtk
