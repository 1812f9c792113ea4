// How fast the event queue drains stored events, next to a plain libcurl multi loop posting the
// very same requests (URL, headers, bodies) with 10 transfers in flight, both to one
// orvanta-sandbox running as a separate process; and what a burst of tracked events costs.
//
//   drain_bench [events, default 10000] [rounds, default 3] [burst, default 1000] [--kit-only]
//
// Drain: each round stores `events` rows (as a previous launch would have left them), opens the
// database as a new launch does and flushes once; then the libcurl loop posts the same requests,
// once as they are and once also deleting each delivered row from a database like the kit's (the
// work the kit is required to do besides posting: the limit it can reach).
// Prints events per second for each, the medians and their ratio, the CPU time per event of the
// kit's process, of the loop and of the sandbox, and the kit's peak resident memory during the
// first drain (VmHWM of this process, which holds no sandbox).
//
// --kit-only leaves the libcurl loop out, for profiling the kit. Under callgrind, each drain is
// dumped on its own, in turn kit, loop, required-work loop ("callgrind.out.<pid>.1" is the
// first kit drain):
//   valgrind --tool=callgrind drain_bench 2000 1 0
//
// Burst: `burst` back-to-back `trackEvent` calls against the live sandbox. Every call stores its
// event and flushes every stored row, and rows whose post is still in flight are posted again, so
// the service receives more posts than events: prints the POSTs per tracked event and the most
// rows stored at once, so that the cost of that rule is visible.

#include <curl/curl.h>
#include <sqlite3.h>
#include <unistd.h>
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_DUMP_STATS_AT(name)
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/file_snapshot.hpp"
#include "entry/kit_context.hpp"
#include "networking/events_end_point.hpp"
#include "networking/router.hpp"
#include "orvanta/linux_platform.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/service_urls.hpp"
#include "sandbox_process.hpp"

// Every allocation of this process counted (libcurl's and SQLite's included): glibc's allocator,
// called through these.
namespace {
std::atomic<std::uint64_t> allocations{0};
}  // namespace

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* pointer, std::size_t size);
void __libc_free(void* pointer);

void* malloc(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}
void* realloc(void* pointer, std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(pointer, size);
}
void free(void* pointer) {
  __libc_free(pointer);
}
}

namespace {

using namespace orvanta;
using Clock = std::chrono::steady_clock;

constexpr const char* kAppId = "bench-app";

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0.0 : values[values.size() / 2];
}

void writeConfig(const std::string& bundle) {
  std::filesystem::create_directories(bundle);
  std::ofstream file(bundle + "/OrvantaConfig.plist");
  file << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
       << "<key>AppId</key><string>" << kAppId << "</string>"
       << "<key>Token</key><string>bench-token</string>"
       << "<key>Secret</key><string>bench-secret</string>"
       << "<key>EventsToken</key><string>bench-events-token</string>"
       << "</dict></plist>\n";
}

OrvantaEvent sampleEvent(int i) {
  return OrvantaEvent("c0ffee", kAppId, "purchase", 1700000000.0 + i,
                      ValueMap{{"sku", "A-" + std::to_string(i)}, {"qty", i}, {"gift", true}});
}

/// Stores `count` rows the way the kit writes them, in one transaction through the SQLite C API,
/// so that the kit meets them as a new launch does (nothing cached, nothing of the filling left in
/// this process's memory).
bool fillDatabase(const std::string& path, int count,
                  const std::vector<std::string>* uuids = nullptr) {
  {
    Database<OrvantaEvent> create(path);  // the table, the journal mode
  }
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    return false;
  }
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db,
                     "INSERT INTO \"orvantaevent\" (\"uuidId\", \"pushId\", \"eventName\", "
                     "\"createdAt\", \"additionalStringFields\", \"additionalNumericFields\", "
                     "\"additionalBoolFields\", \"additionalDateFields\") VALUES (?, ?, ?, ?, ?, "
                     "?, ?, ?)",
                     -1, &insert, nullptr);
  sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
  bool ok = insert != nullptr;
  for (int i = 0; ok && i < count; ++i) {
    auto event = sampleEvent(i);
    if (uuids != nullptr) {
      event.uuidId = (*uuids)[static_cast<std::size_t>(i)];
    }
    const auto json = event.toJson();
    int column = 1;
    for (const auto& [key, value] : json.items()) {
      if (value.is_number()) {
        sqlite3_bind_double(insert, column, value.get<double>());
      } else {
        const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
        sqlite3_bind_text(insert, column, text.data(), static_cast<int>(text.size()),
                          SQLITE_TRANSIENT);
      }
      ++column;
    }
    ok = sqlite3_step(insert) == SQLITE_DONE;
    sqlite3_reset(insert);
  }
  ok = sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK && ok;
  sqlite3_finalize(insert);
  sqlite3_close_v2(db);
  return ok;
}

