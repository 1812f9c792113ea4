#pragma once

// The fixture of the tests that run the kit against the sandbox: a fresh test platform, the
// sandbox on loopback with the kit pointed at it, the sandbox's credentials in the host's
// configuration file, logging on. Test programs that include it link orvanta_sandbox.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/future.hpp"
#include "orvanta/service_urls.hpp"
#include "orvanta_sandbox/sandbox.hpp"
#include "testing/platform_test.hpp"

namespace orvanta::testing {

inline constexpr auto kPatience = std::chrono::seconds(30);

/// Waits for `future` to complete; fails the test (and gives none) when it takes too long.
template <class T>
std::optional<Result<T>> await(const Future<T>& future) {
  struct Shared {
    std::mutex mutex;
    std::condition_variable done;
    std::optional<Result<T>> result;
  };
  auto shared = std::make_shared<Shared>();
  auto store = [shared](Result<T> result) {
    std::lock_guard lock(shared->mutex);
    shared->result.emplace(std::move(result));
    shared->done.notify_all();
  };
  future.then([store](const T& value) { store(Result<T>(value)); },
              [store](const Error& error) { store(Result<T>(error)); });
  std::unique_lock lock(shared->mutex);
  if (!shared->done.wait_for(lock, kPatience, [&] { return shared->result.has_value(); })) {
    ADD_FAILURE() << "the future never completed";
    return std::nullopt;
  }
  return shared->result;
}

/// Lines of `sink` that contain `text`, waiting until there are at least `count` of them.
inline std::vector<std::string> awaitLinesContaining(CapturingLogSink& sink,
                                                     const std::string& text, std::size_t count) {
  sink.waitForLines(count, kPatience, text);
  return sink.linesContaining(text);
}

/// The test's manual main queue, telling the test when work has been handed to it (from the HTTP
/// client's thread, say), so that it can run it, or move time on, only then.
class WatchedMainQueue : public port::MainQueue {
 public:
  explicit WatchedMainQueue(ManualMainQueue& queue) : queue_(queue) {}

  void async(std::function<void()> work) override {
    queue_.async(std::move(work));
    std::lock_guard lock(mutex_);
    ++posted_;
    changed_.notify_all();
  }
  std::shared_ptr<port::Cancellable> asyncAfter(std::chrono::milliseconds delay,
                                                std::function<void()> work) override {
    auto handle = queue_.asyncAfter(delay, std::move(work));
    std::lock_guard lock(mutex_);
    ++scheduled_;
    changed_.notify_all();
    return handle;
  }
  bool isCurrent() const override { return queue_.isCurrent(); }

  /// Waits until `count` delayed items have been scheduled since creation.
  bool waitForScheduled(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return scheduled_ >= count; });
  }
  std::size_t scheduled() {
    std::lock_guard lock(mutex_);
    return scheduled_;
  }
  /// Waits until `count` items have been posted with `async` since creation, then runs everything
  /// due on the calling thread.
  bool runOncePosted(std::size_t count) {
    {
      std::unique_lock lock(mutex_);
      if (!changed_.wait_for(lock, kPatience, [&] { return posted_ >= count; })) {
        return false;
      }
    }
    queue_.runUntilIdle();
    return true;
  }

 private:
  ManualMainQueue& queue_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::size_t scheduled_ = 0;
  std::size_t posted_ = 0;
};

class SandboxTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    sandbox_ = sandbox::Sandbox::start();
    const auto& credentials = sandbox_->credentials();
    writeConfig(testing::credentials(credentials.appId, credentials.token, credentials.secret,
                                     credentials.eventsToken));
    ASSERT_TRUE(setServiceBaseURLs(sandbox_->baseUrl(), sandbox_->baseUrl()));
    enableLogging();
  }

  void TearDown() override {
    resetServiceBaseURLs();
    sandbox_.reset();
    PlatformTest::TearDown();
  }

  sandbox::Sandbox& sandbox() { return *sandbox_; }

  /// The one request the sandbox recorded, failing the test when there is not exactly one.
  sandbox::RecordedRequest onlyRequest() {
    auto requests = sandbox_->requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? sandbox::RecordedRequest{} : requests.front();
  }

 private:
  std::unique_ptr<sandbox::Sandbox> sandbox_;
};

}  // namespace orvanta::testing
