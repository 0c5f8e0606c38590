// The small widgets beside the web view.
#pragma once

#include "wayloom/platform/ActivityIndicator.hpp"
#include "wayloom/platform/Button.hpp"

#include "backends/gtk/NativeWidget.hpp"

namespace wayloom::gtk {

class GtkPushButton final : public GtkWidgetOf<platform::Button> {
 public:
  GtkPushButton();

  void setImage(const std::optional<std::string>& path) override;
  void setLabel(const std::string& label) override;
  void setCornerRadius(double points) override;
  void setPressedCallback(std::function<void()> pressed) override { pressed_ = std::move(pressed); }

 private:
  static void clicked(GtkButton*, gpointer button) noexcept;

  std::function<void()> pressed_;
  Signals signals_;
};

class GtkActivityIndicator final : public GtkWidgetOf<platform::ActivityIndicator> {
 public:
  GtkActivityIndicator();

  void start() override;
  void stop() override;
};

}  // namespace wayloom::gtk