std::size_t discard(char*, std::size_t size, std::size_t count, void*) {
  return size * count;
}

/// The work the kit may not skip beside its posts: deleting each delivered event's row, by its
/// uuid, from a WAL database like the kit's (synchronous NORMAL, the same page cache), on a thread
/// of its own, as many
/// deletions per transaction as the kit groups (all that waited up to 5 ms, at most 256 before a
/// turn stops waiting).
class RowDeleter {
 public:
  explicit RowDeleter(const std::string& path) {
    sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_busy_timeout(db_, 5000);
    sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA cache_size=-256",
                 nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db_, "DELETE FROM \"orvantaevent\" WHERE \"uuidId\" = ?", -1, &delete_,
                       nullptr);
    thread_ = std::thread([this] { run(); });
  }
  ~RowDeleter() {
    finish();
    sqlite3_finalize(delete_);
    sqlite3_close_v2(db_);
  }

  /// Deletes what is still waiting and stops; the rows deleted in all.
  std::size_t finish() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) {
      thread_.join();
    }
    return deletions_.load();
  }

  void deleted(std::string uuid) {
    std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(uuid));
    if (waiting_.size() == 1 || waiting_.size() == 256) {
      changed_.notify_all();
    }
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    while (true) {
      changed_.wait(lock, [&] { return stopping_ || !waiting_.empty(); });
      changed_.wait_for(lock, std::chrono::milliseconds(5),
                        [&] { return stopping_ || waiting_.size() >= 256; });
      if (waiting_.empty()) {
        return;
      }
      std::vector<std::string> batch;
      batch.swap(waiting_);
      lock.unlock();
      sqlite3_exec(db_, "BEGIN", nullptr, nullptr, nullptr);
      for (const auto& uuid : batch) {
        sqlite3_bind_text(delete_, 1, uuid.data(), static_cast<int>(uuid.size()), SQLITE_STATIC);
        if (sqlite3_step(delete_) == SQLITE_DONE) {
          deletions_.fetch_add(static_cast<std::size_t>(sqlite3_changes(db_)));
        }
        sqlite3_reset(delete_);
      }
      sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
      lock.lock();
    }
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* delete_ = nullptr;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> waiting_;
  bool stopping_ = false;
  std::atomic<std::size_t> deletions_{0};
  std::thread thread_;
};

