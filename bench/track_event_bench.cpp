// What tracking an event costs the caller's thread: the insert and the synchronous fetch of every
// stored row, with 0, 100, 1,000 and 10,000 rows stored, next to the same SQL done directly with
// the SQLite C API on the same disk in the same run (WAL + synchronous=NORMAL, as the kit opens
// it), and the same SQL in SQLite's default rollback journal for reference.
//
//   track_event_bench [folder for the database files, default: a fresh temporary folder]
//                     [only this row count]
//
// Three figures per row count, medians of many calls, microseconds:
//   kit       the event queue's insert + fetch (`addEventToDatabase` + `postEventsFromDatabase`),
//             with posts queued but never answered, so no network work competes
//   track     the whole `trackEvent` (device record read, event built, insert + fetch)
//   raw WAL   INSERT of the same eight values + SELECT * reading every column of every row
//   raw DELETE the same, default journal mode (rollback, synchronous=FULL), measured apart (its
//             disk syncs would slow down the others)
//   kit FULL  the queue's insert + fetch on a database opened with `port::Durability::full`
//             (synchronous=FULL: a disk sync per event), measured apart for the same reason

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "analytics/orvanta_analytics_impl.hpp"
#include "core/file_snapshot.hpp"
#include "entry/kit_context.hpp"
#include "orvanta/linux_platform.hpp"
#include "orvanta/orvanta.hpp"

namespace {

using namespace orvanta;
using Clock = std::chrono::steady_clock;

/// Posts that are never answered: the queue fills its ten places and waits.
class SilentEventsService : public EventsServiceProtocol {
 public:
  void addEvent(const OrvantaEvent&, CompletionHandler<Void>) override {}
};

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0.0 : values[values.size() / 2];
}

double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

OrvantaEvent sampleEvent(int i) {
  return OrvantaEvent("c0ffee", "app", "purchase", 1700000000.0 + i,
                      {{"sku", "A-" + std::to_string(i)}, {"qty", i}, {"gift", i % 2 == 0}});
}

