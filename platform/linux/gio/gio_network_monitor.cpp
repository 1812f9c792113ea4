#include "linux/gio/gio_network_monitor.hpp"

#include <gio/gio.h>

#include <condition_variable>
#include <mutex>
#include <utility>

namespace orvanta::linux_platform {

struct GioNetworkMonitor::Shared {
  std::mutex mutex;
  std::condition_variable changed;
  bool ready = false;  ///< the thread has made its monitor (or failed to) and read the first state
  bool usable = false;
  std::optional<port::NetworkState> state;
  ChangeHandler handler;
  bool delivering = false;
  // Owned by the thread; valid from `ready` until the thread ends, which it does only after the
  // destructor has asked it to.
  GMainContext* context = nullptr;
  GMainLoop* loop = nullptr;
};

namespace {

port::NetworkConnectivity connectivityOf(GNetworkConnectivity connectivity) {
  switch (connectivity) {
    case G_NETWORK_CONNECTIVITY_LOCAL:
      return port::NetworkConnectivity::local;
    case G_NETWORK_CONNECTIVITY_LIMITED:
      return port::NetworkConnectivity::limited;
    case G_NETWORK_CONNECTIVITY_PORTAL:
      return port::NetworkConnectivity::portal;
    case G_NETWORK_CONNECTIVITY_FULL:
      return port::NetworkConnectivity::full;
  }
  return port::NetworkConnectivity::local;
}

port::NetworkState read(GNetworkMonitor* monitor) {
  port::NetworkState state;
  state.available = g_network_monitor_get_network_available(monitor) != FALSE;
  state.metered = g_network_monitor_get_network_metered(monitor) != FALSE;
  state.connectivity = connectivityOf(g_network_monitor_get_connectivity(monitor));
  return state;
}

/// Reads the monitor and hands a new state to the handler. Runs on the monitor's thread.
void refresh(GNetworkMonitor* monitor, GioNetworkMonitor::Shared& shared) {
  const port::NetworkState state = read(monitor);
  port::NetworkMonitor::ChangeHandler handler;
  {
    std::lock_guard lock(shared.mutex);
    if (shared.state == state) {
      return;
    }
    shared.state = state;
    if (!shared.handler) {
      return;
    }
    handler = shared.handler;
    shared.delivering = true;
  }
  try {
    handler(state);
  } catch (...) {  // NOLINT(bugprone-empty-catch): a failing handler does not stop the monitor
  }
  {
    std::lock_guard lock(shared.mutex);
    shared.delivering = false;
  }
  shared.changed.notify_all();
}

void onNetworkChanged(GNetworkMonitor* monitor, gboolean /*available*/, gpointer data) {
  refresh(monitor, *static_cast<GioNetworkMonitor::Shared*>(data));
}

void onPropertyChanged(GObject* object, GParamSpec* /*property*/, gpointer data) {
  refresh(G_NETWORK_MONITOR(object), *static_cast<GioNetworkMonitor::Shared*>(data));
}

gboolean quitLoop(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(loop));
  return G_SOURCE_REMOVE;
}

/// Makes a monitor of the type GIO chose for its default one, bound to the calling thread's
/// default context. The process-wide default is asked for first, from a thread with no default
/// context of its own, so that it stays bound to the global main context as it would be had the
/// host made it.
GNetworkMonitor* makePrivateMonitor(GMainContext* context) {
  GNetworkMonitor* systemDefault = g_network_monitor_get_default();
  g_main_context_push_thread_default(context);
  GError* error = nullptr;
  gpointer made = g_initable_new(G_OBJECT_TYPE(systemDefault), nullptr, &error, nullptr);
  if (error != nullptr) {
    g_error_free(error);
  }
  if (made == nullptr) {
    g_main_context_pop_thread_default(context);
    return nullptr;
  }
  return G_NETWORK_MONITOR(made);
}

void run(const std::shared_ptr<GioNetworkMonitor::Shared>& shared) {
  GMainContext* context = g_main_context_new();
  GNetworkMonitor* monitor = makePrivateMonitor(context);
  if (monitor == nullptr) {
    g_main_context_unref(context);
    {
      std::lock_guard lock(shared->mutex);
      shared->ready = true;
    }
    shared->changed.notify_all();
    return;
  }
  GMainLoop* loop = g_main_loop_new(context, FALSE);
  // Signals of a monitor are emitted in the context it was made in, this thread's: `shared`
  // outlives every handler call.
  gpointer data = shared.get();
  g_signal_connect(monitor, "network-changed", reinterpret_cast<GCallback>(&onNetworkChanged),
                   data);
  g_signal_connect(monitor, "notify::network-metered",
                   reinterpret_cast<GCallback>(&onPropertyChanged), data);
  g_signal_connect(monitor, "notify::connectivity", reinterpret_cast<GCallback>(&onPropertyChanged),
                   data);
  {
    std::lock_guard lock(shared->mutex);
    shared->state = read(monitor);
    shared->usable = true;
    shared->context = context;
    shared->loop = loop;
    shared->ready = true;
  }
  shared->changed.notify_all();

  g_main_loop_run(loop);

  g_signal_handlers_disconnect_by_data(monitor, data);
  g_object_unref(monitor);
  g_main_loop_unref(loop);
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
}

}  // namespace

GioNetworkMonitor::GioNetworkMonitor()
    : shared_(std::make_shared<Shared>()),
      thread_("orvanta-netmon", [shared = shared_] { run(shared); }) {
  std::unique_lock lock(shared_->mutex);
  shared_->changed.wait(lock, [this] { return shared_->ready; });
}

GioNetworkMonitor::~GioNetworkMonitor() {
  stopWatching();
  {
    std::lock_guard lock(shared_->mutex);
    if (shared_->loop != nullptr) {
      // Quitting through the loop's own context: a quit that came before the loop started
      // running would be lost.
      GSource* source = g_idle_source_new();
      g_source_set_callback(source, &quitLoop, shared_->loop, nullptr);
      g_source_attach(source, shared_->context);
      g_source_unref(source);
    }
  }
  // Destroyed from its own handler, the thread is handed over and joined later (see OwnedThread).
  thread_.join();
}

std::optional<port::NetworkState> GioNetworkMonitor::currentState() const {
  std::lock_guard lock(shared_->mutex);
  return shared_->state;
}

bool GioNetworkMonitor::startWatching(ChangeHandler onChange) {
  std::lock_guard lock(shared_->mutex);
  if (!shared_->usable) {
    return false;
  }
  shared_->handler = std::move(onChange);
  return true;
}

void GioNetworkMonitor::stopWatching() {
  ChangeHandler dropped;
  {
    std::unique_lock lock(shared_->mutex);
    dropped = std::move(shared_->handler);
    shared_->handler = nullptr;
    if (!thread_.isCurrent()) {
      shared_->changed.wait(lock, [this] { return !shared_->delivering; });
    }
  }
  // `dropped` goes outside the lock: it may own objects whose destruction calls back in.
}

}  // namespace orvanta::linux_platform
