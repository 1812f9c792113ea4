#include "linux/gio/glib_loop_thread.hpp"

#include <glib.h>

#include <deque>
#include <mutex>
#include <utility>

namespace orvanta::linux_platform {

struct GlibLoopThread::State {
  State() = default;
  ~State() {
    if (loop != nullptr) {
      g_main_loop_unref(loop);
      g_main_context_unref(context);
    }
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // Made with the thread, under `mutex`; unchanged afterwards.
  GMainContext* context = nullptr;
  GMainLoop* loop = nullptr;

  std::mutex mutex;
  std::deque<std::function<void()>> work;
  bool drainScheduled = false;  // an idle source that runs `work` is attached
  bool stopping = false;
  std::function<void()> shutdown;
  std::function<bool()> settled;
};

namespace {

void attachIdle(GMainContext* context, GSourceFunc function, gpointer data) {
  GSource* source = g_idle_source_new();
  g_source_set_callback(source, function, data, nullptr);
  g_source_attach(source, context);
  g_source_unref(source);
}

gboolean quitLoop(gpointer data) {
  g_main_loop_quit(static_cast<GMainLoop*>(data));
  return G_SOURCE_REMOVE;
}

}  // namespace

GlibLoopThread::GlibLoopThread(std::string name)
    : name_(std::move(name)), state_(std::make_shared<State>()) {}

GlibLoopThread::~GlibLoopThread() {
  stop();
}

bool GlibLoopThread::post(std::function<void()> work) const {
  // The idle source runs one item per dispatch, so GLib's own sources get their turn in between.
  static constexpr GSourceFunc kRunOne = [](gpointer data) -> gboolean {
    auto* state = static_cast<State*>(data);
    std::function<void()> item;
    {
      std::lock_guard lock(state->mutex);
      if (state->work.empty() || state->stopping) {
        state->drainScheduled = false;
        return G_SOURCE_REMOVE;
      }
      item = std::move(state->work.front());
      state->work.pop_front();
    }
    try {
      item();
    } catch (...) {  // NOLINT(bugprone-empty-catch): one failing item must not stop the loop
    }
    return G_SOURCE_CONTINUE;
  };

  std::lock_guard lock(state_->mutex);
  if (state_->stopping) {
    return false;
  }
  if (state_->loop == nullptr) {
    state_->context = g_main_context_new();
    state_->loop = g_main_loop_new(state_->context, FALSE);
    thread_ = OwnedThread(name_, [state = state_] { run(state); });
  }
  state_->work.push_back(std::move(work));
  if (!state_->drainScheduled) {
    state_->drainScheduled = true;
    // The source holds the state by plain pointer: sources die with the context, which the state
    // owns.
    attachIdle(state_->context, kRunOne, state_.get());
  }
  return true;
}

void GlibLoopThread::stop(std::function<void()> shutdown, std::function<bool()> settled) {
  std::deque<std::function<void()>> dropped;
  {
    std::lock_guard lock(state_->mutex);
    if (!state_->stopping) {
      state_->stopping = true;
      dropped.swap(state_->work);
      if (state_->loop != nullptr) {
        state_->shutdown = std::move(shutdown);
        state_->settled = std::move(settled);
        // Quitting from a source, rather than from here, makes sure the loop is running when it
        // is asked to quit.
        attachIdle(state_->context, quitLoop, state_->loop);
      }
    }
  }
  // Stopped from its own work, the thread is handed over and joined later (see OwnedThread).
  thread_.join();
  // `dropped` goes last, outside every lock: its closures may own other objects.
}

void GlibLoopThread::run(const std::shared_ptr<State>& state) {
  g_main_context_push_thread_default(state->context);
  g_main_loop_run(state->loop);

  std::function<void()> shutdown;
  std::function<bool()> settled;
  {
    std::lock_guard lock(state->mutex);
    shutdown = std::move(state->shutdown);
    settled = std::move(state->settled);
  }
  try {
    if (shutdown) {
      shutdown();
    }
    while (settled && !settled()) {
      g_main_context_iteration(state->context, TRUE);
    }
  } catch (...) {  // NOLINT(bugprone-empty-catch): the thread ends either way
  }
  // Released here, on the loop thread: they may own the object that owns this loop.
  shutdown = nullptr;
  settled = nullptr;
  g_main_context_pop_thread_default(state->context);
}

}  // namespace orvanta::linux_platform
