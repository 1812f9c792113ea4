#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "linux/curl_http_client.hpp"
#include "testing/loopback_http_server.hpp"

namespace orvanta {
namespace {

using testing::LoopbackHttpServer;
using testing::LoopbackRequest;
using testing::LoopbackResponse;

// Four threads hand over 100 requests at once and cancel every fifth one while it may be running
// or finishing; each answered request starts a follow-up from its completion, on the network
// thread. Every completion runs exactly once, and the untouched ones get their own answer.
TEST(CurlHttpClientConcurrencyTest, RequestsFromManyThreadsAndFromCompletionsCompleteExactlyOnce) {
  LoopbackHttpServer server([](const LoopbackRequest& request) {
    return LoopbackResponse{200, {}, request.body};
  });
  constexpr int kThreads = 4;
  constexpr int kPerThread = 25;
  constexpr int kFirst = kThreads * kPerThread;  // follow-ups are numbered from kFirst on

  std::mutex mutex;
  std::condition_variable finished;
  std::vector<int> completions(2 * kFirst, 0);
  std::vector<bool> answered(2 * kFirst, false);
  int done = 0;
  int expected = kFirst;
  auto client = linux_platform::makeCurlHttpClient();
  std::function<void(int)> send = [&](int index) {
    port::HttpRequest request;
    request.method = "POST";
    request.url = server.url("/echo");
    request.body = std::to_string(index);
    auto task = client->dataTask(std::move(request), [&, index](port::DataTaskResult result) {
      const bool ok = !result.error && result.body == std::to_string(index);
      if (ok && index < kFirst) {
        {
          std::lock_guard lock(mutex);
          ++expected;
        }
        send(kFirst + index);
      }
      std::lock_guard lock(mutex);
      ++completions[index];
      answered[index] = ok;
      ++done;
      finished.notify_all();
    });
    if (index < kFirst && index % 5 == 0) {
      task->cancel();
    }
  };

  std::vector<std::thread> submitters;
  for (int t = 0; t < kThreads; ++t) {
    submitters.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        send(t * kPerThread + i);
      }
    });
  }
  for (auto& submitter : submitters) {
    submitter.join();
  }

  std::unique_lock lock(mutex);
  ASSERT_TRUE(finished.wait_for(lock, std::chrono::seconds(60), [&] { return done == expected; }));
  for (int index = 0; index < kFirst; ++index) {
    const bool cancelled = index % 5 == 0;
    EXPECT_EQ(completions[index], 1) << "request " << index;
    if (!cancelled) {
      EXPECT_TRUE(answered[index]) << "request " << index;
      EXPECT_EQ(completions[kFirst + index], 1) << "follow-up of " << index;
      EXPECT_TRUE(answered[kFirst + index]) << "follow-up of " << index;
    }
  }
  lock.unlock();
  client.reset();
}

}  // namespace
}  // namespace orvanta
