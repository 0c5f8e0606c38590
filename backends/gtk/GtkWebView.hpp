#pragma once

#include <memory>
#include <webkit/webkit.h>

#include "wayloom/platform/TaskScope.hpp"
#include "wayloom/platform/WebView.hpp"

#include "backends/gtk/NativeWidget.hpp"
#include "backends/gtk/PageFocus.hpp"
#include "backends/gtk/PageScripts.hpp"
#include "backends/gtk/WebSession.hpp"

namespace wayloom::gtk {

class GtkWebView final : public GtkWidgetOf<platform::WebView> {
 public:
  GtkWebView(std::shared_ptr<const WebSession> session, platform::Duration scriptTimeout,
             platform::Duration drawTimeout);
  ~GtkWebView() override;

  void setDelegate(platform::WebViewDelegate* delegate) override { delegate_ = delegate; }
  void load(const platform::PageRequest& request) override;
  void runScript(const std::string& script) override;
  std::optional<std::string> evaluateScript(const std::string& script) override;
  // What WebKit does with images by itself; pages say so in their viewport.
  void setScalesPageToFit(bool) override {}
  void setDirectionalLock(bool) override {}  // WebKit has none
  void setHidden(bool hidden) override;
  void setBackground(const platform::Grey& grey) override;

 private:
  // Where the load that was asked for is. What comes of another, such as one of the page's own, is not told.
  enum class Stage : std::uint8_t { idle, requested, started };

  WebKitWebView* view() const { return WEBKIT_WEB_VIEW(native()); }
  void connect();
  bool allows(const std::string& url);
  void endProcess();
  void limitLoad(platform::Duration time);
  void fail(const platform::Error& error);
  void pageLost(const std::string& why, int code);

  static void loadChanged(WebKitWebView*, WebKitLoadEvent event, gpointer self) noexcept;
  static gboolean loadFailed(WebKitWebView*, WebKitLoadEvent, const char* url, GError* error, gpointer self) noexcept;
  static gboolean decidePolicy(WebKitWebView*, WebKitPolicyDecision* decision, WebKitPolicyDecisionType type,
                               gpointer self) noexcept;
  static void processTerminated(WebKitWebView*, WebKitWebProcessTerminationReason reason, gpointer self) noexcept;

  std::shared_ptr<const WebSession> session_;
  const platform::Duration drawTimeout_;
  platform::WebViewDelegate* delegate_ = nullptr;
  Stage stage_ = Stage::idle;
  bool hasPage_ = true;  // false from the end of a process to the next load
  std::unique_ptr<Timeout> loadTimeout_;
  PageScripts scripts_;
  PageFocus focus_;
  Signals signals_;
};

}  // namespace wayloom::gtk
