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

// Percentages in whole thousandths: a locale may write a decimal comma.
std::string cssColour(const platform::Grey& grey) {
  const auto percent = [](double part) {
    const long thousandths = std::lround(part * 1000.0);
    return std::to_string(thousandths / 10) + "." + std::to_string(thousandths % 10) + "%";
  };
  const auto white = percent(grey.white);
  return "rgba(" + white + "," + white + "," + white + "," + percent(grey.alpha) + ")";
}

}  // namespace wayloom::gtk
