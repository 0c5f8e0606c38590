#pragma once

#include <functional>
#include <memory>
#include <string>

#include "wayloom/platform/ActivityIndicator.hpp"
#include "wayloom/platform/Alert.hpp"
#include "wayloom/platform/Button.hpp"
#include "wayloom/platform/ContainerView.hpp"
#include "wayloom/platform/WebView.hpp"

namespace wayloom::platform {

// The user interface toolkit, as far as a map view needs it. Main thread.
class WidgetFactory {
 public:
  virtual ~WidgetFactory() = default;

  virtual std::unique_ptr<ContainerView> makeContainerView() = 0;
  virtual std::unique_ptr<WebView> makeWebView() = 0;
  virtual std::unique_ptr<ActivityIndicator> makeActivityIndicator() = 0;
  virtual std::unique_ptr<Button> makeButton() = 0;

  // Shows an alert above the view and returns at once. `pressed` is called later, at most once, with the title of the
  // button that was pressed; an alert that is closed in another way counts as cancelled.
  [[nodiscard]] virtual std::unique_ptr<Alert> showAlert(const AlertContent& content, ContainerView& view,
                                                         std::function<void(const std::string& title)> pressed) = 0;

  // Whether there is a place where people change what this application may do, and the way there.
  virtual bool hasSettingsPage() const = 0;
  virtual void openSettingsPage() = 0;
};

}  // namespace wayloom::platform
