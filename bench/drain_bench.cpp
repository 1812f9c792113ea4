// How fast the event queue drains stored events to the sandbox, next to a plain libcurl multi loop
// posting the very same requests (URL, headers, bodies) with 10 transfers in flight to the same
// sandbox in the same run. Both must end with every event recorded by the sandbox.
//
//   drain_bench [events, default 10000] [rounds, default 3]
//
// Prints events per second for each round, the medians, their ratio, and the process's peak
// resident memory (VmHWM) after the first drain: kit, sandbox and stored events together.

#include <curl/curl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "analytics/orvanta_analytics_impl.hpp"
#include "entry/kit_context.hpp"
#include "networking/events_end_point.hpp"
#include "networking/router.hpp"
#include "orvanta/linux_platform.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/service_urls.hpp"
#include "orvanta_sandbox/sandbox.hpp"

namespace {

using namespace orvanta;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// A line of /proc/self/status ("VmHWM", "VmRSS") in megabytes.
double statusMegabytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(field + ":", 0) == 0) {
      return std::strtod(line.c_str() + field.size() + 1, nullptr) / 1024.0;
    }
  }
  return 0.0;
}

void writeConfig(const std::string& bundle, const sandbox::Credentials& credentials) {
  std::filesystem::create_directories(bundle);
  std::ofstream file(bundle + "/OrvantaConfig.plist");
  file << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
       << "<key>AppId</key><string>" << credentials.appId << "</string>"
       << "<key>Token</key><string>" << credentials.token << "</string>"
       << "<key>Secret</key><string>" << credentials.secret << "</string>"
       << "<key>EventsToken</key><string>" << credentials.eventsToken << "</string>"
       << "</dict></plist>\n";
}

std::size_t discard(char*, std::size_t size, std::size_t count, void*) {
  return size * count;
}

