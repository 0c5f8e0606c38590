#include "wayloom/gtk/GtkWidgetFactory.hpp"

#include <utility>

#include "wayloom/view/TWLMapView.hpp"

#include "backends/gtk/GraphicsProcessor.hpp"
#include "backends/gtk/GtkAlert.hpp"
#include "backends/gtk/GtkContainerView.hpp"
#include "backends/gtk/GtkControls.hpp"
#include "backends/gtk/GtkWebView.hpp"

namespace wayloom::gtk {

GtkWidgetFactory::GtkWidgetFactory(GtkOptions options) : options_(std::move(options)) {}

GtkWidgetFactory::~GtkWidgetFactory() = default;

std::unique_ptr<platform::ContainerView> GtkWidgetFactory::makeContainerView() {
  return std::make_unique<GtkContainerView>();
}

std::unique_ptr<platform::WebView> GtkWidgetFactory::makeWebView() {
  if (!session_) session_ = std::make_shared<const WebSession>(options_.accelerated.value_or(hasGraphicsProcessor()));
  return std::make_unique<GtkWebView>(session_, options_.scriptTimeout, options_.drawTimeout);
}

std::unique_ptr<platform::ActivityIndicator> GtkWidgetFactory::makeActivityIndicator() {
  return std::make_unique<GtkActivityIndicator>();
}

std::unique_ptr<platform::Button> GtkWidgetFactory::makeButton() { return std::make_unique<GtkPushButton>(); }

std::unique_ptr<platform::Alert> GtkWidgetFactory::showAlert(const platform::AlertContent& content,
                                                             platform::ContainerView& view,
                                                             std::function<void(const std::string&)> pressed) {
  return std::make_unique<GtkAlert>(content, widgetOf(view), std::move(pressed));
}

void GtkWidgetFactory::openSettingsPage() {
  if (const auto open = options_.openSettingsPage) open();
}

GtkWidget* widgetOf(platform::ContainerView& view) { return dynamic_cast<GtkContainerView&>(view).native(); }

GtkWidget* widgetOf(TWLMapView& view) { return widgetOf(view.view()); }

GtkWidget* widgetOf(platform::Widget& widget) { return dynamic_cast<NativeWidget&>(widget).native(); }

}  // namespace wayloom::gtk
