#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <string>

#include "wayloom/platform/Alert.hpp"

#include "backends/gtk/Objects.hpp"

namespace wayloom::gtk {

// A message dialog, modal to the view's window. It never blocks.
class GtkAlert final : public platform::Alert {
 public:
  GtkAlert(const platform::AlertContent& content, GtkWidget* view,
           std::function<void(const std::string& title)> pressed);
  ~GtkAlert() override;
  GtkAlert(const GtkAlert&) = delete;
  GtkAlert& operator=(const GtkAlert&) = delete;

 private:
  static void responded(GtkDialog* dialog, int response, gpointer alert) noexcept;

  platform::AlertContent content_;
  std::function<void(const std::string& title)> pressed_;
  ObjectRef<GtkWidget> dialog_;
  std::unique_ptr<Signals> signals_ = std::make_unique<Signals>();
};

}  // namespace wayloom::gtk
