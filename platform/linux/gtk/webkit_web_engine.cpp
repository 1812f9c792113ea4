#include "linux/gtk/webkit_web_engine.hpp"

#include <cstdint>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

namespace orvanta::gtk_platform {

struct WebKitWebEngine::State {
  WebKitWebView* view = nullptr;  // weak: nulled by GObject when the view is disposed
  WebKitBackForwardList* history = nullptr;
  WebKitNetworkSession* session = nullptr;  // a reference of ours: downloads start there
  std::vector<gulong> viewHandlers;
  gulong historyHandler = 0;
  gulong downloadHandler = 0;
  std::uint64_t nextId = 0;
  std::map<std::uint64_t, std::pair<port::WebEngineProperty, std::function<void()>>> observers;

  void notify(std::initializer_list<port::WebEngineProperty> properties) {
    // Copied first: a handler may add or drop observations.
    std::vector<std::function<void()>> handlers;
    for (auto property : properties) {
      for (const auto& [id, entry] : observers) {
        if (entry.first == property) {
          handlers.push_back(entry.second);
        }
      }
    }
    for (const auto& handler : handlers) {
      try {
        handler();
      } catch (...) {
        // Never unwind through WebKit's signal emission.
      }
    }
  }
};

namespace {

using WeakState = std::weak_ptr<WebKitWebEngine::State>;

// What a refused page shows instead: our own words, no script.
constexpr const char* kRefusedPage =
    "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Not shown</title></head>"
    "<body style=\"font-family:sans-serif;margin:48px;color:#241f31\"><h1>Not shown</h1>"
    "<p>This address is not a web page, so it is not shown here.</p></body></html>";

// A web page: http or https, with a host.
bool isWebPage(const char* url) {
  if (url == nullptr) {
    return false;
  }
  GUri* uri = g_uri_parse(url, G_URI_FLAGS_NONE, nullptr);
  if (uri == nullptr) {
    return false;
  }
  const char* scheme = g_uri_get_scheme(uri);
  const char* host = g_uri_get_host(uri);
  const bool page =
      (g_ascii_strcasecmp(scheme, "http") == 0 || g_ascii_strcasecmp(scheme, "https") == 0) &&
      host != nullptr && host[0] != '\0';
  g_uri_unref(uri);
  return page;
}

// The empty documents pages make for their frames.
bool isBlank(const char* url) {
  return url != nullptr &&
         (std::strcmp(url, "about:blank") == 0 || std::strcmp(url, "about:srcdoc") == 0);
}

void sayRefused(const char* what, const char* url) {
  g_log("Orvanta", G_LOG_LEVEL_MESSAGE, "The web view refused %s %s", what,
        url != nullptr ? url : "(no address)");
}

bool isAttachment(WebKitURIResponse* response) {
  SoupMessageHeaders* headers = webkit_uri_response_get_http_headers(response);
  const char* disposition =
      headers != nullptr ? soup_message_headers_get_one(headers, "Content-Disposition") : nullptr;
  return disposition != nullptr && g_ascii_strncasecmp(disposition, "attachment", 10) == 0;
}

const char* requestedUrl(WebKitPolicyDecision* decision) {
  WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(
      WEBKIT_NAVIGATION_POLICY_DECISION(decision));
  return webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
}

// Pages go to web pages only; a new window is the same view; nothing is downloaded.
gboolean onDecidePolicy(WebKitWebView* view, WebKitPolicyDecision* decision,
                        WebKitPolicyDecisionType type, gpointer) {
  switch (type) {
    case WEBKIT_POLICY_DECISION_TYPE_NAVIGATION_ACTION: {
      const char* url = requestedUrl(decision);
      if (isWebPage(url) || isBlank(url)) {
        return FALSE;  // WebKit's own handling: load it
      }
      sayRefused("to open", url);
      break;
    }
    case WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION: {
      const char* url = requestedUrl(decision);
      if (isWebPage(url)) {
        webkit_web_view_load_uri(view, url);
      } else {
        sayRefused("to open a window on", url);
      }
      break;
    }
    case WEBKIT_POLICY_DECISION_TYPE_RESPONSE: {
      auto* response = WEBKIT_RESPONSE_POLICY_DECISION(decision);
      WebKitURIResponse* received = webkit_response_policy_decision_get_response(response);
      if (webkit_response_policy_decision_is_mime_type_supported(response) &&
          !isAttachment(received)) {
        return FALSE;
      }
      sayRefused("to download", webkit_uri_response_get_uri(received));
      break;
    }
    default:
      return FALSE;
  }
  webkit_policy_decision_ignore(decision);
  return TRUE;
}

// Geolocation, notifications, camera and the like: never granted.
gboolean onPermissionRequest(WebKitWebView*, WebKitPermissionRequest* request, gpointer) {
  webkit_permission_request_deny(request);
  return TRUE;
}

void notifyFrom(gpointer data, std::initializer_list<port::WebEngineProperty> properties) {
  if (auto state = static_cast<WeakState*>(data)->lock(); state && state->view) {
    state->notify(properties);
  }
}

void onTitle(GObject*, GParamSpec*, gpointer data) {
  notifyFrom(data, {port::WebEngineProperty::title});
}

void onProgress(GObject*, GParamSpec*, gpointer data) {
  notifyFrom(data, {port::WebEngineProperty::estimatedProgress});
}

void onHistoryChanged(WebKitBackForwardList*, WebKitBackForwardListItem*, GList*, gpointer data) {
  notifyFrom(data, {port::WebEngineProperty::canGoBack, port::WebEngineProperty::canGoForward});
}

void onLoadChanged(WebKitWebView*, WebKitLoadEvent, gpointer data) {
  notifyFrom(data, {port::WebEngineProperty::canGoBack, port::WebEngineProperty::canGoForward});
}

void onDownloadStarted(WebKitNetworkSession*, WebKitDownload* download, gpointer data) {
  auto state = static_cast<WeakState*>(data)->lock();
  if (state && state->view && webkit_download_get_web_view(download) == state->view) {
    sayRefused("to download", webkit_uri_request_get_uri(webkit_download_get_request(download)));
    webkit_download_cancel(download);
  }
}

void releaseWeakState(gpointer data, GClosure*) {
  delete static_cast<WeakState*>(data);
}

template <typename Callback>
gulong connect(gpointer instance, const char* signal, Callback callback,
               const std::shared_ptr<WebKitWebEngine::State>& state) {
  return g_signal_connect_data(instance, signal, reinterpret_cast<GCallback>(callback),
                               new WeakState(state), releaseWeakState, GConnectFlags{});
}

}  // namespace

class WebKitWebEngine::Observation : public port::WebEngineObservation {
 public:
  Observation(std::weak_ptr<State> state, std::uint64_t id) : state_(std::move(state)), id_(id) {}
  ~Observation() override {
    if (auto state = state_.lock()) {
      state->observers.erase(id_);
    }
  }

