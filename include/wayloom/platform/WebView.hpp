#pragma once

#include <optional>
#include <string>

#include "wayloom/platform/Error.hpp"
#include "wayloom/platform/Widget.hpp"

namespace wayloom::platform {

// A page to load, never from a cache.
struct PageRequest {
  // The absolute path of a file as plain text, or a file: URL, behind whose "?" come names and values in plain text:
  // the web view escapes what a URL can't hold there, and tells the page that unescaping gives the text ("#escaped").
  std::string address;
  // Until the page begins to arrive. What it takes to draw it, which for a large plan may be long, is another matter.
  Duration timeout = std::chrono::seconds(5);
};

class WebViewDelegate {
 public:
  virtual ~WebViewDelegate() = default;

  // Each load ends with one of the first two, unless a newer one replaces it: then nobody hears of it any more.
  virtual void webViewDidFinishLoad() = 0;
  virtual void webViewDidFailLoadWithError(const Error& error) = 0;
  // The process behind the page is gone, and the page with it, loaded or not; the view may load again.
  virtual void webViewDidLoseItsPage(const Error& error) = 0;
  // Whether the page may go there. The URL is the page's text, hostile or not; its percent escapes are as they were.
  virtual bool webViewShouldStartLoadWithRequest(const std::string& url) = 0;
};

// Shows one page. Pages come from files and reach no network; they run in a process of their own.
class WebView : public Widget {
 public:
  virtual void setDelegate(WebViewDelegate* delegate) = 0;  // not owned; may be null

  // Replaces a load that is under way. The delegate is told later, never inside load().
  virtual void load(const PageRequest& request) = 0;

  // Runs a script in the page and doesn't wait for it; scripts run in the order of these calls. A page that does not
  // get through one in a while is lost (webViewDidLoseItsPage).
  virtual void runScript(const std::string& script) = 0;
  // Runs a script and waits for its result as text, empty for undefined and null; nothing when it throws, when there is
  // no page, or when it takes too long: then the page is lost. While it waits, the host's main loop may go on, this
  // view may be destroyed, but no task of the platform's main queue runs inside one of them.
  virtual std::optional<std::string> evaluateScript(const std::string& script) = 0;

  virtual void setScalesPageToFit(bool scales) = 0;
  // Whether a drag that begins along one axis stays on it. Off unless set.
  virtual void setDirectionalLock(bool locked) = 0;
};

}  // namespace wayloom::platform
