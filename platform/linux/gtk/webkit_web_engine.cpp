#include "linux/gtk/webkit_web_engine.hpp"

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace orvanta::gtk_platform {

struct WebKitWebEngine::State {
  WebKitWebView* view = nullptr;  // weak: nulled by GObject when the view is disposed
  WebKitBackForwardList* history = nullptr;
  std::vector<gulong> viewHandlers;
  gulong historyHandler = 0;
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
  state_->viewHandlers = {
      connect(view, "notify::title", onTitle, state_),
      connect(view, "notify::estimated-load-progress", onProgress, state_),
      connect(view, "load-changed", onLoadChanged, state_),
  };
  state_->history = webkit_web_view_get_back_forward_list(view);
  state_->historyHandler = connect(state_->history, "changed", onHistoryChanged, state_);
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
  state_->observers.clear();
}

void WebKitWebEngine::load(const std::string& url) {
  if (state_->view) {
    webkit_web_view_load_uri(state_->view, url.c_str());
  }
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
