// How many small event posts a second orvanta-sandbox answers over loopback, with 10 and then 16
// transfers in flight on keep-alive connections, and the slowest single answer.
//
//   sandbox_throughput [seconds per run, default 3]

#include <curl/curl.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "orvanta_sandbox/sandbox.hpp"

namespace {

using Clock = std::chrono::steady_clock;

struct Transfer {
  CURL* easy = nullptr;
  Clock::time_point started;
};

std::size_t discard(char* /*data*/, std::size_t size, std::size_t count, void* /*user*/) {
  return size * count;
}

// CPU time used by the whole process (client and server threads), in seconds.
double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Figures {
  std::size_t requests = 0;
  std::size_t failures = 0;
  double seconds = 0;
  double cpuSeconds = 0;
  std::vector<double> latenciesMs;
};

Figures run(const orvanta::sandbox::Sandbox& sandbox, int inFlight, double seconds) {
  const auto& credentials = sandbox.credentials();
  const std::string url = sandbox.baseUrl() + "event";
  curl_slist* headers = nullptr;
  headers = curl_slist_append(headers, "Content-Type: application/json");
  headers = curl_slist_append(headers, ("Authorization: " + credentials.eventsToken).c_str());
  headers = curl_slist_append(headers, "Expect:");

  CURLM* multi = curl_multi_init();
  std::vector<Transfer> transfers(static_cast<std::size_t>(inFlight));
  std::size_t sequence = 0;
  const auto post = [&](Transfer& transfer) {
    const std::string body =
        R"({"pushId":"abcdef|||)" + credentials.appId + R"(","eventName":"bench","createdAt":)" +
        std::to_string(1.7e9 + sequence++) +
        R"(,"additionalStringFields":{"sku":"A-1"},"additionalNumericFields":{"qty":2},)"
        R"("additionalBoolFields":{"gift":false},"additionalDateFields":{}})";
    curl_easy_setopt(transfer.easy, CURLOPT_COPYPOSTFIELDS, body.c_str());
    transfer.started = Clock::now();
    curl_multi_add_handle(multi, transfer.easy);
  };
  for (auto& transfer : transfers) {
    transfer.easy = curl_easy_init();
    curl_easy_setopt(transfer.easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(transfer.easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(transfer.easy, CURLOPT_WRITEFUNCTION, &discard);
    curl_easy_setopt(transfer.easy, CURLOPT_PRIVATE, &transfer);
    curl_easy_setopt(transfer.easy, CURLOPT_NOSIGNAL, 1L);
  }

  Figures figures;
  const double cpuAtStart = cpuSeconds();
  const auto start = Clock::now();
  const auto end = start + std::chrono::duration<double>(seconds);
  for (auto& transfer : transfers) {
    post(transfer);
  }
  int running = inFlight;
  while (running > 0) {
    curl_multi_perform(multi, &running);
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
      if (message->msg != CURLMSG_DONE) {
        continue;
      }
      Transfer* transfer = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
      long status = 0;
      curl_easy_getinfo(message->easy_handle, CURLINFO_RESPONSE_CODE, &status);
      const bool ok = message->data.result == CURLE_OK && status == 201;
      curl_multi_remove_handle(multi, message->easy_handle);
      const auto now = Clock::now();
      ++figures.requests;
      figures.failures += ok ? 0 : 1;
      figures.latenciesMs.push_back(
          std::chrono::duration<double, std::milli>(now - transfer->started).count());
      if (now < end) {
        post(*transfer);
        ++running;
      }
    }
    if (running > 0) {
      curl_multi_poll(multi, nullptr, 0, 100, nullptr);
    }
  }
  figures.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  figures.cpuSeconds = cpuSeconds() - cpuAtStart;

  for (auto& transfer : transfers) {
    curl_easy_cleanup(transfer.easy);
  }
  curl_multi_cleanup(multi);
  curl_slist_free_all(headers);
  return figures;
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
  curl_global_init(CURL_GLOBAL_DEFAULT);
  auto sandbox = orvanta::sandbox::Sandbox::start();
  std::printf("sandbox on %s, %.1f s per run\n", sandbox->baseUrl().c_str(), seconds);
  for (const int inFlight : {10, 16}) {
    sandbox->reset();
    Figures figures = run(*sandbox, inFlight, seconds);
    std::sort(figures.latenciesMs.begin(), figures.latenciesMs.end());
    const auto percentile = [&](double p) {
      if (figures.latenciesMs.empty()) {
        return 0.0;
      }
      const auto index =
          static_cast<std::size_t>(p * static_cast<double>(figures.latenciesMs.size() - 1));
      return figures.latenciesMs[index];
    };
    std::printf(
        "%2d in flight: %zu requests in %.2f s = %.0f requests/s; latency median %.3f ms, "
        "p99 %.3f ms, worst %.3f ms; failures %zu; max in flight seen by the sandbox %d; "
        "distinct events %zu; %.0f requests per CPU-second (client and server together)\n",
        inFlight, figures.requests, figures.seconds,
        static_cast<double>(figures.requests) / figures.seconds, percentile(0.5), percentile(0.99),
        figures.latenciesMs.empty() ? 0.0 : figures.latenciesMs.back(), figures.failures,
        sandbox->inFlight(orvanta::sandbox::Endpoint::event).max, sandbox->eventCount(),
        static_cast<double>(figures.requests) / figures.cpuSeconds);
  }
  sandbox->stop();
  curl_global_cleanup();
  return 0;
}
