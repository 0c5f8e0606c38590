#include "backends/gtk/GtkWebView.hpp"

#include <string_view>
#include <utility>

#include "wayloom/platform/Url.hpp"

namespace wayloom::gtk {
namespace {

constexpr const char* kDomain = "WebKit";
constexpr int kTimedOut = -1001;

GtkWebView& of(gpointer self) { return *static_cast<GtkWebView*>(self); }

// Pages get no menu, dialog, window, print-out or permission.
gboolean suppress() noexcept { return TRUE; }
gboolean deny(WebKitWebView*, WebKitPermissionRequest* request, gpointer) noexcept {
  webkit_permission_request_deny(request);
  return TRUE;
}

bool isLocal(std::string_view url) { return url.starts_with("file:") || url.starts_with("about:"); }

void ignore(WebKitPolicyDecision* decision) { webkit_policy_decision_ignore(decision); }

// Behind an address in whose query everything was escaped but what separates the entries: the page then knows that
// unescaping gives the very text. WebKit would escape some characters, take "#" for an end, and leave "%" alone.
constexpr std::string_view kEscaped = "#escaped";

std::string urlOf(const std::string& address) {
  if (address.starts_with('/')) return platform::fileUrlForPath(address);
  const auto query = address.find('?');
  if (query == address.npos) return address;
  g_autofree char* escaped =
      g_uri_escape_bytes(reinterpret_cast<const guint8*>(address.data()) + query + 1, address.size() - query - 1, "=&");
  return address.substr(0, query + 1) + escaped + std::string(kEscaped);
}

const char* reasonText(WebKitWebProcessTerminationReason reason) {
  switch (reason) {
    case WEBKIT_WEB_PROCESS_CRASHED:
      return "The page's process ended unexpectedly";
    case WEBKIT_WEB_PROCESS_EXCEEDED_MEMORY_LIMIT:
      return "The page's process took too much memory";
    case WEBKIT_WEB_PROCESS_TERMINATED_BY_API:
      return "The page did not get through a script in time";
  }
  return "The page's process is gone";
}

}  // namespace

GtkWebView::GtkWebView(std::shared_ptr<const WebSession> session, platform::Duration scriptTimeout,
                       platform::Duration drawTimeout)
    : GtkWidgetOf(session->makeView()),
      session_(std::move(session)),
      drawTimeout_(drawTimeout),
      scripts_(view(), scriptTimeout, [this] { webkit_web_view_terminate_web_process(view()); }),
      focus_(native()) {
  connect();
  // Starts the process: a first page comes a quarter of a second sooner when it is there.
  webkit_web_view_evaluate_javascript(view(), "0", -1, nullptr, nullptr, nullptr, nullptr, nullptr);
}

// A process that is busy may never hear that its page is gone.
GtkWebView::~GtkWebView() {
  delegate_ = nullptr;
  if (hasPage_ && (stage_ != Stage::idle || scripts_.areRunning())) endProcess();
}

void GtkWebView::endProcess() {
  hasPage_ = false;
  scripts_.abandon();
  webkit_web_view_terminate_web_process(view());
}

void GtkWebView::connect() {
  auto* object = native();
  signals_.connect(object, "load-changed", loadChanged, this);
  signals_.connect(object, "load-failed", loadFailed, this);
  signals_.connect(object, "decide-policy", decidePolicy, this);
  signals_.connect(object, "web-process-terminated", processTerminated, this);
  signals_.connect(object, "permission-request", deny, this);
  for (const char* signal : {"context-menu", "script-dialog", "print", "enter-fullscreen", "run-file-chooser",
                             "run-color-chooser", "show-notification"})
    signals_.connect(object, signal, suppress, this);
}

void GtkWebView::load(const platform::PageRequest& request) {
  const auto url = urlOf(request.address);
  stage_ = Stage::requested;
  hasPage_ = true;
  scripts_.abandon();
  limitLoad(request.timeout);
  webkit_web_view_load_uri(view(), url.c_str());
}

void GtkWebView::limitLoad(platform::Duration time) {
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
  loadTimeout_ = std::make_unique<Timeout>(static_cast<unsigned>(milliseconds), [this] {
    stage_ = Stage::idle;
    endProcess();  // which may be stuck; WebKit would use it for the next page
    fail({kDomain, kTimedOut, "The page took too long to load"});
  });
}

void GtkWebView::runScript(const std::string& script) {
  if (hasPage_) scripts_.run(script);
}

std::optional<std::string> GtkWebView::evaluateScript(const std::string& script) {
  if (!hasPage_) return std::nullopt;
  return scripts_.evaluate(script);
}

// A page that is not mapped has no size and draws nothing; this one is to be ready when it is shown.
void GtkWebView::setHidden(bool hidden) {
  fade().setConcealed(hidden);
  gtk_widget_set_can_target(native(), hidden ? FALSE : TRUE);
  gtk_widget_set_can_focus(native(), hidden ? FALSE : TRUE);
  gtk_accessible_update_state(GTK_ACCESSIBLE(native()), GTK_ACCESSIBLE_STATE_HIDDEN, hidden ? TRUE : FALSE, -1);
}

void GtkWebView::setBackground(const platform::Grey& grey) {
  const auto white = static_cast<float>(grey.white);
  const GdkRGBA colour{white, white, white, static_cast<float>(grey.alpha)};
  webkit_web_view_set_background_color(view(), &colour);
}

// Nothing of this object is touched after the delegate was called: it may be gone.
void GtkWebView::fail(const platform::Error& error) {
  stage_ = Stage::idle;
  loadTimeout_.reset();
  if (delegate_ != nullptr) delegate_->webViewDidFailLoadWithError(error);
}

void GtkWebView::pageLost(const std::string& why, int code) {
  if (!hasPage_) return;
  stage_ = Stage::idle;
  hasPage_ = false;
  loadTimeout_.reset();
  scripts_.abandon();
  if (delegate_ != nullptr) delegate_->webViewDidLoseItsPage({kDomain, code, why});
}

void GtkWebView::loadChanged(WebKitWebView*, WebKitLoadEvent event, gpointer self) noexcept {
  auto& web = of(self);
  if (event == WEBKIT_LOAD_STARTED && web.stage_ == Stage::requested) web.stage_ = Stage::started;
  if (event == WEBKIT_LOAD_COMMITTED && web.stage_ == Stage::started) web.limitLoad(web.drawTimeout_);
  if (event != WEBKIT_LOAD_FINISHED || web.stage_ != Stage::started) return;
  web.stage_ = Stage::idle;
  web.loadTimeout_.reset();
  if (web.delegate_ != nullptr) web.delegate_->webViewDidFinishLoad();
}

gboolean GtkWebView::loadFailed(WebKitWebView*, WebKitLoadEvent, const char*, GError* error, gpointer self) noexcept {
  auto& web = of(self);
  if (g_error_matches(error, WEBKIT_NETWORK_ERROR, WEBKIT_NETWORK_ERROR_CANCELLED) != FALSE) {
    if (web.stage_ == Stage::started) web.stage_ = Stage::requested;  // an earlier load, replaced
    return TRUE;
  }
  if (web.stage_ != Stage::idle) web.fail({kDomain, error->code, error->message});
  return TRUE;  // no error page of WebKit's own
}

// WebKit says nothing of a first navigation that is refused: such a load ends with its time-out.
bool GtkWebView::allows(const std::string& url) {
  return (delegate_ == nullptr || delegate_->webViewShouldStartLoadWithRequest(url)) && isLocal(url);
}

gboolean GtkWebView::decidePolicy(WebKitWebView*, WebKitPolicyDecision* decision, WebKitPolicyDecisionType type,
                                  gpointer self) noexcept {
  if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE) {
    auto* response = WEBKIT_RESPONSE_POLICY_DECISION(decision);
    if (webkit_response_policy_decision_is_mime_type_supported(response) != FALSE) return FALSE;
    ignore(decision);
    return TRUE;
  }
  if (type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION) {
    ignore(decision);
    return TRUE;
  }
  auto* action = webkit_navigation_policy_decision_get_navigation_action(WEBKIT_NAVIGATION_POLICY_DECISION(decision));
  const char* url = webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
  g_object_ref(decision);
  if (of(self).allows(url))
    webkit_policy_decision_use(decision);
  else
    ignore(decision);
  g_object_unref(decision);
  return TRUE;
}

void GtkWebView::processTerminated(WebKitWebView*, WebKitWebProcessTerminationReason reason, gpointer self) noexcept {
  of(self).pageLost(reasonText(reason), static_cast<int>(reason));
}

}  // namespace wayloom::gtk
