#include "tools/view/MapWindow.hpp"

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>

#include "wayloom/gtk/GtkWidgetFactory.hpp"
#include "wayloom/maps/TWLMapConfigRepo.hpp"

namespace wayloom::tools {
namespace {

constexpr guint kLongestWait = 3000;  // milliseconds, for an update that brings the map that was asked for

}  // namespace

// Taps go to standard output, one JSON line each.
struct MapWindow::Witness : TWLMapViewDelegate {
  explicit Witness(MapWindow& told) : window(told) {}

  void mapViewDidFinishLoad(TWLMapView&) override { tell(""); }
  void mapViewDidFailLoadWithError(TWLMapView&, const platform::Error& error) override {
    tell("The map can't be shown: " + error.description);
  }
  void mapViewTappedAt(TWLMapView& view, Point metres) override {
    const platform::Json line = {
        {"event", "tap"}, {"map_id", view.map()->mapId()}, {"x_m", metres.x}, {"y_m", metres.y}};
    fmt::print("{}\n", line.dump(-1, ' ', false, platform::Json::error_handler_t::replace));
    std::fflush(stdout);
    tell(fmt::format("Tapped at {:.1f} m, {:.1f} m", metres.x, metres.y));
  }
  void tell(std::string news) {
    window.news_ = std::move(news);
    // People also change the map in an alert of the view's.
    if (const auto shown = window.view_->map()) window.mapId_ = shown->mapId();
    window.selectInList();
    window.refreshText();
  }

  MapWindow& window;
};

MapWindow::MapWindow(platform::Platform& platform, TWLManager& manager, const Options& options)
    : platform_(platform),
      manager_(manager),
      wantedMap_(options.mapId),
      window_(gtk_window_new()),
      view_(std::make_unique<TWLMapView>(platform)) {
  view_->setDelegate(std::make_shared<Witness>(*this));
  view_->setLocationManager(&manager_);
  gtk_window_set_default_size(GTK_WINDOW(window_), options.width, options.height);
  addHeader(options.title);
  auto* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  gtk_box_append(GTK_BOX(box), gtk::widgetOf(*view_));
  text_ = gtk_label_new("");
  gtk_label_set_xalign(GTK_LABEL(text_), 0.0F);
  gtk_label_set_ellipsize(GTK_LABEL(text_), PANGO_ELLIPSIZE_END);
  gtk_widget_set_margin_start(text_, 12);
  gtk_widget_set_margin_end(text_, 12);
  gtk_widget_set_margin_top(text_, 6);
  gtk_widget_set_margin_bottom(text_, 6);
  gtk_box_append(GTK_BOX(box), text_);
  gtk_window_set_child(GTK_WINDOW(window_), box);
  g_signal_connect(window_, "close-request", G_CALLBACK(closeRequested), this);

  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(followButton_), options.mapId.empty() ? TRUE : FALSE);
  g_signal_connect(list_, "notify::selected", G_CALLBACK(mapChosen), this);
  g_signal_connect(followButton_, "toggled", G_CALLBACK(followToggled), this);
  refreshMaps();
  if (!wantedMap_.empty()) wait_ = g_timeout_add(kLongestWait, waited, this);
  gtk_window_present(GTK_WINDOW(window_));
  manager_.addListener(*this);
  TWLMapConfigRepo::sharedRepo(platform_).setUpdateObserver([this](const MapUpdateStep& step) {
    if (step.kind == MapUpdateStep::Kind::ended) refreshMaps();
  });
}

MapWindow::~MapWindow() {
  TWLMapConfigRepo::sharedRepo(platform_).setUpdateObserver({});
  if (wait_ != 0) g_source_remove(wait_);
  manager_.removeListener(*this);
  view_.reset();
  if (window_ != nullptr) gtk_window_destroy(GTK_WINDOW(window_));
}

void MapWindow::addHeader(const std::string& title) {
  header_ = gtk_header_bar_new();
  gtk_window_set_titlebar(GTK_WINDOW(window_), header_);
  gtk_window_set_title(GTK_WINDOW(window_), title.c_str());
  list_ = gtk_drop_down_new(nullptr, nullptr);
  gtk_widget_set_tooltip_text(list_, "Map");
  gtk_header_bar_pack_start(GTK_HEADER_BAR(header_), list_);
  followButton_ = gtk_toggle_button_new_with_label("Follow");
  gtk_widget_set_tooltip_text(followButton_, "Change to the map on which the device is");
  gtk_header_bar_pack_start(GTK_HEADER_BAR(header_), followButton_);
}

