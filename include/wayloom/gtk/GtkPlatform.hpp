// The Platform of a GTK program: that of any Linux process, with widgets, and driven by GTK's main loop.
//
//   gtk_init();
//   auto platform = gtk::makePlatform({.mainBundle = "/opt/kiosk/bundle", .documents = "/var/lib/kiosk"});
//   TWLManager manager(*platform);
//   TWLMapView view(*platform);
#pragma once

#include <memory>

#include "wayloom/gtk/GtkWidgetFactory.hpp"
#include "wayloom/posix/PosixPlatform.hpp"

namespace wayloom::gtk {

// Adds a screen to the services of another backend, whose tasks this loop runs: in GTK's loop, as long as they live.
void addWidgets(platform::PlatformServices& services, const std::shared_ptr<posix::MainLoop>& loop,
                GtkOptions gtkOptions = {});

// As posix::makeServices(); the main loop, its own without one in the options, runs in GTK's as long as the services
// live.
platform::PlatformServices makeServices(posix::PlatformOptions options, GtkOptions gtkOptions = {});

std::unique_ptr<platform::Platform> makePlatform(posix::PlatformOptions options, GtkOptions gtkOptions = {});

}  // namespace wayloom::gtk
