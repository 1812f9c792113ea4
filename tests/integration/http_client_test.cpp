#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "linux/curl_http_client.hpp"
#include "testing/inbox.hpp"
#include "testing/loopback_http_server.hpp"
#include "testing/loopback_tcp_server.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta {
namespace {

using linux_platform::CurlHttpClientOptions;
using linux_platform::makeCurlHttpClient;
using port::DataTaskResult;
using port::DownloadTaskResult;
using port::HttpRequest;
using testing::currentThreadName;
using ::testing::HasSubstr;
using testing::LoopbackHttpServer;
using testing::LoopbackRequest;
using testing::LoopbackResponse;
using testing::LoopbackTcpServer;

constexpr auto kPatience = std::chrono::seconds(30);

HttpRequest get(std::string url, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
  HttpRequest request;
  request.url = std::move(url);
  request.timeout = timeout;
  return request;
}

/// Runs one data task to its end and reports where its completion ran.
struct Fetched {
  DataTaskResult result;
  std::string threadName;
  bool ranInsideDataTask = false;
};

Fetched fetch(port::HttpClient& client, HttpRequest request) {
  auto done = std::make_shared<std::promise<Fetched>>();
  auto future = done->get_future();
  // A completion run inside `dataTask` would run on the calling thread.
  const auto caller = std::this_thread::get_id();
  client.dataTask(std::move(request), [done, caller](DataTaskResult result) {
    done->set_value(
        Fetched{std::move(result), currentThreadName(), std::this_thread::get_id() == caller});
  });
  if (future.wait_for(kPatience) != std::future_status::ready) {
    ADD_FAILURE() << "the data task never completed";
    return {};
  }
  return future.get();
}

DownloadTaskResult download(port::HttpClient& client, HttpRequest request) {
  auto done = std::make_shared<std::promise<DownloadTaskResult>>();
  auto future = done->get_future();
  client.downloadTask(std::move(request),
                      [done](DownloadTaskResult result) { done->set_value(std::move(result)); });
  if (future.wait_for(kPatience) != std::future_status::ready) {
    ADD_FAILURE() << "the download task never completed";
    return {};
  }
  return future.get();
}

void expectTransportError(const DataTaskResult& result, const std::string& textPart) {
  ASSERT_TRUE(result.error.has_value());
  EXPECT_EQ(result.error->domain(), Error::Domain::transport);
  EXPECT_THAT(result.error->localizedDescription(), HasSubstr(textPart));
  EXPECT_FALSE(result.body.has_value());
  EXPECT_FALSE(result.response.has_value());
}

void expectWorking(port::HttpClient& client, const LoopbackHttpServer& server) {
  const auto fetched = fetch(client, get(server.url("/still-working")));
  ASSERT_FALSE(fetched.result.error.has_value()) << fetched.result.error->message();
  EXPECT_EQ(fetched.result.response->statusCode, 200);
}

TEST(HttpClientTest, SendsTheRequestAsGivenAndHandsBackTheFinalAnswer) {
  LoopbackHttpServer server([](const LoopbackRequest&) {
    return LoopbackResponse{201, {{"X-Answer", "yes"}, {"Content-Type", "text/plain"}}, "made"};
  });
  auto client = makeCurlHttpClient();

  HttpRequest request = get(server.url("/v1/devices?lang=en"));
  request.method = "POST";
  request.headers = {{"Content-Type", "application/json"},
                     {"X-Orvanta-App-Token", ""},
                     {"Authorization", "secret value"}};
  request.body = "{\n  \"a\" : 1\n}";
  const auto posted = fetch(*client, request);

  ASSERT_FALSE(posted.result.error.has_value()) << posted.result.error->message();
  EXPECT_EQ(posted.threadName, "orvanta-net");
  EXPECT_FALSE(posted.ranInsideDataTask);
  EXPECT_EQ(posted.result.body, "made");
  EXPECT_EQ(posted.result.response->statusCode, 201);
  EXPECT_EQ(posted.result.response->url, server.url("/v1/devices?lang=en"));
  EXPECT_EQ(posted.result.response->header("x-answer"), "yes");
  EXPECT_EQ(posted.result.response->header("CONTENT-TYPE"), "text/plain");

  HttpRequest removal = get(server.url("/v1/devices/7"));
  removal.method = "DELETE";
  EXPECT_FALSE(fetch(*client, removal).result.error.has_value());
  EXPECT_FALSE(fetch(*client, get(server.url("/plain"))).result.error.has_value());

  // Handles are kept between requests: one of the same shape keeps its options, any other is
  // reset first. Nothing of an earlier request may reach a later one.
  HttpRequest second = request;
  second.headers = {{"X-Second", "2"}};
  second.body = "second";
  EXPECT_FALSE(fetch(*client, second).result.error.has_value());
  HttpRequest head = get(server.url("/head"));
  head.method = "HEAD";
  EXPECT_FALSE(fetch(*client, head).result.error.has_value());
  HttpRequest put = get(server.url("/put"));
  put.method = "PUT";
  put.body = "put";
  EXPECT_FALSE(fetch(*client, put).result.error.has_value());
  EXPECT_FALSE(fetch(*client, get(server.url("/again"))).result.error.has_value());

  const auto seen = server.requests();
  ASSERT_EQ(seen.size(), 7u);
  EXPECT_EQ(seen[3].method, "POST");
  EXPECT_EQ(seen[3].body, "second");
  EXPECT_EQ(seen[3].header("X-Second"), "2");
  EXPECT_EQ(seen[3].header("Authorization"), std::nullopt);
  EXPECT_EQ(seen[4].method, "HEAD");
  EXPECT_EQ(seen[4].body, "");
  EXPECT_EQ(seen[5].method, "PUT");
  EXPECT_EQ(seen[5].body, "put");
  EXPECT_EQ(seen[6].method, "GET");
  EXPECT_EQ(seen[6].path, "/again");
  EXPECT_EQ(seen[6].body, "");
  EXPECT_EQ(seen[6].header("X-Second"), std::nullopt);
  EXPECT_EQ(seen[0].method, "POST");
  EXPECT_EQ(seen[0].path, "/v1/devices");
  EXPECT_THAT(seen[0].arguments,
              ::testing::ElementsAre(std::pair<std::string, std::string>("lang", "en")));
  EXPECT_EQ(seen[0].body, request.body);
  EXPECT_EQ(seen[0].header("Content-Type"), "application/json");
  EXPECT_EQ(seen[0].header("X-Orvanta-App-Token"), "");  // an empty value is still sent
  EXPECT_EQ(seen[0].header("Authorization"), "secret value");
  EXPECT_EQ(seen[0].header("Content-Length"), std::to_string(request.body.size()));
  // Nothing the caller did not ask for.
  EXPECT_EQ(seen[0].header("Accept"), std::nullopt);
  EXPECT_EQ(seen[0].header("Expect"), std::nullopt);
  EXPECT_EQ(seen[0].header("User-Agent"), std::nullopt);
  EXPECT_EQ(seen[1].method, "DELETE");
  EXPECT_EQ(seen[2].method, "GET");
  EXPECT_EQ(seen[2].header("Content-Type"), std::nullopt);
  EXPECT_EQ(seen[2].body, "");
  // Keep-alive: one connection served them all.
  EXPECT_EQ(server.connectionCount(), 1u);
}

// Empty, redirect and error answers handed over as they are: see the router's StatusTable in
// router_test.cpp (integration), which judges them through this client.
TEST(HttpClientTest, BadServersEndInClearErrorsAndTheClientKeepsWorking) {
  LoopbackHttpServer good;
  auto client = makeCurlHttpClient();

  const auto closedPort = [] { return LoopbackHttpServer().port(); }();
  expectTransportError(
      fetch(*client, get("http://127.0.0.1:" + std::to_string(closedPort) + "/")).result, "onnect");
  expectWorking(*client, good);

  {
    LoopbackTcpServer silent(LoopbackTcpServer::Behaviour::neverAnswer);
    const auto timedOut = fetch(*client, get(silent.url("/"), std::chrono::milliseconds(200)));
    expectTransportError(timedOut.result, "timed out");
  }
  expectWorking(*client, good);

  {
    LoopbackTcpServer garbage(LoopbackTcpServer::Behaviour::garbage);
    const auto result = fetch(*client, get(garbage.url("/"))).result;
    ASSERT_TRUE(result.error.has_value());
    EXPECT_EQ(result.error->domain(), Error::Domain::transport);
    EXPECT_FALSE(result.error->message().empty());
  }
  expectWorking(*client, good);

  {
    LoopbackTcpServer truncated(LoopbackTcpServer::Behaviour::truncatedBody);
    expectTransportError(fetch(*client, get(truncated.url("/"))).result, "990 bytes remaining");
  }
  expectWorking(*client, good);

  expectTransportError(fetch(*client, get("ftp://127.0.0.1/file")).result, "");
  HttpRequest injected = get(good.url("/"));
  injected.headers = {{"X-Value", "a\r\nX-Injected: 1"}};
  expectTransportError(fetch(*client, injected).result, "X-Value");
  expectWorking(*client, good);
  EXPECT_EQ(good.requestCount(), 5u);
}

TEST(HttpClientTest, BodiesOverTheLimitFailWhetherAnnouncedOrNot) {
  LoopbackHttpServer server([](const LoopbackRequest& request) {
    return LoopbackResponse{200, {}, std::string(request.path == "/large" ? 4096 : 1024, 'b')};
  });
  CurlHttpClientOptions options;
  options.maxBodyBytes = 1024;
  auto client = makeCurlHttpClient(options);

  EXPECT_EQ(fetch(*client, get(server.url("/fits"))).result.body->size(), 1024u);
  expectTransportError(fetch(*client, get(server.url("/large"))).result, "limit of 1024 bytes");
  LoopbackTcpServer endless(LoopbackTcpServer::Behaviour::endlessBody);
  expectTransportError(fetch(*client, get(endless.url("/"))).result, "limit of 1024 bytes");
  expectWorking(*client, server);
  // The default client has a limit too.
  expectTransportError(fetch(*makeCurlHttpClient(), get(endless.url("/"))).result,
                       "limit of 16777216 bytes");
}

TEST(HttpClientTest, SelfSignedServerIsRefusedUnlessItsCertificateIsTrusted) {
  LoopbackHttpServer server(
      [](const LoopbackRequest&) {
        return LoopbackResponse{200, {}, "tls"};
      },
      testing::loopbackTlsIdentity());

  auto strict = makeCurlHttpClient();
  const auto refused = fetch(*strict, get(server.url("/secret"))).result;
  ASSERT_TRUE(refused.error.has_value());
  EXPECT_EQ(refused.error->domain(), Error::Domain::transport);
  EXPECT_THAT(refused.error->message(), HasSubstr("certificate"));
  EXPECT_EQ(server.requestCount(), 0u);

  CurlHttpClientOptions trusting;
  trusting.caFile = testing::loopbackCertificateFile();
  auto client = makeCurlHttpClient(trusting);
  for (const std::string host : {"127.0.0.1", "localhost"}) {
    const auto accepted =
        fetch(*client, get("https://" + host + ":" + std::to_string(server.port()) + "/secret"));
    ASSERT_FALSE(accepted.result.error.has_value()) << accepted.result.error->message();
    EXPECT_EQ(accepted.result.body, "tls");
  }
}

TEST(HttpClientTest, DownloadsLandInAFileTheCallerOwnsAndFailuresLeaveNothing) {
  testing::TemporaryDirectory folder;
  LoopbackHttpServer server([](const LoopbackRequest&) {
    return LoopbackResponse{200, {{"Content-Type", "image/png"}}, std::string(5000, 'p')};
  });
  CurlHttpClientOptions options;
  options.temporaryDirectory = folder.path();
  auto client = makeCurlHttpClient(options);

  const auto done = download(*client, get(server.url("/image.png")));
  ASSERT_FALSE(done.error.has_value()) << done.error->message();
  ASSERT_TRUE(done.location.has_value());
  EXPECT_EQ(std::filesystem::path(*done.location).parent_path(), folder.path());
  EXPECT_EQ(testing::readFile(*done.location), std::string(5000, 'p'));
  EXPECT_EQ(done.response->header("content-type"), "image/png");
  std::filesystem::remove(*done.location);

  LoopbackTcpServer truncated(LoopbackTcpServer::Behaviour::truncatedBody);
  const auto failed = download(*client, get(truncated.url("/image.png")));
  ASSERT_TRUE(failed.error.has_value());
  EXPECT_FALSE(failed.location.has_value());
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));

  CurlHttpClientOptions missing;
  missing.temporaryDirectory = folder.file("does-not-exist");
  const auto unwritable = download(*makeCurlHttpClient(missing), get(server.url("/image.png")));
  ASSERT_TRUE(unwritable.error.has_value());
  EXPECT_THAT(unwritable.error->message(), HasSubstr("does-not-exist"));
}

