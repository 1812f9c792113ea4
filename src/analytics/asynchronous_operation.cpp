#include "analytics/asynchronous_operation.hpp"

#include <utility>

namespace orvanta {

AsynchronousOperation::OperationState AsynchronousOperation::state() const {
  std::shared_lock lock(stateMutex_);
  return rawState_;
}

void AsynchronousOperation::start() {
  {
    std::shared_lock lock(stateMutex_);
    if (rawState_ != OperationState::ready) {
      return;
    }
  }
  if (isCancelled()) {
    setState(OperationState::finished);
    return;
  }
  if (setState(OperationState::executing)) {
    execute();
  }
}

void AsynchronousOperation::setCompletionBlock(std::function<void()> completion) {
  std::unique_lock lock(stateMutex_);
  completion_ = std::move(completion);
}

bool AsynchronousOperation::setState(OperationState state) {
  std::function<void()> completion;
  {
    std::unique_lock lock(stateMutex_);
    if (static_cast<int>(state) <= static_cast<int>(rawState_)) {
      return false;
    }
    rawState_ = state;
    if (state == OperationState::finished) {
      completion.swap(completion_);
    }
  }
  if (completion) {
    completion();
  }
  return true;
}

}  // namespace orvanta
