#pragma once

#include "wayloom/platform/ContainerView.hpp"

#include "backends/gtk/NativeWidget.hpp"

namespace wayloom::gtk {

class GtkContainerView final : public platform::ContainerView {
 public:
  GtkContainerView();
  ~GtkContainerView() override;

  GtkWidget* native() const { return box_.get(); }

  void add(platform::Widget& widget) override;
  void setBackground(const platform::Grey& grey) override;
  void setLayoutCallback(std::function<void(double width, double height)> layout) override;
  void setWindowCallback(std::function<void(bool inWindow)> moved) override { moved_ = std::move(moved); }
  bool isInWindow() const override { return isInWindow_; }

 private:
  static void allocate(GtkWidget* box, int width, int height, int baseline) noexcept;
  static void rootChanged(GtkWidget* box, GParamSpec*, gpointer view) noexcept;

  ObjectRef<GtkWidget> box_;
  OwnStyle style_;
  std::function<void(double width, double height)> layout_;
  std::function<void(bool inWindow)> moved_;
  bool isInWindow_ = false;
  Signals signals_;
};

}  // namespace wayloom::gtk
