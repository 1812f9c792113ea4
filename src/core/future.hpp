#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/result.hpp"
#include "orvanta/error.hpp"

namespace orvanta {

template <class T>
class Promise;

namespace detail {

/// Turns whatever a transform threw into the error that rejects the chained future.
inline Error errorFromCurrentException() {
  try {
    throw;
  } catch (const Error& error) {
    return error;
  } catch (const std::exception& exception) {
    return Error::custom(exception.what());
  } catch (...) {
    return Error::custom("Unknown error");
  }
}

template <class F>
struct FutureValueOf;

}  // namespace detail

/// A value that arrives later: a handle to shared state, so copies observe the same completion.
///
/// Handlers registered with `then` run exactly once each: at completion, on the completing thread,
/// when registered before it; at once, on the registering thread, when registered after it. The
/// state is guarded by one mutex per future, and handlers run without it held, so a handler may
/// register further handlers or complete other futures. Every member may be called from any thread.
template <class T>
class Future {
 public:
  using Value = T;
  using OnNext = std::function<void(const T&)>;
  using OnError = std::function<void(const Error&)>;

  /// Registers a pair of handlers; either may be empty. Returns nothing: chain with `flatMap`.
  void then(OnNext onNext, OnError onError = {}) const {
    {
      std::lock_guard lock(state_->mutex);
      if (!state_->result) {
        // Most futures get one pair of handlers: it is kept without a vector of its own.
        if (!state_->first) {
          state_->first.emplace(Callback{std::move(onNext), std::move(onError)});
        } else {
          state_->callbacks.push_back({std::move(onNext), std::move(onError)});
        }
        return;
      }
    }
    // Set once and never changed again: read without the lock, with no copy.
    report(*state_->result, Callback{std::move(onNext), std::move(onError)});
  }

  /// Chains an asynchronous step: on success, `transform(value)` gives the next future, whose
  /// outcome becomes the outcome of the returned one. A transform that throws (an `Error` or any
  /// exception) rejects the returned future; a failure of this future passes straight through.
  template <class F>
  auto flatMap(F transform) const ->
      typename detail::FutureValueOf<std::invoke_result_t<F&, const T&>>::Type {
    using Next = typename detail::FutureValueOf<std::invoke_result_t<F&, const T&>>::Type;
    using U = typename Next::Value;
    Promise<U> next;
    then(
        [next, transform = std::move(transform)](const T& value) mutable {
          std::optional<Future<U>> inner;
          try {
            inner.emplace(transform(value));
          } catch (...) {
            next.reject(detail::errorFromCurrentException());
            return;
          }
          inner->then([next](const U& result) { next.resolve(result); },
                      [next](const Error& error) { next.reject(error); });
        },
        [next](const Error& error) { next.reject(error); });
    return next;
  }

  /// Chains a synchronous step: the returned future holds `transform(value)`, or the error thrown
  /// by the transform, or this future's own error.
  template <class F, class U = std::invoke_result_t<F&, const T&>>
  Future<U> map(F transform) const {
    Promise<U> next;
    then(
        [next, transform = std::move(transform)](const T& value) mutable {
          try {
            next.resolve(transform(value));
          } catch (...) {
            next.reject(detail::errorFromCurrentException());
          }
        },
        [next](const Error& error) { next.reject(error); });
    return next;
  }

  /// The outcome, once there is one.
  std::optional<Result<T>> result() const {
    std::lock_guard lock(state_->mutex);
    return state_->result;
  }

  bool isCompleted() const { return result().has_value(); }

  static Future resolved(T value) {
    Promise<T> promise;
    promise.resolve(std::move(value));
    return promise;
  }

  static Future rejected(Error error) {
    Promise<T> promise;
    promise.reject(std::move(error));
    return promise;
  }

 protected:
  Future() : state_(std::make_shared<State>()) {}

  /// Completes the future once; later completions are ignored.
  void complete(Result<T> result) const {
    std::optional<Callback> first;
    std::vector<Callback> callbacks;
    {
      std::lock_guard lock(state_->mutex);
      if (state_->result) {
        return;
      }
      state_->result.emplace(std::move(result));
      first.swap(state_->first);
      callbacks.swap(state_->callbacks);
    }
    if (first) {
      report(*state_->result, std::move(*first));
    }
    for (auto& callback : callbacks) {
      report(*state_->result, std::move(callback));
    }
  }

 private:
  struct Callback {
    OnNext onNext;
    OnError onError;
  };

  struct State {
    std::mutex mutex;
    std::optional<Result<T>> result;  ///< set once, under the mutex; never changed afterwards
    std::optional<Callback> first;    ///< the handlers registered first, while pending
    std::vector<Callback> callbacks;  ///< the ones registered after them
  };

  /// Calls the handler that matches `result`. A handler that throws does not stop the others: the
  /// exception ends here.
  static void report(const Result<T>& result, Callback callback) {
    try {
      if (result.isSuccess()) {
        if (callback.onNext) {
          callback.onNext(result.value());
        }
      } else if (callback.onError) {
        callback.onError(result.error());
      }
    } catch (...) {  // NOLINT(bugprone-empty-catch): handlers must not break the completing thread
    }
  }

  std::shared_ptr<State> state_;
};

/// The completing side of a future. Every future of the kit is a promise seen through its `Future`
/// face. Completing twice has no effect beyond the first time.
template <class T>
class Promise : public Future<T> {
 public:
  Promise() = default;

  void resolve(T value) const { this->complete(Result<T>(std::move(value))); }
  void reject(Error error) const { this->complete(Result<T>(std::move(error))); }
  void complete(Result<T> result) const { Future<T>::complete(std::move(result)); }
};

namespace detail {

template <class U>
struct FutureValueOf<Future<U>> {
  using Type = Future<U>;
};

template <class U>
struct FutureValueOf<Promise<U>> {
  using Type = Future<U>;
};

}  // namespace detail

}  // namespace orvanta
