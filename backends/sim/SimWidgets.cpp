#include "wayloom/sim/SimWidgets.hpp"

#include <iterator>
#include <utility>

namespace wayloom::sim {
namespace {

constexpr std::ptrdiff_t kKeptScripts = 1000;

}  // namespace

void SimButton::press() {
  if (const auto pressed = pressed_) pressed();
}

void SimWebView::load(const platform::PageRequest& request) {
  loads_.push_back(request);
  load_.emplace();
  if (options_->finishesLoads) tasks_.mainQueue().async(load_->bind([this] { finishLoad(); }));
}

void SimWebView::runScript(const std::string& script) { note(script); }

std::optional<std::string> SimWebView::evaluateScript(const std::string& script) {
  note(script);
  return evaluator ? evaluator(script) : std::nullopt;
}

void SimWebView::note(const std::string& script) {
  if (std::ssize(scripts_) >= 2 * kKeptScripts) scripts_.erase(scripts_.begin(), scripts_.end() - kKeptScripts);
  scripts_.push_back(script);
  if (options_->scriptObserver) options_->scriptObserver(script);
}

void SimWebView::finishLoad() {
  if (delegate_ != nullptr) delegate_->webViewDidFinishLoad();
}

void SimWebView::failLoad(const platform::Error& error) {
  if (delegate_ != nullptr) delegate_->webViewDidFailLoadWithError(error);
}

void SimWebView::losePage(const platform::Error& error) {
  if (delegate_ != nullptr) delegate_->webViewDidLoseItsPage(error);
}

bool SimWebView::navigate(const std::string& url) {
  return delegate_ == nullptr || delegate_->webViewShouldStartLoadWithRequest(url);
}

void SimContainerView::layOut(double width, double height) {
  if (layout_) layout_(width, height);
}

void SimContainerView::moveToWindow(bool inWindow) {
  if (std::exchange(isInWindow_, inWindow) != inWindow && moved_) moved_(inWindow);
}

class SimWidgetFactory::ShownAlert final : public platform::Alert {
 public:
  ShownAlert(std::shared_ptr<std::vector<const ShownAlert*>> all, platform::AlertContent shown,
             std::function<void(const std::string&)> callback)
      : content(std::move(shown)), pressed(std::move(callback)), all_(std::move(all)) {
    all_->push_back(this);
  }
  ~ShownAlert() override { std::erase(*all_, this); }
  ShownAlert(const ShownAlert&) = delete;
  ShownAlert& operator=(const ShownAlert&) = delete;

  const platform::AlertContent content;
  const std::function<void(const std::string&)> pressed;

 private:
  std::shared_ptr<std::vector<const ShownAlert*>> all_;
};

SimWidgetFactory::SimWidgetFactory(std::shared_ptr<platform::TaskScheduler> tasks)
    : tasks_(std::move(tasks)), alerts_(std::make_shared<std::vector<const ShownAlert*>>()) {}

std::unique_ptr<platform::ContainerView> SimWidgetFactory::makeContainerView() {
  return std::make_unique<SimContainerView>();
}

std::unique_ptr<platform::WebView> SimWidgetFactory::makeWebView() {
  return std::make_unique<SimWebView>(*tasks_, webViewOptions_);
}

std::unique_ptr<platform::ActivityIndicator> SimWidgetFactory::makeActivityIndicator() {
  return std::make_unique<SimActivityIndicator>();
}

std::unique_ptr<platform::Button> SimWidgetFactory::makeButton() { return std::make_unique<SimButton>(); }

std::unique_ptr<platform::Alert> SimWidgetFactory::showAlert(const platform::AlertContent& content,
                                                             platform::ContainerView&,
                                                             std::function<void(const std::string&)> pressed) {
  return std::make_unique<ShownAlert>(alerts_, content, std::move(pressed));
}

void SimWidgetFactory::enterWindow(platform::ContainerView& view, double width, double height) {
  auto& container = dynamic_cast<SimContainerView&>(view);
  container.moveToWindow(true);
  container.layOut(width, height);
}

void SimWidgetFactory::setScriptObserver(std::function<void(std::string_view)> observer) {
  webViewOptions_->scriptObserver = std::move(observer);
}

std::optional<platform::AlertContent> SimWidgetFactory::alert() const {
  if (alerts_->empty()) return std::nullopt;
  return alerts_->back()->content;
}

void SimWidgetFactory::pressAlertButton(const std::string& title) {
  if (alerts_->empty()) return;
  const auto pressed = alerts_->back()->pressed;
  pressed(title);
}

}  // namespace wayloom::sim
