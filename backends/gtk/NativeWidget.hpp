#pragma once

#include <gtk/gtk.h>
#include <string>

#include "wayloom/platform/Widget.hpp"

#include "backends/gtk/Fade.hpp"
#include "backends/gtk/Objects.hpp"

namespace wayloom::gtk {

// How other parts of this backend see its widgets.
class NativeWidget {
 public:
  virtual ~NativeWidget() = default;
  virtual GtkWidget* native() const = 0;
  virtual const platform::Rect& frame() const = 0;
};

// Style of one widget, not of those inside it.
class OwnStyle {
 public:
  explicit OwnStyle(GtkWidget* widget);
  void set(const std::string& declarations);  // of CSS

 private:
  ObjectRef<GtkCssProvider> provider_;
};

// The CSS colour of a grey, whatever the locale.
std::string cssColour(const platform::Grey& grey);

// What all widgets have in common.
template <class Base>
class GtkWidgetOf : public Base, public NativeWidget {
 public:
  explicit GtkWidgetOf(GtkWidget* widget)
      : widget_(ObjectRef<GtkWidget>::adopting(widget)), style_(widget), fade_(widget) {}
  ~GtkWidgetOf() override {
    if (gtk_widget_get_parent(widget_.get()) != nullptr) gtk_widget_unparent(widget_.get());
  }
  GtkWidgetOf(const GtkWidgetOf&) = delete;
  GtkWidgetOf& operator=(const GtkWidgetOf&) = delete;

  GtkWidget* native() const override { return widget_.get(); }
  const platform::Rect& frame() const override { return frame_; }

  void setFrame(const platform::Rect& frame) override { frame_ = frame; }
  void setHidden(bool hidden) override { gtk_widget_set_visible(native(), hidden ? FALSE : TRUE); }
  void setAlpha(double alpha) override { fade_.set(alpha); }
  void animateAlpha(double alpha, platform::Duration duration) override { fade_.animate(alpha, duration); }
  void setBackground(const platform::Grey& grey) override {
    background_ = "background: " + cssColour(grey) + ";";
    restyle();
  }

 protected:
  // CSS declarations beside the background.
  void setStyle(std::string declarations) {
    declarations_ = std::move(declarations);
    restyle();
  }
  Fade& fade() { return fade_; }

 private:
  void restyle() { style_.set(background_ + declarations_); }

  ObjectRef<GtkWidget> widget_;
  OwnStyle style_;
  Fade fade_;
  platform::Rect frame_;
  std::string background_;
  std::string declarations_;
};

}  // namespace wayloom::gtk
