#pragma once

#include <functional>
#include <gtk/gtk.h>
#include <memory>
#include <string>
#include <vector>

#include "wayloom/platform/Platform.hpp"
#include "wayloom/positioning/TWLManager.hpp"
#include "wayloom/view/TWLMapView.hpp"

namespace wayloom::tools {

// A window with a map view, a list of the maps to choose from, and a line of text below. While it follows, it shows the
// map that the device is on.
class MapWindow : public TWLManagerDelegate {
 public:
  struct Options {
    std::string title;
    std::string mapId;  // shown at first, or as soon as an update brings it, and not followed away from; empty: the
                        // first one, and follow
    int width = 900;
    int height = 700;
  };

  // The Platform, which must have GTK's widgets, and the manager must outlive the window.
  MapWindow(platform::Platform& platform, TWLManager& manager, const Options& options);
  ~MapWindow() override;
  MapWindow(const MapWindow&) = delete;
  MapWindow& operator=(const MapWindow&) = delete;

  void setClosedCallback(std::function<void()> closed) { closed_ = std::move(closed); }
  // Called when the map that the options name is not there and no update has brought it in a while.
  void setMissingCallback(std::function<void()> missing) { missing_ = std::move(missing); }
  // Adds a button that stops the time and lets it go on.
  void setPauseCallback(std::function<void(bool paused)> pause);
  // What the line below begins with.
  void setTimeText(const std::string& text);

  TWLMapView& view() { return *view_; }

  void locationManagerDidUpdateMapLocation(TWLManager& manager, const TWLMapLocationPtr& location) override;

 private:
  struct Witness;

  void addHeader(const std::string& title);
  void refreshMaps();
  void listMaps();
  void show(const TWLMapConfigPtr& map);
  void selectInList();
  void follow();
  void refreshText();

  static gboolean waited(gpointer window) noexcept;
  static void mapChosen(GObject* list, GParamSpec*, gpointer window) noexcept;
  static void followToggled(GtkToggleButton* button, gpointer window) noexcept;
  static void pauseToggled(GtkToggleButton* button, gpointer window) noexcept;
  static gboolean closeRequested(GtkWindow*, gpointer window) noexcept;

  platform::Platform& platform_;
  TWLManager& manager_;
  std::vector<TWLMapConfigPtr> maps_;  // those in the list: all that are not hidden
  std::string mapId_;                  // the map that is shown or on its way
  std::string wantedMap_;              // the one to show as soon as it is there
  guint wait_ = 0;
  GtkWidget* window_;
  GtkWidget* header_ = nullptr;
  GtkWidget* list_ = nullptr;
  GtkWidget* followButton_ = nullptr;
  GtkWidget* text_ = nullptr;
  bool isChoosing_ = false;  // the list is being set, not used
  std::string time_;
  std::string place_;
  std::string news_;  // a tap, or why a map can't be shown
  std::function<void()> closed_;
  std::function<void()> missing_;
  std::function<void(bool)> pause_;
  std::unique_ptr<TWLMapView> view_;
  platform::TaskScope scope_;
};

}  // namespace wayloom::tools
