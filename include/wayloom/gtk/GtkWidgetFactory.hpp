#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "wayloom/platform/WidgetFactory.hpp"

struct _GtkWidget;  // NOLINT(bugprone-reserved-identifier): what GTK calls GtkWidget

namespace wayloom {
class TWLMapView;
}

namespace wayloom::gtk {

class WebSession;

struct GtkOptions {
  // Opens the page on which people change what this application may do; empty: there is none.
  std::function<void()> openSettingsPage{};
  // Whether pages are composed by the graphics processor; empty: where there is one. Emulated by the processor that
  // costs ten times as much as drawing without it.
  std::optional<bool> accelerated{};
  // Longest run of a script before its page counts as lost, and is ended.
  platform::Duration scriptTimeout = std::chrono::seconds(5);
  // From the first bytes of a page until all of it is there and decoded; a page that takes longer is ended. Large plans
  // on small devices take their time.
  platform::Duration drawTimeout = std::chrono::minutes(2);
};

// GTK 4 and WebKitGTK. gtk_init() must have succeeded.
//
// Pages see files and no network, keep nothing on disk, and open no dialogs, windows or downloads. They may go only to
// other files. Each web view has a process of its own, inside WebKit's sandbox.
class GtkWidgetFactory final : public platform::WidgetFactory {
 public:
  explicit GtkWidgetFactory(GtkOptions options = {});
  ~GtkWidgetFactory() override;

  std::unique_ptr<platform::ContainerView> makeContainerView() override;
  std::unique_ptr<platform::WebView> makeWebView() override;
  std::unique_ptr<platform::ActivityIndicator> makeActivityIndicator() override;
  std::unique_ptr<platform::Button> makeButton() override;
  [[nodiscard]] std::unique_ptr<platform::Alert> showAlert(const platform::AlertContent& content,
                                                           platform::ContainerView& view,
                                                           std::function<void(const std::string&)> pressed) override;
  bool hasSettingsPage() const override { return static_cast<bool>(options_.openSettingsPage); }
  void openSettingsPage() override;

 private:
  GtkOptions options_;
  std::shared_ptr<const WebSession> session_;  // from the first web view on
};

// The widget to put into a window. It belongs to the view, which may go before or after the window.
_GtkWidget* widgetOf(platform::ContainerView& view);
_GtkWidget* widgetOf(TWLMapView& view);
_GtkWidget* widgetOf(platform::Widget& widget);

}  // namespace wayloom::gtk