// After each update the maps may be others, also the one that is shown.
void MapWindow::refreshMaps() {
  listMaps();
  const auto find = [this](const std::string& mapId) {
    return std::find_if(maps_.begin(), maps_.end(), [&](const auto& map) { return map->mapId() == mapId; });
  };
  if (const auto wanted = find(wantedMap_); wanted != maps_.end()) {
    wantedMap_.clear();
    show(*wanted);
  } else if (const auto same = find(mapId_); same != maps_.end()) {
    show(*same);
  } else if (mapId_.empty() && !maps_.empty()) {
    show(maps_.front());
  }
}

void MapWindow::show(const TWLMapConfigPtr& map) {
  mapId_ = map->mapId();
  selectInList();
  view_->loadMap(map);
}

void MapWindow::listMaps() {
  auto maps = TWLMapConfigRepo::sharedRepo(platform_).maps();
  std::erase_if(maps, [](const auto& map) { return map->hideMap(); });
  if (maps == maps_) return;
  maps_ = std::move(maps);
  auto* names = gtk_string_list_new(nullptr);
  for (const auto& map : maps_) gtk_string_list_append(names, map->name().value_or(map->mapId()).c_str());
  isChoosing_ = true;
  gtk_drop_down_set_model(GTK_DROP_DOWN(list_), G_LIST_MODEL(names));
  isChoosing_ = false;
  g_object_unref(names);
}

void MapWindow::selectInList() {
  guint selected = GTK_INVALID_LIST_POSITION;
  for (std::size_t i = 0; i < maps_.size(); ++i)
    if (maps_[i]->mapId() == mapId_) selected = static_cast<guint>(i);
  isChoosing_ = true;
  gtk_drop_down_set_selected(GTK_DROP_DOWN(list_), selected);
  isChoosing_ = false;
}

void MapWindow::setPauseCallback(std::function<void(bool)> pause) {
  pause_ = std::move(pause);
  auto* button = gtk_toggle_button_new();
  gtk_button_set_icon_name(GTK_BUTTON(button), "media-playback-pause-symbolic");
  gtk_widget_set_tooltip_text(button, "Stop the time");
  gtk_header_bar_pack_end(GTK_HEADER_BAR(header_), button);
  g_signal_connect(button, "toggled", G_CALLBACK(pauseToggled), this);
}

void MapWindow::follow() {
  const auto location = manager_.currentMapLocation();
  if (!location || gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(followButton_)) == FALSE) return;
  const auto shown = view_->map();
  const auto map = TWLMapConfigRepo::sharedRepo(platform_).forMapId(location->mapId());
  if (map && !map->hideMap() && (!shown || shown->mapId() != map->mapId())) show(map);
}

void MapWindow::locationManagerDidUpdateMapLocation(TWLManager&, const TWLMapLocationPtr& location) {
  if (location) {
    const auto map = location->map();
    const auto pixels = location->pixelCoords();
    place_ = fmt::format("{}: {:.1f} m, {:.1f} m \u00b1 {:.1f} m",
                         map ? map->name().value_or(map->mapId()) : location->mapId(), pixels.x / 5.0, pixels.y / 5.0,
                         location->uncertaintyRadiusMeters());
  }
  refreshText();
  // The manager keeps the position only when all have been told.
  platform_.tasks().mainQueue().async(scope_.bind([this] { follow(); }));
}

void MapWindow::setTimeText(const std::string& text) {
  time_ = text;
  refreshText();
}

void MapWindow::refreshText() {
  std::string line = time_;
  for (const auto& part : {place_, news_})
    if (!part.empty()) line += (line.empty() ? "" : "   \u00b7   ") + part;
  gtk_label_set_text(GTK_LABEL(text_), line.c_str());
}

gboolean MapWindow::waited(gpointer data) noexcept {
  auto& window = *static_cast<MapWindow*>(data);
  window.wait_ = 0;
  if (const auto missing = window.missing_; missing && !window.wantedMap_.empty()) missing();
  return G_SOURCE_REMOVE;
}

void MapWindow::mapChosen(GObject* list, GParamSpec*, gpointer data) noexcept {
  auto& window = *static_cast<MapWindow*>(data);
  const auto chosen = gtk_drop_down_get_selected(GTK_DROP_DOWN(list));
  if (window.isChoosing_ || chosen >= window.maps_.size()) return;
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(window.followButton_), FALSE);
  window.show(window.maps_[chosen]);
}

void MapWindow::followToggled(GtkToggleButton*, gpointer data) noexcept { static_cast<MapWindow*>(data)->follow(); }

void MapWindow::pauseToggled(GtkToggleButton* button, gpointer data) noexcept {
  const auto& window = *static_cast<MapWindow*>(data);
  if (window.pause_) window.pause_(gtk_toggle_button_get_active(button) != FALSE);
}

gboolean MapWindow::closeRequested(GtkWindow*, gpointer data) noexcept {
  if (const auto closed = static_cast<MapWindow*>(data)->closed_) closed();
  return TRUE;  // the window goes with its owner
}

}  // namespace wayloom::tools