/// Posts every request with `inFlight` transfers at once on reused handles; the failures. With a
/// deleter, each successful post hands its event's uuid to it.
std::size_t rawLoop(const std::vector<port::HttpRequest>& requests,
                    const std::vector<std::string>& uuids, int inFlight,
                    RowDeleter* deleter = nullptr) {
  curl_slist* headers = nullptr;
  for (const auto& [name, value] : requests.front().headers) {
    headers = curl_slist_append(headers, (name + ": " + value).c_str());
  }
  headers = curl_slist_append(headers, "Expect:");
  headers = curl_slist_append(headers, "Accept:");
  CURLM* multi = curl_multi_init();
  std::vector<CURL*> handles(static_cast<std::size_t>(inFlight));
  std::size_t next = 0;
  std::size_t failures = 0;
  const auto post = [&](CURL* easy) {
    const auto& request = requests[next];
    curl_easy_setopt(easy, CURLOPT_PRIVATE,
                     reinterpret_cast<void*>(static_cast<std::uintptr_t>(next)));
    ++next;
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
    curl_easy_setopt(easy, CURLOPT_NOPROXY, "*");
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
      const bool success = message->data.result == CURLE_OK && status / 100 == 2;
      failures += success ? 0 : 1;
      if (success && deleter != nullptr) {
        char* index = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &index);
        deleter->deleted(uuids[static_cast<std::size_t>(reinterpret_cast<std::uintptr_t>(index))]);
      }
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

/// The event database, counting the rows each fetch found.
class CountingDatabase final : public EventDatabase {
 public:
  explicit CountingDatabase(std::shared_ptr<EventDatabase> inner) : inner_(std::move(inner)) {}

  void add(const OrvantaEvent& record) override { inner_->add(record); }
  std::vector<Row> allRows() override {
    auto rows = inner_->allRows();
    peak_ = std::max(peak_.load(), rows.size());
    return rows;
  }
  void deleteRows(std::string_view column, const std::string& value) override {
    inner_->deleteRows(column, value);
  }
  void deleteRow(std::string_view primaryKey) override { inner_->deleteRow(primaryKey); }
  void inTransaction(const std::function<void()>& work) override { inner_->inTransaction(work); }
  void setAside(std::int64_t rowId, std::string_view reason) override {
    inner_->setAside(rowId, reason);
  }
  std::vector<DamagedRow> damagedRows() override { return inner_->damagedRows(); }
  void checkpoint() override { inner_->checkpoint(); }

  std::size_t peak() const { return peak_.load(); }

 private:
  std::shared_ptr<EventDatabase> inner_;
  std::atomic<std::size_t> peak_{0};
};

std::shared_ptr<OrvantaAnalyticsOperationsHandler> makeHandler(
    std::shared_ptr<EventDatabase> database, const std::shared_ptr<detail::KitContext>& context) {
  return OrvantaAnalyticsOperationsHandler::make(
      {std::move(database),
       [context] { return std::make_shared<EventsService>(context->router<EventsEndPoint>()); }});
}

void runBurst(const std::string& folder, int burst, const bench::SandboxProcess& sandbox,
              const std::shared_ptr<detail::KitContext>& context) {
  auto database = std::make_shared<CountingDatabase>(
      std::make_shared<Database<OrvantaEvent>>(folder + "/data/burst.sqlite"));
  auto handler = makeHandler(database, context);
  auto authData = context->authData();
  OrvantaDevice device = authData->device();
  device.deviceToken = "c0ffee";
  authData->setDevice(device);
  const auto& platform = *context->platform();
  auto analytics = OrvantaAnalytics::Impl::make(
      {handler, authData, platform.lifecycle, platform.clock, context->configFile()});

  sandbox.reset();
  std::vector<double> calls;
  calls.reserve(static_cast<std::size_t>(burst));
  const auto start = Clock::now();
  for (int i = 0; i < burst; ++i) {
    const auto before = Clock::now();
    analytics->trackEvent("burst", {{"index", i}});
    calls.push_back(std::chrono::duration<double, std::micro>(Clock::now() - before).count());
  }
  const double tracking = secondsSince(start);
  handler->waitUntilIdle();
  const double drained = secondsSince(start);
  const std::size_t left = database->allRows().size();
  const auto state = sandbox.state();
  const auto posts = state.value("request_count", std::size_t{0});
  const auto received = state.value("event_count", std::size_t{0});
  std::printf(
      "burst: %d back-to-back trackEvent calls against the live sandbox\n"
      "  calls took %.2f s (median %.0f us, slowest %.0f us); every post ended after %.2f s\n"
      "  POSTs %zu = %.2f per tracked event; %zu distinct events received, %zu rows left\n"
      "  peak stored rows %zu\n",
      burst, tracking, median(calls),
      calls.empty() ? 0.0 : *std::max_element(calls.begin(), calls.end()), drained, posts,
      burst > 0 ? static_cast<double>(posts) / burst : 0.0, received, left, database->peak());
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::atoi(argv[1]) : 10000;
  const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
  const int burst = argc > 3 ? std::atoi(argv[3]) : 1000;
  const bool kitOnly = argc > 4 && std::string(argv[4]) == "--kit-only";
  curl_global_init(CURL_GLOBAL_DEFAULT);

  const char* tmp = std::getenv("TMPDIR");
  std::string folder =
      std::string(tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp") + "/drain_bench.XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  writeConfig(folder + "/bundle");
  const auto configWritten = std::chrono::steady_clock::now();
  std::filesystem::create_directories(folder + "/data");
  bench::SandboxProcess sandbox(ORVANTA_SANDBOX_PROGRAM, folder + "/bundle/OrvantaConfig.plist");
  installPlatform(makeLinuxPlatform({.applicationName = "drain_bench",
                                     .dataDirectory = folder + "/data",
                                     .secureStoreDirectory = folder + "/data/keystore",
                                     .preferencesFile = folder + "/config/preferences.json",
                                     .bundleDirectory = folder + "/bundle",
                                     .kitResourcesDirectory = folder + "/bundle"}));
  setServiceBaseURLs(sandbox.baseUrl(), sandbox.baseUrl());
  auto context = std::make_shared<detail::KitContext>(currentPlatform());

  // As in real use, the configuration file was installed well before the drain: a file changed in
  // the last two seconds is read in full at every request (see detail::FileSnapshot), an older one
  // costs a stat. The sandbox's start-up already took part of the wait.
  std::this_thread::sleep_until(configWritten + detail::FileSnapshot::kDefaultSettleTime +
                                std::chrono::milliseconds(100));

  std::printf("draining %d events to orvanta-sandbox (pid %d) on %s, %d rounds\n", count,
              static_cast<int>(sandbox.pid()), sandbox.baseUrl().c_str(), rounds);

  // The loop's requests are built after the first drain, so that the memory figure is the kit's.
  std::vector<port::HttpRequest> requests;
  std::vector<std::string> uuids;
  const auto buildRequests = [&] {
    for (int i = 0; i < count; ++i) {
      const auto event = sampleEvent(i);
      uuids.push_back(event.uuidId);
      auto call = EventsEndPoint::event(event);
      requests.push_back(detail::buildRequest(
          call.httpMethod(), pathURL(context->serviceURLs()->url(EventsEndPoint::service), call),
          call.headers(*context->configFile()), call.task(), detail::kRequestTimeout));
    }
  };

  std::vector<double> kitAllocations, rawAllocations, requiredAllocations;
  std::vector<double> kitRates, rawRates, requiredRates, kitCpu, rawCpu, requiredCpu, sandboxKitCpu,
      sandboxRawCpu, sandboxRequiredCpu;
  double startMegabytes = 0;
  double startAnonymous = 0;
  double peakMegabytes = 0;
  double afterAnonymous = 0;
  bool complete = true;
  for (int round = 0; round < rounds; ++round) {
    const std::string path = folder + "/data/drain-" + std::to_string(round) + ".sqlite";
    if (!fillDatabase(path, count)) {
      std::fprintf(stderr, "could not fill %s\n", path.c_str());
      return 1;
    }
    {
      if (round == 0) {
        startMegabytes = bench::statusMegabytes("VmRSS");
        startAnonymous = bench::statusMegabytes("RssAnon");
        bench::resetPeakResidentSize();
      }
      auto database = std::make_shared<Database<OrvantaEvent>>(path);
      auto handler = makeHandler(database, context);
      sandbox.reset();
      const double cpu = bench::processCpuSeconds();
      const double sandboxCpu = sandbox.cpuSeconds();
      const std::uint64_t allocated = allocations.load();
      const auto start = Clock::now();
      CALLGRIND_ZERO_STATS;
      handler->postEventsFromDatabase();
      handler->waitUntilIdle();
      CALLGRIND_DUMP_STATS_AT("kit drain");
      const double seconds = secondsSince(start);
      kitAllocations.push_back(static_cast<double>(allocations.load() - allocated) / count);
      kitCpu.push_back((bench::processCpuSeconds() - cpu) / count * 1e6);
      sandboxKitCpu.push_back((sandbox.cpuSeconds() - sandboxCpu) / count * 1e6);
      const std::size_t left = database->allRows().size();
      const std::size_t received = sandbox.eventCount();
      kitRates.push_back(count / seconds);
      complete = complete && left == 0 && received == static_cast<std::size_t>(count);
      if (round == 0) {
        peakMegabytes = bench::statusMegabytes("VmHWM");
        afterAnonymous = bench::statusMegabytes("RssAnon");
      }
      std::printf("  kit   round %d: %8.0f events/s (%.2f s, %zu received, %zu rows left)\n",
                  round + 1, count / seconds, seconds, received, left);
    }
    if (kitOnly) {
      continue;
    }
    if (requests.empty()) {
      buildRequests();
    }
    sandbox.reset();
    const double cpu = bench::processCpuSeconds();
    const double sandboxCpu = sandbox.cpuSeconds();
    std::uint64_t allocated = allocations.load();
    const auto start = Clock::now();
    CALLGRIND_ZERO_STATS;
    const std::size_t failures = rawLoop(requests, uuids, 10);
    CALLGRIND_DUMP_STATS_AT("libcurl loop");
    const double seconds = secondsSince(start);
    rawAllocations.push_back(static_cast<double>(allocations.load() - allocated) / count);
    rawCpu.push_back((bench::processCpuSeconds() - cpu) / count * 1e6);
    sandboxRawCpu.push_back((sandbox.cpuSeconds() - sandboxCpu) / count * 1e6);
    rawRates.push_back(count / seconds);
    complete = complete && failures == 0 && sandbox.eventCount() == static_cast<std::size_t>(count);
    std::printf("  curl  round %d: %8.0f events/s (%.2f s, %zu failures)\n", round + 1,
                count / seconds, seconds, failures);

    // The same loop doing the work the kit is required to do besides: deleting each delivered
    // row. Its database holds the loop's own rows (the same uuids), stored as the kit stores them.
    const std::string required = folder + "/data/required-" + std::to_string(round) + ".sqlite";
    if (!fillDatabase(required, count, &uuids)) {
      std::fprintf(stderr, "could not fill %s\n", required.c_str());
      return 1;
    }
    sandbox.reset();
    const double requiredStartCpu = bench::processCpuSeconds();
    const double requiredSandboxCpu = sandbox.cpuSeconds();
    allocated = allocations.load();
    const auto requiredStart = Clock::now();
    std::size_t deletions = 0;
    std::size_t requiredFailures = 0;
    {
      RowDeleter deleter(required);
      CALLGRIND_ZERO_STATS;
      requiredFailures = rawLoop(requests, uuids, 10, &deleter);
      deletions = deleter.finish();  // the loop ends when its last row is deleted
      CALLGRIND_DUMP_STATS_AT("required-work loop");
    }
    const double requiredSeconds = secondsSince(requiredStart);
    requiredAllocations.push_back(static_cast<double>(allocations.load() - allocated) / count);
    requiredCpu.push_back((bench::processCpuSeconds() - requiredStartCpu) / count * 1e6);
    sandboxRequiredCpu.push_back((sandbox.cpuSeconds() - requiredSandboxCpu) / count * 1e6);
    requiredRates.push_back(count / requiredSeconds);
    complete = complete && requiredFailures == 0 && deletions == static_cast<std::size_t>(count);
    std::printf("  curl+delete round %d: %8.0f events/s (%.2f s, %zu failures, %zu deleted)\n",
                round + 1, count / requiredSeconds, requiredSeconds, requiredFailures, deletions);
  }
  const double kit = median(kitRates);
  const double raw = kitOnly ? 0.0 : median(rawRates);
  const double requiredWork = kitOnly ? 0.0 : median(requiredRates);
  std::printf(
      "median: kit %.0f events/s; libcurl multi loop %.0f events/s (kit / loop %.2f, goal >= "
      "0.85); the loop also deleting each delivered row %.0f events/s (kit / required-work loop "
      "%.2f, goal >= 0.95)\n",
      kit, raw, kit / raw, requiredWork, kit / requiredWork);
  std::printf(
      "CPU time per event, median: kit process %.1f us, loop process %.1f us, required-work loop "
      "%.1f us; the sandbox %.1f us while the kit drained, %.1f us for the loop, %.1f us for the "
      "required-work loop\n",
      median(kitCpu), median(rawCpu), median(requiredCpu), median(sandboxKitCpu),
      median(sandboxRawCpu), median(sandboxRequiredCpu));
  // With both sides busy on two cores, events per second follow the CPU time an event costs both
  // processes: a figure that a loaded machine disturbs less than the wall clock.
  const double kitTotal = median(kitCpu) + median(sandboxKitCpu);
  std::printf(
      "CPU-bound estimate (two cores, both processes busy): kit / loop %.2f, kit / required-work "
      "loop %.2f\n",
      (median(rawCpu) + median(sandboxRawCpu)) / kitTotal,
      (median(requiredCpu) + median(sandboxRequiredCpu)) / kitTotal);
  std::printf(
      "allocations per event (malloc, calloc, realloc in this process), median: kit %.1f, loop "
      "%.1f, required-work loop %.1f\n",
      median(kitAllocations), median(rawAllocations), median(requiredAllocations));
  std::printf(
      "kit's peak resident memory during the first drain (VmHWM of this process, the sandbox "
      "runs apart): %.1f MB (goal < 20; %.1f MB before the database was opened, of which %.1f MB "
      "anonymous, %.1f MB anonymous after the drain)\n",
      peakMegabytes, startMegabytes, startAnonymous, afterAnonymous);
  std::printf("every event delivered and every row deleted: %s\n", complete ? "yes" : "NO");

  if (burst > 0) {
    runBurst(folder, burst, sandbox, context);
  }
  std::filesystem::remove_all(folder);
  return complete ? 0 : 1;
}
