// A GTK program with a map in it.
//
//   gtk-host BUNDLE DOCUMENTS MAPID
//
// BUNDLE is the application's folder of resources (examples/venue/bundle, say), DOCUMENTS where it may write.
#include <gtk/gtk.h>

#include "wayloom/gtk/GtkPlatform.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/view/TWLMapView.hpp"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  gtk_init();
  auto* window = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), 800, 600);

  auto platform = wayloom::gtk::makePlatform({.mainBundle = argv[1], .resourceBundle = MAP_PAGE, .documents = argv[2]});
  wayloom::TWLManager manager(*platform);
  wayloom::TWLMapView view(*platform);
  view.setLocationManager(&manager);
  gtk_window_set_child(GTK_WINDOW(window), wayloom::gtk::widgetOf(view));
  manager.updateMaps();
  view.loadMap(wayloom::TWLMapConfigRepo::sharedRepo(*platform).forMapId(argv[3]));

  gtk_window_present(GTK_WINDOW(window));
  while (g_list_model_get_n_items(gtk_window_get_toplevels()) > 0) g_main_context_iteration(nullptr, TRUE);
}