/// Posts every request with `inFlight` transfers at once on reused handles; the failures.
std::size_t rawLoop(const std::vector<port::HttpRequest>& requests, int inFlight) {
  curl_slist* headers = nullptr;
  for (const auto& [name, value] : requests.front().headers) {
    headers = curl_slist_append(headers, (name + ": " + value).c_str());
  }
  headers = curl_slist_append(headers, "Expect:");
  CURLM* multi = curl_multi_init();
  std::vector<CURL*> handles(static_cast<std::size_t>(inFlight));
  std::size_t next = 0;
  std::size_t failures = 0;
  const auto post = [&](CURL* easy) {
    const auto& request = requests[next++];
    curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.data());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
    curl_multi_add_handle(multi, easy);
  };
  int running = 0;
  for (auto& easy : handles) {
    easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &discard);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    if (next < requests.size()) {
      post(easy);
      ++running;
    }
  }
  while (running > 0) {
    curl_multi_perform(multi, &running);
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
      if (message->msg != CURLMSG_DONE) {
        continue;
      }
      long status = 0;
      curl_easy_getinfo(message->easy_handle, CURLINFO_RESPONSE_CODE, &status);
      failures += message->data.result == CURLE_OK && status / 100 == 2 ? 0 : 1;
      curl_multi_remove_handle(multi, message->easy_handle);
      if (next < requests.size()) {
        post(message->easy_handle);
        ++running;
      }
    }
    if (running > 0) {
      curl_multi_poll(multi, nullptr, 0, 100, nullptr);
    }
  }
  for (auto* easy : handles) {
    curl_easy_cleanup(easy);
  }
  curl_multi_cleanup(multi);
  curl_slist_free_all(headers);
  return failures;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::atoi(argv[1]) : 10000;
  const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
  curl_global_init(CURL_GLOBAL_DEFAULT);

  const char* tmp = std::getenv("TMPDIR");
  std::string folder =
      std::string(tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp") + "/drain_bench.XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  sandbox::Options options;
  options.requestLogLimit = 1000;  // the sandbox keeps every event anyway
  auto sandbox = sandbox::Sandbox::start(options);
  writeConfig(folder + "/bundle", sandbox->credentials());
  installPlatform(makeLinuxPlatform({.applicationName = "drain_bench",
                                     .dataDirectory = folder + "/data",
                                     .secureStoreDirectory = folder + "/data/keystore",
                                     .preferencesFile = folder + "/config/preferences.json",
                                     .bundleDirectory = folder + "/bundle",
                                     .kitResourcesDirectory = folder + "/bundle"}));
  setServiceBaseURLs(sandbox->baseUrl(), sandbox->baseUrl());
  auto context = std::make_shared<detail::KitContext>(currentPlatform());

  std::vector<OrvantaEvent> events;
  for (int i = 0; i < count; ++i) {
    events.emplace_back("c0ffee", sandbox->credentials().appId, "purchase", 1700000000.0 + i,
                        ValueMap{{"sku", "A-" + std::to_string(i)}, {"qty", i}, {"gift", true}});
  }
  // The loop's requests are built after the first drain, so that the memory figure is the kit's.
  std::vector<port::HttpRequest> requests;
  const auto buildRequests = [&] {
    for (const auto& event : events) {
      auto call = EventsEndPoint::event(event);
      requests.push_back(detail::buildRequest(call.httpMethod(), pathURL(call),
                                              call.headers(*context->configFile()), call.task(),
                                              detail::kRequestTimeout));
    }
  };
  std::printf("draining %d events to the sandbox on %s, %d rounds\n", count,
              sandbox->baseUrl().c_str(), rounds);

  std::vector<double> kitRates;
  std::vector<double> rawRates;
  double peakMegabytes = 0;
  const double startMegabytes = statusMegabytes("VmRSS");
  bool complete = true;
  for (int round = 0; round < rounds; ++round) {
    {
      const std::string path = folder + "/data/drain-" + std::to_string(round) + ".sqlite";
      auto database = std::make_shared<Database<OrvantaEvent>>(path);
      for (const auto& event : events) {
        database->add(std::make_shared<const OrvantaEvent>(event));
      }
      auto handler = OrvantaAnalyticsOperationsHandler::make(
          {database, [context] {
             return std::make_shared<EventsService>(context->router<EventsEndPoint>());
           }});
      sandbox->reset();
      const auto start = Clock::now();
      handler->postEventsFromDatabase();
      handler->operationQueue().waitUntilAllOperationsAreFinished();
      const double seconds = secondsSince(start);
      const std::size_t left = database->allRows().size();
      const std::size_t received = sandbox->eventCount();
      kitRates.push_back(count / seconds);
      complete = complete && left == 0 && received == static_cast<std::size_t>(count);
      if (round == 0) {
        peakMegabytes = statusMegabytes("VmHWM");
        buildRequests();
      }
      std::printf("  kit   round %d: %8.0f events/s (%.2f s, %zu received, %zu rows left)\n",
                  round + 1, count / seconds, seconds, received, left);
    }
    sandbox->reset();
    const auto start = Clock::now();
    const std::size_t failures = rawLoop(requests, 10);
    const double seconds = secondsSince(start);
    rawRates.push_back(count / seconds);
    complete =
        complete && failures == 0 && sandbox->eventCount() == static_cast<std::size_t>(count);
    std::printf("  curl  round %d: %8.0f events/s (%.2f s, %zu failures)\n", round + 1,
                count / seconds, seconds, failures);
  }
  const double kit = median(kitRates);
  const double raw = median(rawRates);
  std::printf(
      "median: kit %.0f events/s, libcurl multi loop %.0f events/s, ratio %.2f "
      "(goal >= 0.7)\n",
      kit, raw, kit / raw);
  std::printf(
      "peak resident memory after the first drain (VmHWM, whole process with the sandbox and the "
      "stored events): %.1f MB (goal < 50; %.1f MB before the database was filled)\n",
      peakMegabytes, startMegabytes);
  std::printf("every event delivered and every row deleted: %s\n", complete ? "yes" : "NO");
  sandbox->stop();
  std::filesystem::remove_all(folder);
  return complete ? 0 : 1;
}
