#include "backends/gtk/WebSession.hpp"

namespace wayloom::gtk {
namespace {

// Nobody listens there. Pages have no business on a network, whatever they contain.
constexpr const char* kNoProxy = "http://127.0.0.1:1";

void cancelDownload(WebKitNetworkSession*, WebKitDownload* download, gpointer) noexcept {
  webkit_download_cancel(download);
}

ObjectRef<WebKitSettings> makeSettings(bool accelerated) {
  return ObjectRef<WebKitSettings>::adopting(webkit_settings_new_with_settings(
      "allow-file-access-from-file-urls", FALSE, "allow-universal-access-from-file-urls", FALSE, "allow-modal-dialogs",
      FALSE, "allow-top-navigation-to-data-urls", FALSE, "hardware-acceleration-policy",
      accelerated ? WEBKIT_HARDWARE_ACCELERATION_POLICY_ALWAYS : WEBKIT_HARDWARE_ACCELERATION_POLICY_NEVER,
      "enable-back-forward-navigation-gestures", FALSE, "enable-fullscreen", FALSE, "enable-html5-database", FALSE,
      "enable-html5-local-storage", FALSE, "enable-media", FALSE, "enable-media-stream", FALSE, "enable-page-cache",
      FALSE, "enable-webaudio", FALSE, "enable-webgl", FALSE, "enable-webrtc", FALSE, "javascript-can-access-clipboard",
      FALSE, "javascript-can-open-windows-automatically", FALSE, nullptr));
}

}  // namespace

WebSession::WebSession(bool accelerated)
    : context_(ObjectRef<WebKitWebContext>::adopting(webkit_web_context_new())),
      network_(ObjectRef<WebKitNetworkSession>::adopting(webkit_network_session_new_ephemeral())),
      settings_(makeSettings(accelerated)) {
  // Otherwise files that change, such as the plans of an update, are served from a cache.
  webkit_web_context_set_cache_model(context_.get(), WEBKIT_CACHE_MODEL_DOCUMENT_VIEWER);
  auto* proxy = webkit_network_proxy_settings_new(kNoProxy, nullptr);
  webkit_network_session_set_proxy_settings(network_.get(), WEBKIT_NETWORK_PROXY_MODE_CUSTOM, proxy);
  webkit_network_proxy_settings_free(proxy);
  signals_.connect(network_.get(), "download-started", cancelDownload, nullptr);
}

GtkWidget* WebSession::makeView() const {
  return GTK_WIDGET(g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", context_.get(), "network-session", network_.get(),
                                 "settings", settings_.get(), nullptr));
}

}  // namespace wayloom::gtk
