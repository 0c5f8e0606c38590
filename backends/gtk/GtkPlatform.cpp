#include "wayloom/gtk/GtkPlatform.hpp"

#include <utility>

#include "wayloom/gtk/MainLoopSource.hpp"

namespace wayloom::gtk {
namespace {

struct DrivenWidgets {
  MainLoopSource source;
  GtkWidgetFactory factory;
};

}  // namespace

void addWidgets(platform::PlatformServices& services, const std::shared_ptr<posix::MainLoop>& loop,
                GtkOptions gtkOptions) {
  const std::shared_ptr<DrivenWidgets> driven(
      new DrivenWidgets{MainLoopSource(loop), GtkWidgetFactory(std::move(gtkOptions))});
  services.widgets = std::shared_ptr<platform::WidgetFactory>(driven, &driven->factory);
}

platform::PlatformServices makeServices(posix::PlatformOptions options, GtkOptions gtkOptions) {
  if (!options.loop) options.loop = std::make_shared<posix::MainLoop>();
  auto services = posix::makeServices(options);
  addWidgets(services, options.loop, std::move(gtkOptions));
  return services;
}

std::unique_ptr<platform::Platform> makePlatform(posix::PlatformOptions options, GtkOptions gtkOptions) {
  return std::make_unique<platform::Platform>(makeServices(std::move(options), std::move(gtkOptions)));
}

}  // namespace wayloom::gtk
