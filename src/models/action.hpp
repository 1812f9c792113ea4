#pragma once

#include <functional>
#include <utility>

namespace orvanta {

/// The handler attached to an alert button: a callable taking the arguments `Args` (none for the
/// common `Action<>`). Invoking an action without a callable does nothing.
template <typename... Args>
class Action {
 public:
  Action() = default;
  explicit Action(std::function<void(Args...)> action) : action_(std::move(action)) {}

  void operator()(Args... args) const {
    if (action_) {
      action_(std::forward<Args>(args)...);
    }
  }

  const std::function<void(Args...)>& action() const { return action_; }

 private:
  std::function<void(Args...)> action_;
};

}  // namespace orvanta