/// The same statements through the C API, values bound as the kit binds them.
class RawTable {
 public:
  RawTable(const std::string& path, bool wal) {
    std::filesystem::remove(path);
    std::filesystem::remove(path + "-wal");
    std::filesystem::remove(path + "-shm");
    sqlite3_open_v2(path.c_str(), &db_,
                    SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    sqlite3_busy_timeout(db_, 5000);
    if (wal) {
      sqlite3_exec(db_, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
      sqlite3_exec(db_, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    }
    TableBuilder table(OrvantaEvent::kTableName);
    OrvantaEvent::create(table);
    sqlite3_exec(db_, table.createStatement().c_str(), nullptr, nullptr, nullptr);
    prepare(
        "INSERT INTO \"orvantaevent\" (\"uuidId\", \"pushId\", \"eventName\", \"createdAt\", "
        "\"additionalStringFields\", \"additionalNumericFields\", \"additionalBoolFields\", "
        "\"additionalDateFields\") VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
        &insert_);
    prepare("SELECT * FROM \"orvantaevent\"", &select_);
    prepare("DELETE FROM \"orvantaevent\" WHERE (\"uuidId\" = ?)", &delete_);
  }
  ~RawTable() {
    sqlite3_finalize(insert_);
    sqlite3_finalize(select_);
    sqlite3_finalize(delete_);
    sqlite3_close_v2(db_);
  }

  /// The row's values, encoded before the clock starts.
  struct Values {
    std::string uuidId, pushId, name, strings, numbers, bools, dates;
    double createdAt = 0;
  };
  static Values valuesOf(const OrvantaEvent& event) {
    auto json = event.toJson();
    return {event.uuidId,
            event.pushId,
            event.name,
            json["additionalStringFields"].dump(),
            json["additionalNumericFields"].dump(),
            json["additionalBoolFields"].dump(),
            json["additionalDateFields"].dump(),
            event.createdAt};
  }

  void insert(const Values& v) {
    bind(1, v.uuidId);
    bind(2, v.pushId);
    bind(3, v.name);
    sqlite3_bind_double(insert_, 4, v.createdAt);
    bind(5, v.strings);
    bind(6, v.numbers);
    bind(7, v.bools);
    bind(8, v.dates);
    sqlite3_step(insert_);
    sqlite3_reset(insert_);
    sqlite3_clear_bindings(insert_);
  }

  /// Reads every column of every row; returns a checksum so that nothing is optimised away.
  std::size_t selectAll() {
    std::size_t sum = 0;
    while (sqlite3_step(select_) == SQLITE_ROW) {
      for (int column = 0; column < 8; ++column) {
        if (column == 3) {
          sum += static_cast<std::size_t>(sqlite3_column_double(select_, column));
        } else {
          const unsigned char* text = sqlite3_column_text(select_, column);
          sum += static_cast<std::size_t>(sqlite3_column_bytes(select_, column)) +
                 (text != nullptr ? text[0] : 0u);
        }
      }
    }
    sqlite3_reset(select_);
    return sum;
  }

  void remove(const std::string& uuidId) {
    sqlite3_bind_text(delete_, 1, uuidId.data(), static_cast<int>(uuidId.size()), SQLITE_STATIC);
    sqlite3_step(delete_);
    sqlite3_reset(delete_);
    sqlite3_clear_bindings(delete_);
  }

  void fill(int count) {
    sqlite3_exec(db_, "BEGIN", nullptr, nullptr, nullptr);
    for (int i = 0; i < count; ++i) {
      insert(valuesOf(sampleEvent(i)));
    }
    sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
  }

 private:
  void prepare(const char* sql, sqlite3_stmt** statement) {
    sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, statement, nullptr);
  }
  void bind(int index, const std::string& text) {
    sqlite3_bind_text(insert_, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
  sqlite3_stmt* delete_ = nullptr;
};

struct Figures {
  double kit = 0, track = 0, rawWal = 0, rawDelete = 0, kitFull = 0;
};

Figures measure(const std::string& folder, int rows, int calls) {
  const std::string kitPath = folder + "/kit-" + std::to_string(rows) + ".sqlite";
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::filesystem::remove(kitPath + suffix);
  }
  RawTable rawWal(folder + "/raw-wal-" + std::to_string(rows) + ".sqlite", true);
  RawTable rawDelete(folder + "/raw-delete-" + std::to_string(rows) + ".sqlite", false);
  rawWal.fill(rows);
  rawDelete.fill(rows);

  auto database = std::make_shared<Database<OrvantaEvent>>(kitPath);
  for (int i = 0; i < rows; ++i) {
    database->add(sampleEvent(i));
  }
  auto silent = std::make_shared<SilentEventsService>();
  auto handler = OrvantaAnalyticsOperationsHandler::make({database, [silent] { return silent; }});
  auto context = std::make_shared<detail::KitContext>(currentPlatform());
  auto authData = context->authData();
  const auto& platform = *context->platform();
  auto analytics = OrvantaAnalytics::Impl::make(
      {handler, authData, platform.lifecycle, platform.clock, context->configFile()});
  handler->postEventsFromDatabase();  // reads the stored rows once, as a launch does
  handler->cancelAllOperations();

  std::vector<double> kit, track, wal, rollback;
  std::size_t checksum = 0;
  for (int call = 0; call < calls; ++call) {
    // The three measurements take turns, so that they share the machine's moods.
    auto event = std::make_shared<const OrvantaEvent>(sampleEvent(rows + call));
    auto start = Clock::now();
    handler->addEventToDatabase(event);
    handler->postEventsFromDatabase();
    kit.push_back(microsecondsSince(start));
    handler->cancelAllOperations();
    database->deleteRow(event->uuidId);

    start = Clock::now();
    analytics->trackEvent("purchase", {{"sku", "A-1"}, {"qty", call}, {"gift", true}});
    track.push_back(microsecondsSince(start));
    handler->cancelAllOperations();
    auto stored = database->allRows();
    database->deleteRow(stored.back()->primaryKey());

    auto values = RawTable::valuesOf(sampleEvent(rows + call));
    start = Clock::now();
    rawWal.insert(values);
    checksum += rawWal.selectAll();
    wal.push_back(microsecondsSince(start));
    rawWal.remove(values.uuidId);
  }
  // The rollback journal syncs the disk at every commit, which slows down whatever writes next:
  // it is measured on its own, after the others, and fewer times.
  for (int call = 0; call < std::min(calls, 200); ++call) {
    auto values = RawTable::valuesOf(sampleEvent(rows + call));
    auto start = Clock::now();
    rawDelete.insert(values);
    checksum += rawDelete.selectAll();
    rollback.push_back(microsecondsSince(start));
    rawDelete.remove(values.uuidId);
  }
  // The kit again with every commit synced to the disk.
  const std::string fullPath = folder + "/kit-full-" + std::to_string(rows) + ".sqlite";
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::filesystem::remove(fullPath + suffix);
  }
  auto durable = std::make_shared<Database<OrvantaEvent>>(
      fullPath, DatabaseOptions{.durability = port::Durability::full});
  durable->inTransaction([&] {
    for (int i = 0; i < rows; ++i) {
      durable->add(sampleEvent(i));
    }
  });
  auto durableHandler =
      OrvantaAnalyticsOperationsHandler::make({durable, [silent] { return silent; }});
  durableHandler->postEventsFromDatabase();
  durableHandler->cancelAllOperations();
  std::vector<double> full;
  for (int call = 0; call < std::min(calls, 200); ++call) {
    auto event = std::make_shared<const OrvantaEvent>(sampleEvent(rows + call));
    auto start = Clock::now();
    durableHandler->addEventToDatabase(event);
    durableHandler->postEventsFromDatabase();
    full.push_back(microsecondsSince(start));
    durableHandler->cancelAllOperations();
    durable->deleteRow(event->uuidId);
  }
  if (checksum == 42) {
    std::printf(" ");
  }
  return {median(kit), median(track), median(wal), median(rollback), median(full)};
}

}  // namespace

int main(int argc, char** argv) {
  std::string folder;
  if (argc > 1 && argv[1][0] != '\0') {
    folder = argv[1];
  } else {
    const char* tmp = std::getenv("TMPDIR");
    std::string base = tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp";
    std::string pattern = base + "/track_event_bench.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("mkdtemp");
      return 1;
    }
    folder = pattern;
  }
  // The host's configuration file, read for the application identifier of every event.
  std::filesystem::create_directories(folder + "/bundle");
  std::ofstream(folder + "/bundle/OrvantaConfig.plist")
      << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
      << "<key>AppId</key><string>app</string><key>Token</key><string>t</string>"
      << "<key>Secret</key><string>s</string><key>EventsToken</key><string>e</string>"
      << "</dict></plist>\n";
  installPlatform(makeLinuxPlatform({.applicationName = "track_event_bench",
                                     .dataDirectory = folder + "/data",
                                     .secureStoreDirectory = folder + "/data/keystore",
                                     .preferencesFile = folder + "/config/preferences.json",
                                     .bundleDirectory = folder + "/bundle",
                                     .kitResourcesDirectory = folder + "/bundle"}));

