#include "orvanta/host_lifecycle.hpp"

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace orvanta {

struct HostLifecycle::State {
  struct Observer {
    std::uint64_t id;
    port::LifecycleEvent event;
    std::shared_ptr<std::function<void()>> handler;
  };
  struct Task {
    std::function<void()> expirationHandler;
    std::shared_ptr<port::Cancellable> budgetTimer;
  };

  std::shared_ptr<port::MainQueue> mainQueue;
  std::chrono::milliseconds budget;

  mutable std::mutex mutex;
  std::uint64_t nextObserverId = 1;
  port::BackgroundTaskId nextTaskId = 1;
  std::vector<Observer> observers;
  std::map<port::BackgroundTaskId, Task> tasks;

  /// Removes the task and runs its expiration handler, outside the lock.
  void expire(port::BackgroundTaskId id) {
    std::function<void()> handler;
    std::shared_ptr<port::Cancellable> timer;
    {
      std::lock_guard lock(mutex);
      auto found = tasks.find(id);
      if (found == tasks.end()) {
        return;
      }
      handler = std::move(found->second.expirationHandler);
      timer = std::move(found->second.budgetTimer);
      tasks.erase(found);
    }
    if (timer) {
      timer->cancel();
    }
    if (handler) {
      try {
        handler();
      } catch (...) {  // NOLINT(bugprone-empty-catch): host code must not break the kit
      }
    }
  }
};

namespace {

class Observation : public port::LifecycleObservation {
 public:
  Observation(std::weak_ptr<HostLifecycle::State> state, std::uint64_t id)
      : state_(std::move(state)), id_(id) {}

  ~Observation() override {
    auto state = state_.lock();
    if (!state) {
      return;
    }
    std::lock_guard lock(state->mutex);
    std::erase_if(state->observers, [this](const auto& observer) { return observer.id == id_; });
  }

 private:
  std::weak_ptr<HostLifecycle::State> state_;
  std::uint64_t id_;
};

}  // namespace

HostLifecycle::HostLifecycle(std::shared_ptr<port::MainQueue> mainQueue,
                             std::chrono::milliseconds budget)
    : state_(std::make_shared<State>()) {
  state_->mainQueue = std::move(mainQueue);
  state_->budget = budget;
}

HostLifecycle::~HostLifecycle() {
  std::map<port::BackgroundTaskId, State::Task> tasks;
  {
    std::lock_guard lock(state_->mutex);
    tasks.swap(state_->tasks);
  }
  for (auto& [id, task] : tasks) {
    if (task.budgetTimer) {
      task.budgetTimer->cancel();
    }
  }
}

void HostLifecycle::post(port::LifecycleEvent event) {
  std::vector<std::shared_ptr<std::function<void()>>> handlers;
  {
    std::lock_guard lock(state_->mutex);
    for (const auto& observer : state_->observers) {
      if (observer.event == event) {
        handlers.push_back(observer.handler);
      }
    }
  }
  for (const auto& handler : handlers) {
    try {
      (*handler)();
    } catch (...) {  // NOLINT(bugprone-empty-catch): one observer must not stop the others
    }
  }
}

void HostLifecycle::willSuspend() {
  std::vector<port::BackgroundTaskId> ids;
  {
    std::lock_guard lock(state_->mutex);
    for (const auto& [id, task] : state_->tasks) {
      ids.push_back(id);
    }
  }
  for (auto id : ids) {
    state_->expire(id);
  }
  post(port::LifecycleEvent::willSuspend);
}

std::unique_ptr<port::LifecycleObservation> HostLifecycle::observe(port::LifecycleEvent event,
                                                                   std::function<void()> handler) {
  std::lock_guard lock(state_->mutex);
  std::uint64_t id = state_->nextObserverId++;
  state_->observers.push_back(
      {id, event, std::make_shared<std::function<void()>>(std::move(handler))});
  return std::make_unique<Observation>(state_, id);
}

port::BackgroundTaskId HostLifecycle::beginBackgroundTask(std::function<void()> expirationHandler) {
  port::BackgroundTaskId id;
  {
    std::lock_guard lock(state_->mutex);
    id = state_->nextTaskId++;
    state_->tasks[id] = State::Task{std::move(expirationHandler), nullptr};
  }
  if (state_->budget.count() > 0 && state_->mainQueue) {
    std::weak_ptr<State> weak = state_;
    auto timer = state_->mainQueue->asyncAfter(state_->budget, [weak, id] {
      if (auto state = weak.lock()) {
        state->expire(id);
      }
    });
    std::lock_guard lock(state_->mutex);
    auto found = state_->tasks.find(id);
    if (found != state_->tasks.end()) {
      found->second.budgetTimer = std::move(timer);
    }
  }
  return id;
}

void HostLifecycle::endBackgroundTask(port::BackgroundTaskId task) {
  std::shared_ptr<port::Cancellable> timer;
  {
    std::lock_guard lock(state_->mutex);
    auto found = state_->tasks.find(task);
    if (found == state_->tasks.end()) {
      return;
    }
    timer = std::move(found->second.budgetTimer);
    state_->tasks.erase(found);
  }
  if (timer) {
    timer->cancel();
  }
}

std::size_t HostLifecycle::runningBackgroundTasks() const {
  std::lock_guard lock(state_->mutex);
  return state_->tasks.size();
}

}  // namespace orvanta
