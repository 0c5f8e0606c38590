// Widgets without a screen: they keep what a map view did with them, and do what a person or a page would.
//
//   world.widgets().enterWindow(view.view(), 400, 300);
//   world.time().runReady();
//   dynamic_cast<sim::SimWebView&>(view.webView()).scripts();  // {"setDotPosition(12,34,50, true)"}
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/WidgetFactory.hpp"

namespace wayloom::sim {

// What all simulated widgets keep.
template <class Base>
class SimWidget : public Base {
 public:
  void setFrame(const platform::Rect& frame) override { frame_ = frame; }
  void setHidden(bool hidden) override { isHidden_ = hidden; }
  void setAlpha(double alpha) override { alpha_ = alpha, fade_ = {}; }
  void animateAlpha(double alpha, platform::Duration duration) override { alpha_ = alpha, fade_ = duration; }
  void setBackground(const platform::Grey& grey) override { background_ = grey; }

  const platform::Rect& frame() const { return frame_; }
  bool isHidden() const { return isHidden_; }
  double alpha() const { return alpha_; }                           // at the end of the last animation
  const platform::Duration& fadeDuration() const { return fade_; }  // zero: set at once
  const platform::Grey& background() const { return background_; }

 private:
  platform::Rect frame_;
  bool isHidden_ = false;
  double alpha_ = 1.0;
  platform::Duration fade_{};
  platform::Grey background_;
};

class SimButton final : public SimWidget<platform::Button> {
 public:
  void setImage(const std::optional<std::string>& path) override { image = path; }
  void setLabel(const std::string& text) override { label = text; }
  void setCornerRadius(double points) override { cornerRadius = points; }
  void setPressedCallback(std::function<void()> callback) override { pressed_ = std::move(callback); }

  void press();

  std::optional<std::string> image;
  std::string label;
  double cornerRadius = 0.0;

 private:
  std::function<void()> pressed_;
};

class SimActivityIndicator final : public SimWidget<platform::ActivityIndicator> {
 public:
  void start() override { isRunning = true; }
  void stop() override { isRunning = false; }

  bool isRunning = false;
};

// Its page loads as soon as it is asked to, unless the factory leaves that to the test.
class SimWebView final : public SimWidget<platform::WebView> {
 public:
  struct Options {
    bool finishesLoads = true;
    std::function<void(std::string_view)> scriptObserver{};
  };

  SimWebView(platform::TaskScheduler& tasks, std::shared_ptr<const Options> options)
      : tasks_(tasks), options_(std::move(options)) {}

  void setDelegate(platform::WebViewDelegate* delegate) override { delegate_ = delegate; }
  void load(const platform::PageRequest& request) override;
  void runScript(const std::string& script) override;
  // The answer of `evaluator`, nothing without one.
  std::optional<std::string> evaluateScript(const std::string& script) override;
  void setScalesPageToFit(bool scales) override { scalesPageToFit = scales; }
  void setDirectionalLock(bool locked) override { directionalLock = locked; }

  // What the web view tells its delegate.
  void finishLoad();
  void failLoad(const platform::Error& error);
  void losePage(const platform::Error& error);
  bool navigate(const std::string& url);  // whether the delegate allows it

  const std::vector<platform::PageRequest>& loads() const { return loads_; }
  // In order; of a great many the last thousand, at least.
  const std::vector<std::string>& scripts() const { return scripts_; }
  void forgetScripts() { scripts_.clear(); }

  std::function<std::optional<std::string>(const std::string&)> evaluator;
  std::optional<bool> scalesPageToFit;
  std::optional<bool> directionalLock;

 private:
  void note(const std::string& script);

  platform::TaskScheduler& tasks_;
  std::shared_ptr<const Options> options_;
  platform::WebViewDelegate* delegate_ = nullptr;
  std::vector<platform::PageRequest> loads_;
  std::vector<std::string> scripts_;
  std::optional<platform::TaskScope> load_;
};

class SimContainerView final : public platform::ContainerView {
 public:
  void add(platform::Widget& widget) override { widgets.push_back(&widget); }
  void setBackground(const platform::Grey& grey) override { background = grey; }
  void setLayoutCallback(std::function<void(double, double)> layout) override { layout_ = std::move(layout); }
  void setWindowCallback(std::function<void(bool)> moved) override { moved_ = std::move(moved); }
  bool isInWindow() const override { return isInWindow_; }

  void layOut(double width, double height);
  void moveToWindow(bool inWindow);

  std::vector<platform::Widget*> widgets;  // the topmost last
  platform::Grey background;

 private:
  bool isInWindow_ = false;
  std::function<void(double, double)> layout_;
  std::function<void(bool)> moved_;
};

class SimWidgetFactory final : public platform::WidgetFactory {
 public:
  explicit SimWidgetFactory(std::shared_ptr<platform::TaskScheduler> tasks);

  std::unique_ptr<platform::ContainerView> makeContainerView() override;
  std::unique_ptr<platform::WebView> makeWebView() override;
  std::unique_ptr<platform::ActivityIndicator> makeActivityIndicator() override;
  std::unique_ptr<platform::Button> makeButton() override;
  [[nodiscard]] std::unique_ptr<platform::Alert> showAlert(const platform::AlertContent& content,
                                                           platform::ContainerView& view,
                                                           std::function<void(const std::string&)> pressed) override;
  bool hasSettingsPage() const override { return settingsPage; }
  void openSettingsPage() override { ++settingsOpened; }

  // Places a map view's container in a window of this size.
  static void enterWindow(platform::ContainerView& view, double width, double height);

  // All web views: whether loads end by themselves (they do at first), and who hears every script.
  void setFinishesLoads(bool finishes) { webViewOptions_->finishesLoads = finishes; }
  void setScriptObserver(std::function<void(std::string_view)> observer);

  // The alert on show, and a press on one of its buttons.
  std::optional<platform::AlertContent> alert() const;
  void pressAlertButton(const std::string& title);

  bool settingsPage = true;
  int settingsOpened = 0;

 private:
  class ShownAlert;

  std::shared_ptr<platform::TaskScheduler> tasks_;
  std::shared_ptr<SimWebView::Options> webViewOptions_ = std::make_shared<SimWebView::Options>();
  std::shared_ptr<std::vector<const ShownAlert*>> alerts_;
};

}  // namespace wayloom::sim
