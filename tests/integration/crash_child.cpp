// The application the crash test kills. It runs the kit on a platform rooted in a folder the test
// gives it, against the test's sandbox:
//
//   crash_child track <root> <base-url> <prefix>  tracks "<prefix>-0", "<prefix>-1", ... and writes
//                                                 each name and a newline to descriptor 3 once
//                                                 `trackEvent` has returned, until killed
//   crash_child flush <root> <base-url>           opens the same database, checks it, posts until
//                                                 it is empty; prints the rows it found
//   crash_child count <root>                      prints the number of stored rows
//
// Exit status: 0 success, 2 usage, 3 database could not be opened, 4 integrity check failed,
// 5 rows could not be read, 6 rows left after flushing.

#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "analytics/orvanta_analytics_impl.hpp"
#include "entry/kit_context.hpp"
#include "entry/platform_installation.hpp"
#include "networking/auth_data.hpp"
#include "orvanta/linux_platform.hpp"
#include "orvanta/orvanta.hpp"
#include "orvanta/service_urls.hpp"

namespace {

using namespace orvanta;

void installPlatformAt(const std::string& root) {
  installPlatform(makeLinuxPlatform({.applicationName = "crash-child",
                                     .dataDirectory = root + "/data",
                                     .secureStoreDirectory = root + "/data/keystore",
                                     .preferencesFile = root + "/config/preferences.json",
                                     .bundleDirectory = root + "/bundle",
                                     .kitResourcesDirectory = root + "/bundle"}));
}

bool writeAll(int fd, const std::string& text) {
  const char* data = text.data();
  std::size_t left = text.size();
  while (left > 0) {
    ssize_t written = ::write(fd, data, left);
    if (written <= 0) {
      return false;
    }
    data += written;
    left -= static_cast<std::size_t>(written);
  }
  return true;
}

std::string integrity(const std::string& path) {
  sqlite3* db = nullptr;
  std::string result = "cannot open";
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, 5000);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      const unsigned char* text = sqlite3_column_text(statement, 0);
      result = text != nullptr ? reinterpret_cast<const char*>(text) : "";
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close_v2(db);
  return result;
}

int track(const std::string& prefix) {
  auto authData = detail::processContext()->authData();
  OrvantaDevice device = authData->device();
  if (!device.deviceToken) {
    device.deviceToken = "c0ffee";
    authData->setDevice(device);
  }
  OrvantaAnalytics& analytics = Orvanta::analytics();
  for (int i = 0; i < 1'000'000; ++i) {
    std::string name = prefix + "-" + std::to_string(i);
    analytics.trackEvent(name, {{"index", i}, {"child", true}});
    if (!writeAll(3, name + "\n")) {
      return 0;  // the test stopped listening
    }
  }
  return 0;
}

int flush(const std::string& root) {
  auto context = std::make_shared<detail::KitContext>(currentPlatform());
  auto database = context->eventStore();
  if (!database) {
    return 3;
  }
  if (std::string check = integrity(root + "/data/Orvanta.sqlite"); check != "ok") {
    std::fprintf(stderr, "integrity check: %s\n", check.c_str());
    return 4;
  }
  std::size_t found = 0;
  try {
    found = database->allRows().size();
  } catch (const Error& error) {
    std::fprintf(stderr, "%s\n", error.localizedDescription().c_str());
    return 5;
  }
  auto handler = OrvantaAnalyticsOperationsHandler::make(
      {database,
       [context] { return std::make_shared<EventsService>(context->router<EventsEndPoint>()); }});
  for (int round = 0; round < 100; ++round) {
    handler->postEventsFromDatabase();
    handler->waitUntilIdle();
    try {
      if (database->allRows().empty()) {
        std::printf("%zu\n", found);
        return 0;
      }
    } catch (const Error& error) {
      std::fprintf(stderr, "%s\n", error.localizedDescription().c_str());
      return 5;
    }
  }
  return 6;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    return 2;
  }
  std::string mode = argv[1];
  std::string root = argv[2];
  installPlatformAt(root);
  if (mode == "count") {
    auto database = openEventDatabase(*currentPlatform()->fileLocations);
    if (!database) {
      return 3;
    }
    try {
      std::printf("%zu\n", database->allRows().size());
    } catch (const Error&) {
      return 5;
    }
    return 0;
  }
  if (argc < 4 || !setServiceBaseURLs(argv[3], argv[3])) {
    return 2;
  }
  if (mode == "track" && argc >= 5) {
    return track(argv[4]);
  }
  if (mode == "flush") {
    return flush(root);
  }
  return 2;
}