  {
    // The device record with its push token, stored when the token arrived.
    auto context = std::make_shared<detail::KitContext>(currentPlatform());
    OrvantaDevice device = context->authData()->device();
    device.deviceToken = "c0ffee";
    context->authData()->setDevice(device);
  }
  // As in real use, the configuration file and the device record were written well before events
  // are tracked: files changed in the last two seconds are read in full on every access (see
  // detail::FileSnapshot), older ones cost a stat.
  std::this_thread::sleep_for(detail::FileSnapshot::kDefaultSettleTime +
                              std::chrono::milliseconds(100));

  std::printf("caller-side cost per tracked event, median microseconds (folder %s)\n",
              folder.c_str());
  std::printf("%8s %10s %10s %10s %12s %10s %12s %10s\n", "rows", "kit", "raw WAL", "kit/raw",
              "raw DELETE", "track", "track/raw", "kit FULL");
  const int only = argc > 2 ? std::atoi(argv[2]) : -1;
  for (auto [rows, calls] : {std::pair{0, 2000}, {100, 1000}, {1000, 400}, {10000, 100}}) {
    if (only >= 0 && rows != only) {
      continue;
    }
    Figures f = measure(folder, rows, calls);
    std::printf("%8d %10.1f %10.1f %10.2f %12.1f %10.1f %12.2f %10.1f\n", rows, f.kit, f.rawWal,
                f.kit / f.rawWal, f.rawDelete, f.track, f.track / f.rawWal, f.kitFull);
  }
  if (argc <= 1 || argv[1][0] == '\0') {
    std::filesystem::remove_all(folder);
  }
  return 0;
}
