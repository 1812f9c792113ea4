#pragma once

#include <functional>
#include <utility>

#include "core/future.hpp"
#include "core/result.hpp"

namespace orvanta {

/// The pair of handlers every service operation ends in; either may be empty. They run on the
/// HTTP client's thread.
template <class T>
struct CompletionHandler {
  std::function<void(const T&)> onNext;
  std::function<void(const Error&)> onError;
};

/// Operations that answer nothing call `onNext()` without an argument.
template <>
struct CompletionHandler<Void> {
  std::function<void()> onNext;
  std::function<void(const Error&)> onError;
};

namespace detail {

/// Hands the outcome of `future` to `handler`.
template <class T>
void deliver(const Future<T>& future, CompletionHandler<T> handler) {
  typename Future<T>::OnNext onNext;
  if (handler.onNext) {
    if constexpr (std::is_same_v<T, Void>) {
      onNext = [next = std::move(handler.onNext)](const Void&) { next(); };
    } else {
      onNext = std::move(handler.onNext);
    }
  }
  future.then(std::move(onNext), std::move(handler.onError));
}

}  // namespace detail

}  // namespace orvanta
