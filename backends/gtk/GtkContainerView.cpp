#include "backends/gtk/GtkContainerView.hpp"

#include <cmath>
#include <utility>

namespace wayloom::gtk {
namespace {

constexpr const char* kView = "wayloom-view";      // of a box, its GtkContainerView
constexpr const char* kWidget = "wayloom-widget";  // of a child, its NativeWidget
constexpr int kNaturalSize = 200;                  // what the view asks for when nobody says more, pixels

void measure(GtkWidget*, GtkOrientation, int, int* minimum, int* natural, int* minimumBaseline, int* naturalBaseline) {
  *minimum = 0;
  *natural = kNaturalSize;
  *minimumBaseline = *naturalBaseline = -1;
}

int whole(double points) { return static_cast<int>(std::lround(points)); }

void place(GtkWidget* child, const platform::Rect& frame) {
  int minimumWidth = 0, minimumHeight = 0;
  gtk_widget_measure(child, GTK_ORIENTATION_HORIZONTAL, -1, &minimumWidth, nullptr, nullptr, nullptr);
  const int width = std::max(whole(frame.width), minimumWidth);
  gtk_widget_measure(child, GTK_ORIENTATION_VERTICAL, width, &minimumHeight, nullptr, nullptr, nullptr);
  const GtkAllocation allocation{whole(frame.x), whole(frame.y), width, std::max(whole(frame.height), minimumHeight)};
  gtk_widget_size_allocate(child, &allocation, -1);
}

}  // namespace

GtkContainerView::GtkContainerView()
    : box_(ObjectRef<GtkWidget>::adopting(gtk_box_new(GTK_ORIENTATION_VERTICAL, 0))), style_(native()) {
  g_object_set_data(G_OBJECT(native()), kView, this);
  gtk_widget_set_layout_manager(native(), gtk_custom_layout_new(nullptr, measure, allocate));
  gtk_widget_set_overflow(native(), GTK_OVERFLOW_HIDDEN);
  gtk_widget_set_hexpand(native(), TRUE);
  gtk_widget_set_vexpand(native(), TRUE);
  signals_.connect(native(), "notify::root", rootChanged, this);
}

GtkContainerView::~GtkContainerView() { g_object_set_data(G_OBJECT(native()), kView, nullptr); }

void GtkContainerView::add(platform::Widget& widget) {
  auto& child = dynamic_cast<NativeWidget&>(widget);
  g_object_set_data(G_OBJECT(child.native()), kWidget, &child);
  gtk_widget_insert_before(child.native(), native(), nullptr);
}

void GtkContainerView::setBackground(const platform::Grey& grey) { style_.set("background: " + cssColour(grey) + ";"); }

void GtkContainerView::setLayoutCallback(std::function<void(double width, double height)> layout) {
  layout_ = std::move(layout);
  gtk_widget_queue_allocate(native());
}

void GtkContainerView::allocate(GtkWidget* box, int width, int height, int) noexcept {
  const auto* view = static_cast<GtkContainerView*>(g_object_get_data(G_OBJECT(box), kView));
  if (view == nullptr) return;
  if (const auto layout = view->layout_) layout(width, height);
  for (auto* child = gtk_widget_get_first_child(box); child != nullptr; child = gtk_widget_get_next_sibling(child))
    if (const auto* widget = static_cast<NativeWidget*>(g_object_get_data(G_OBJECT(child), kWidget)))
      if (gtk_widget_should_layout(child) != FALSE) place(child, widget->frame());
}

void GtkContainerView::rootChanged(GtkWidget* box, GParamSpec*, gpointer data) noexcept {
  auto& view = *static_cast<GtkContainerView*>(data);
  const bool inWindow = gtk_widget_get_root(box) != nullptr;
  if (std::exchange(view.isInWindow_, inWindow) == inWindow) return;
  if (const auto moved = view.moved_) moved(inWindow);
}

}  // namespace wayloom::gtk
