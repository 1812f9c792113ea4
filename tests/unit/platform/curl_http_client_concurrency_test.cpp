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
// or finishing: every completion runs exactly once, and the untouched ones get their own answer.
TEST(CurlHttpClientConcurrencyTest, HundredRequestsFromManyThreadsCompleteExactlyOnce) {
  LoopbackHttpServer server([](const LoopbackRequest& request) {
    return LoopbackResponse{200, {}, request.body};
  });
  constexpr int kThreads = 4;
  constexpr int kPerThread = 25;
  constexpr int kTotal = kThreads * kPerThread;

  std::mutex mutex;
  std::condition_variable finished;
  std::vector<int> completions(kTotal, 0);
  std::vector<bool> answered(kTotal, false);
  int done = 0;
  auto client = linux_platform::makeCurlHttpClient();

  std::vector<std::thread> submitters;
  for (int t = 0; t < kThreads; ++t) {
    submitters.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        const int index = t * kPerThread + i;
        port::HttpRequest request;
        request.method = "POST";
        request.url = server.url("/echo");
        request.body = std::to_string(index);
        auto task = client->dataTask(std::move(request), [&, index](port::DataTaskResult result) {
          std::lock_guard lock(mutex);
          ++completions[index];
          answered[index] = !result.error && result.body == std::to_string(index);
          ++done;
          finished.notify_all();
        });
        if (index % 5 == 0) {
          task->cancel();
        }
      }
    });
  }
  for (auto& submitter : submitters) {
    submitter.join();
  }

  std::unique_lock lock(mutex);
  ASSERT_TRUE(finished.wait_for(lock, std::chrono::seconds(60), [&] { return done == kTotal; }));
  EXPECT_THAT(completions, ::testing::Each(1));
  for (int index = 0; index < kTotal; ++index) {
    if (index % 5 != 0) {
      EXPECT_TRUE(answered[index]) << "request " << index;
    }
  }
  lock.unlock();
  client.reset();
}

}  // namespace
}  // namespace orvanta
