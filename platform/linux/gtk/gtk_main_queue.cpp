#include "linux/gtk/gtk_main_queue.hpp"

#include <glib.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace orvanta::gtk_platform {

namespace {
using Clock = std::chrono::steady_clock;
using Key = std::pair<Clock::time_point, std::uint64_t>;
}  // namespace

// Work waits in a map ordered by due time, then submission. Each item has a wake-up source on the
// context (an idle source, or a timeout at its due time); whichever wake-up fires runs every item
// that is due by then, in order, so that the order never depends on how the context happens to
// order its sources.
struct GtkMainQueue::State {
  struct Item {
    std::function<void()> work;
    GSource* wake = nullptr;  // one reference held
  };

  GMainContext* context = nullptr;  // one reference held
  std::mutex mutex;
  std::map<Key, Item> items;
  std::uint64_t nextSequence = 0;
  bool stopped = false;

  static void destroyWake(GSource* wake) {
    if (wake) {
      g_source_destroy(wake);
      g_source_unref(wake);
    }
  }

  /// Runs the items that are due, one at a time, without holding the lock while one runs.
  void runDue() {
    for (;;) {
      Item item;
      {
        std::lock_guard lock(mutex);
        auto first = items.begin();
        if (stopped || first == items.end() || first->first.first > Clock::now()) {
          return;
        }
        item = std::move(first->second);
        items.erase(first);
      }
      // The item's own wake-up is not needed any more (it may be the one running now).
      destroyWake(item.wake);
      try {
        item.work();
      } catch (...) {
        // A failing work item must not unwind through the context's C frames.
      }
    }
  }
};

namespace {

gboolean wake(gpointer data) {
  if (auto state = static_cast<std::weak_ptr<GtkMainQueue::State>*>(data)->lock()) {
    state->runDue();
  }
  return G_SOURCE_REMOVE;
}

void releaseWakeData(gpointer data) {
  delete static_cast<std::weak_ptr<GtkMainQueue::State>*>(data);
}

}  // namespace

class GtkMainQueue::Token : public port::Cancellable {
 public:
  explicit Token(std::weak_ptr<State> state) : state_(std::move(state)) {}

  void setKey(Key key) { key_ = key; }

  void cancel() override {
    if (cancelled_.exchange(true)) {
      return;
    }
    auto state = state_.lock();
    if (!state) {
      return;
    }
    State::Item item;
    {
      std::lock_guard lock(state->mutex);
      auto found = state->items.find(key_);
      if (found == state->items.end()) {
        return;  // already ran
      }
      item = std::move(found->second);
      state->items.erase(found);
    }
    // Outside the lock: the work's captures may post to the queue as they are destroyed.
    State::destroyWake(item.wake);
  }

  bool isCancelled() const override { return cancelled_.load(); }

 private:
  std::weak_ptr<State> state_;
  Key key_{};
  std::atomic<bool> cancelled_{false};
};

GtkMainQueue::GtkMainQueue(GMainContext* context)
    : state_(std::make_shared<State>()), ownerThread_(std::this_thread::get_id()) {
  state_->context = g_main_context_ref(context ? context : g_main_context_default());
}

GtkMainQueue::~GtkMainQueue() {
  std::map<Key, State::Item> dropped;
  {
    std::lock_guard lock(state_->mutex);
    state_->stopped = true;
    dropped.swap(state_->items);
  }
  for (auto& [key, item] : dropped) {
    State::destroyWake(item.wake);
  }
  dropped.clear();
  g_main_context_unref(state_->context);
  state_->context = nullptr;
}

void GtkMainQueue::async(std::function<void()> work) {
  enqueue(std::chrono::milliseconds(0), std::move(work), nullptr);
}

std::shared_ptr<port::Cancellable> GtkMainQueue::asyncAfter(std::chrono::milliseconds delay,
                                                            std::function<void()> work) {
  auto token = std::make_shared<Token>(state_);
  enqueue(delay, std::move(work), token);
  return token;
}

bool GtkMainQueue::isCurrent() const {
  return std::this_thread::get_id() == ownerThread_ ||
         g_main_context_is_owner(state_->context) != FALSE;
}

void GtkMainQueue::enqueue(std::chrono::milliseconds delay, std::function<void()> work,
                           std::shared_ptr<Token> token) {
  if (delay < std::chrono::milliseconds(0)) {
    delay = std::chrono::milliseconds(0);
  }
  // The due time is taken before the timeout starts counting, so the wake-up never comes early.
  const auto due = Clock::now() + delay;
  GSource* source = delay.count() == 0 ? g_idle_source_new()
                                       : g_timeout_source_new(static_cast<guint>(delay.count()));
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(source, wake, new std::weak_ptr<State>(state_), releaseWakeData);

  std::lock_guard lock(state_->mutex);
  if (state_->stopped) {
    g_source_unref(source);
    return;
  }
  const Key key{due, state_->nextSequence++};
  if (token) {
    token->setKey(key);
  }
  state_->items.emplace(key, State::Item{std::move(work), source});
  // Attached under the lock, so that a cancel never finds an item whose wake-up is not attached
  // yet. The context's lock is never held while ours is taken, so the order is safe.
  g_source_attach(source, state_->context);
}

}  // namespace orvanta::gtk_platform