TEST(HttpClientTest, CancelEndsATransferOnceWithCancelled) {
  testing::TemporaryDirectory folder;
  LoopbackTcpServer silent(LoopbackTcpServer::Behaviour::neverAnswer);
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::optional<Error>> errors;
  CurlHttpClientOptions options;
  options.temporaryDirectory = folder.path();
  auto client = makeCurlHttpClient(options);
  auto record = [&](std::optional<Error> error) {
    std::lock_guard lock(mutex);
    errors.push_back(std::move(error));
    changed.notify_all();
  };
  auto dataTask =
      client->dataTask(get(silent.url("/data")), [&](DataTaskResult r) { record(r.error); });
  auto downloadTask = client->downloadTask(get(silent.url("/file")),
                                           [&](DownloadTaskResult r) { record(r.error); });
  ASSERT_TRUE(silent.waitForRequests(2));
  dataTask->cancel();
  downloadTask->cancel();
  dataTask->cancel();

  std::unique_lock lock(mutex);
  ASSERT_TRUE(changed.wait_for(lock, kPatience, [&] { return errors.size() == 2; }));
  for (const auto& error : errors) {
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain(), Error::Domain::transport);
    EXPECT_EQ(error->message(), "cancelled");
  }
  lock.unlock();
  downloadTask->cancel();  // after the end: nothing happens
  expectWorking(*client, LoopbackHttpServer());
  lock.lock();
  EXPECT_EQ(errors.size(), 2u);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(HttpClientTest, DestroyingTheClientCancelsWhatIsInFlight) {
  LoopbackTcpServer silent(LoopbackTcpServer::Behaviour::neverAnswer);
  std::atomic<int> cancelled{0};
  std::atomic<bool> onOtherThread{true};
  const auto testThread = std::this_thread::get_id();
  auto client = makeCurlHttpClient();
  for (int i = 0; i < 5; ++i) {
    client->dataTask(get(silent.url("/" + std::to_string(i))), [&](DataTaskResult result) {
      if (result.error && result.error->message() == "cancelled") {
        ++cancelled;
      }
      onOtherThread = onOtherThread && std::this_thread::get_id() != testThread;
    });
  }
  ASSERT_TRUE(silent.waitForRequests(5));
  client.reset();  // joins the network thread
  EXPECT_EQ(cancelled.load(), 5);
  EXPECT_TRUE(onOtherThread.load());
}

TEST(HttpClientTest, ACompletionMayReleaseTheLastReferenceToTheClient) {
  LoopbackHttpServer server;
  LoopbackTcpServer silent(LoopbackTcpServer::Behaviour::neverAnswer);
  std::promise<std::string> stalled;
  std::promise<void> released;
  auto client = makeCurlHttpClient();
  client->dataTask(get(silent.url("/")),
                   [&](DataTaskResult result) { stalled.set_value(result.error->message()); });
  ASSERT_TRUE(silent.waitForRequests(1));

  auto* raw = client.get();
  raw->dataTask(get(server.url("/")), [&, owner = std::move(client)](DataTaskResult) mutable {
    owner.reset();
    released.set_value();
  });
  auto stalledResult = stalled.get_future();
  ASSERT_EQ(stalledResult.wait_for(kPatience), std::future_status::ready);
  EXPECT_EQ(stalledResult.get(), "cancelled");
  EXPECT_EQ(released.get_future().wait_for(kPatience), std::future_status::ready);
}

}  // namespace
}  // namespace orvanta