 private:
  std::weak_ptr<State> state_;
  std::uint64_t id_;
};

WebKitWebEngine::WebKitWebEngine(WebKitWebView* view) : state_(std::make_shared<State>()) {
  state_->view = view;
  g_object_add_weak_pointer(G_OBJECT(view), reinterpret_cast<gpointer*>(&state_->view));
  // Pages need JavaScript; nothing else of the machine is theirs.
  WebKitSettings* settings = webkit_web_view_get_settings(view);
  webkit_settings_set_enable_javascript(settings, TRUE);
  webkit_settings_set_javascript_can_open_windows_automatically(settings, FALSE);
  webkit_settings_set_allow_file_access_from_file_urls(settings, FALSE);
  webkit_settings_set_allow_universal_access_from_file_urls(settings, FALSE);
  webkit_settings_set_allow_top_navigation_to_data_urls(settings, FALSE);
  webkit_settings_set_enable_developer_extras(settings, FALSE);
  webkit_settings_set_enable_media_stream(settings, FALSE);
  webkit_settings_set_enable_webrtc(settings, FALSE);
  state_->viewHandlers = {
      connect(view, "notify::title", onTitle, state_),
      connect(view, "notify::estimated-load-progress", onProgress, state_),
      connect(view, "load-changed", onLoadChanged, state_),
      g_signal_connect(view, "decide-policy", G_CALLBACK(onDecidePolicy), nullptr),
      g_signal_connect(view, "permission-request", G_CALLBACK(onPermissionRequest), nullptr),
  };
  state_->history = webkit_web_view_get_back_forward_list(view);
  state_->historyHandler = connect(state_->history, "changed", onHistoryChanged, state_);
  state_->session = webkit_web_view_get_network_session(view);
  g_object_ref(state_->session);
  state_->downloadHandler = connect(state_->session, "download-started", onDownloadStarted, state_);
}

WebKitWebEngine::~WebKitWebEngine() {
  if (state_->view) {
    for (auto handler : state_->viewHandlers) {
      g_signal_handler_disconnect(state_->view, handler);
    }
    // The history lives as long as its view.
    g_signal_handler_disconnect(state_->history, state_->historyHandler);
    g_object_remove_weak_pointer(G_OBJECT(state_->view),
                                 reinterpret_cast<gpointer*>(&state_->view));
  }
  g_signal_handler_disconnect(state_->session, state_->downloadHandler);
  g_object_unref(state_->session);
  state_->observers.clear();
}

void WebKitWebEngine::load(const std::string& url) {
  if (!state_->view) {
    return;
  }
  if (!isWebPage(url.c_str())) {
    sayRefused("to open", url.c_str());
    webkit_web_view_load_html(state_->view, kRefusedPage, nullptr);
    return;
  }
  webkit_web_view_load_uri(state_->view, url.c_str());
}

std::optional<std::string> WebKitWebEngine::title() const {
  const char* title = state_->view ? webkit_web_view_get_title(state_->view) : nullptr;
  if (!title) {
    return std::nullopt;
  }
  return std::string(title);
}

double WebKitWebEngine::estimatedProgress() const {
  return state_->view ? webkit_web_view_get_estimated_load_progress(state_->view) : 0.0;
}

bool WebKitWebEngine::canGoBack() const {
  return state_->view && webkit_web_view_can_go_back(state_->view);
}

bool WebKitWebEngine::canGoForward() const {
  return state_->view && webkit_web_view_can_go_forward(state_->view);
}

void WebKitWebEngine::goBack() {
  if (state_->view) {
    webkit_web_view_go_back(state_->view);
  }
}

void WebKitWebEngine::goForward() {
  if (state_->view) {
    webkit_web_view_go_forward(state_->view);
  }
}

std::unique_ptr<port::WebEngineObservation> WebKitWebEngine::observe(
    port::WebEngineProperty property, std::function<void()> handler) {
  const auto id = state_->nextId++;
  state_->observers.emplace(id, std::make_pair(property, std::move(handler)));
  return std::make_unique<Observation>(state_, id);
}

WebKitWebView* WebKitWebEngine::view() const {
  return state_->view;
}

}  // namespace orvanta::gtk_platform
