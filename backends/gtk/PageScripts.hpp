#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <webkit/webkit.h>

#include "wayloom/platform/Time.hpp"

#include "backends/gtk/Objects.hpp"

namespace wayloom::gtk {

// Scripts that run in a web view's page, and a watch over them: a page that doesn't get through one is reported once.
class PageScripts {
 public:
  // `stuck` is called when no script has ended for that long although one is running; it may destroy this.
  PageScripts(WebKitWebView* view, platform::Duration timeout, std::function<void()> stuck);
  ~PageScripts();
  PageScripts(const PageScripts&) = delete;
  PageScripts& operator=(const PageScripts&) = delete;

  void run(const std::string& script);
  // Iterates the main context until the result is there or the page was found stuck. This may be destroyed meanwhile.
  std::optional<std::string> evaluate(const std::string& script);
  bool areRunning() const;
  // Nobody waits for the scripts under way any more.
  void abandon();

 private:
  struct Call;
  struct State;
  static void ended(GObject* view, GAsyncResult* result, gpointer call) noexcept;
  void start(const std::string& script, std::shared_ptr<Call> call);

  WebKitWebView* view_;  // not owned; lives longer
  std::shared_ptr<State> state_;
};

}  // namespace wayloom::gtk
