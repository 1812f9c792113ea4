#include "storage/database.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "analytics/event_database.hpp"
#include "storage/documents_directory.hpp"
#include "testing/platform_test.hpp"

namespace orvanta {
namespace {

using ::testing::HasSubstr;

/// A second connection to the same file, as another process (or a tool) would have it.
class RawConnection {
 public:
  explicit RawConnection(const std::string& path) {
    EXPECT_EQ(
        sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr),
        SQLITE_OK);
    sqlite3_busy_timeout(db_, 5000);
  }
  ~RawConnection() { sqlite3_close_v2(db_); }

  void exec(const std::string& sql) {
    char* message = nullptr;
    EXPECT_EQ(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK)
        << (message ? message : "");
    sqlite3_free(message);
  }

  std::string text(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    std::string result;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      const unsigned char* value = sqlite3_column_text(statement, 0);
      result = value ? reinterpret_cast<const char*>(value) : "";
    }
    sqlite3_finalize(statement);
    return result;
  }

 private:
  sqlite3* db_ = nullptr;
};

mode_t modeOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

OrvantaEvent makeEvent(const std::string& name, const ValueMap& parameters = {}) {
  return OrvantaEvent("token", "app", name, 1700000000.25, parameters);
}

std::vector<std::string> names(const std::vector<EventDatabase::Row>& rows) {
  std::vector<std::string> result;
  for (const auto& row : rows) {
    result.push_back(row->record().name);
  }
  return result;
}

class DatabaseTest : public testing::PlatformTest {
 protected:
  std::string path() { return testPlatform().dataDirectory() + "/Orvanta.sqlite"; }
  std::unique_ptr<Database<OrvantaEvent>> open() {
    std::filesystem::create_directories(testPlatform().dataDirectory());
    return std::make_unique<Database<OrvantaEvent>>(path());
  }
  void add(Database<OrvantaEvent>& db, const OrvantaEvent& event) { db.add(event); }
};

TEST_F(DatabaseTest, CreatesTheTableOnceAndReopensSilently) {
  enableLogging();
  open();
  open();
  RawConnection raw(path());
  EXPECT_EQ(raw.text("SELECT sql FROM sqlite_master WHERE name = 'orvantaevent'"),
            "CREATE TABLE \"orvantaevent\" (\"uuidId\" TEXT PRIMARY KEY NOT NULL, \"pushId\" TEXT "
            "NOT NULL, \"eventName\" TEXT NOT NULL, \"createdAt\" REAL NOT NULL, "
            "\"additionalStringFields\" BLOB NOT NULL, \"additionalNumericFields\" BLOB NOT NULL, "
            "\"additionalBoolFields\" BLOB NOT NULL, \"additionalDateFields\" BLOB NOT NULL)");
  EXPECT_EQ(raw.text("PRAGMA journal_mode"), "wal");
  EXPECT_TRUE(logSink().linesContaining("Unable to create database").empty());
}

TEST_F(DatabaseTest, OtherCreationFailuresAreLoggedAndTheDatabaseStillReturned) {
  enableLogging();
  std::filesystem::create_directories(testPlatform().dataDirectory());
  {
    RawConnection raw(path());
    raw.exec("CREATE TABLE other (a TEXT); CREATE INDEX orvantaevent ON other (a);");
  }
  auto db = open();
  auto lines = logSink().linesContaining("Unable to create database because: ");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], HasSubstr("there is already an index named orvantaevent (code: 1)"));
  // Its statements fail, with SQLite's description.
  try {
    add(*db, makeEvent("a"));
    FAIL() << "insert into a missing table succeeded";
  } catch (const Error& error) {
    EXPECT_EQ(error.domain(), Error::Domain::database);
    EXPECT_EQ(error.localizedDescription(), "no such table: orvantaevent (code: 1)");
  }
}

TEST_F(DatabaseTest, KeepsRowsInInsertionOrderAndDeletesOnlyTheOneNamed) {
  auto db = open();
  auto sale = makeEvent("sale", {{"sku", "A-1"},
                                 {"qty", 2},
                                 {"gift", false},
                                 {"when", Date::sinceReferenceDate(722390400.5)}});
  add(*db, makeEvent("first"));
  add(*db, sale);
  add(*db, makeEvent("third"));

  auto rows = db->allRows();
  EXPECT_THAT(names(rows), ::testing::ElementsAre("first", "sale", "third"));
  EXPECT_EQ(rows[1]->record(), sale);

  // Stored as written: scalars in their columns, maps as JSON text.
  RawConnection raw(path());
  EXPECT_EQ(raw.text("SELECT additionalDateFields FROM orvantaevent WHERE eventName = 'sale'"),
            "{\"when\":722390400.5}");
  EXPECT_EQ(raw.text("SELECT typeof(createdAt) FROM orvantaevent LIMIT 1"), "real");

  db->deleteRow(sale.uuidId);
  db->deleteRow(sale.uuidId);  // gone already: not an error
  db->deleteRow(makeEvent("never stored").uuidId);
  EXPECT_THAT(names(db->allRows()), ::testing::ElementsAre("first", "third"));

  // A fresh connection decodes the same rows from the file.
  auto reopened = open();
  EXPECT_EQ(reopened->allRows()[1]->record(), rows[2]->record());

  EXPECT_THROW(db->deleteRows("no such column", "x"), Error);
  db->deleteRows("eventName", "first");
  EXPECT_THAT(names(db->allRows()), ::testing::ElementsAre("third"));
}

TEST_F(DatabaseTest, DuplicateIdentifierIsAConstraintFailure) {
  auto db = open();
  auto event = makeEvent("once");
  add(*db, event);
  try {
    add(*db, event);
    FAIL() << "duplicate accepted";
  } catch (const Error& error) {
    EXPECT_EQ(error.localizedDescription(),
              "UNIQUE constraint failed: orvantaevent.uuidId (code: 19)");
  }
  EXPECT_EQ(db->allRows().size(), 1u);
}

TEST_F(DatabaseTest, CorruptMapColumnFailsEveryReadUntilTheRowIsGone) {
  auto db = open();
  auto good = makeEvent("good");
  auto bad = makeEvent("bad");
  add(*db, good);
  add(*db, bad);
  ASSERT_EQ(db->allRows().size(), 2u);  // both now read and kept in memory

  // Another connection damages a row this connection has already read.
  RawConnection raw(path());
  raw.exec("UPDATE orvantaevent SET additionalBoolFields = 'not json' WHERE eventName = 'bad'");
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      db->allRows();
      FAIL() << "a corrupt row was read";
    } catch (const Error& error) {
      EXPECT_EQ(error.domain(), Error::Domain::decoding);
    }
  }
  // So does JSON of the wrong shape.
  raw.exec(
      "INSERT INTO orvantaevent VALUES ('X', 'p', 'n', 1.0, '{}', '{\"n\":\"text\"}', '{}', '{}')");
  EXPECT_THROW(db->allRows(), Error);

  db->deleteRow(bad.uuidId);
  db->deleteRows("uuidId", "X");
  EXPECT_THAT(names(db->allRows()), ::testing::ElementsAre("good"));
}

TEST_F(DatabaseTest, SeesRowsWrittenAndDeletedThroughAnotherConnection) {
  auto first = open();
  auto second = open();
  add(*first, makeEvent("one"));
  EXPECT_THAT(names(second->allRows()), ::testing::ElementsAre("one"));
  add(*second, makeEvent("two"));
  auto rows = first->allRows();
  EXPECT_THAT(names(rows), ::testing::ElementsAre("one", "two"));
  second->deleteRow(rows[0]->primaryKey());
  // Same row id reused by a new row after the table emptied: never served from memory.
  second->deleteRow(rows[1]->primaryKey());
  add(*first, makeEvent("three"));
  EXPECT_THAT(names(first->allRows()), ::testing::ElementsAre("three"));
  EXPECT_THAT(names(second->allRows()), ::testing::ElementsAre("three"));
}

// Rows written by something else than this version of the kit: text that is not UTF-8, maps in
// another JSON layout. Each reads back, repaired, and can be written (posted) again.
TEST_F(DatabaseTest, RowsWrittenElsewhereReadBackAndStayWritable) {
  auto db = open();
  RawConnection raw(path());
  raw.exec(
      "INSERT INTO orvantaevent VALUES ('A', 'tok\xFF|||app', 'caf\xC3', 1700000000, "
      "'{ \"k\xFF\" : \"\\u0041\xC0\" }', '{\"n\":2.0}', '{}', '{\"d\":1e3}')");
  auto rows = db->allRows();
  ASSERT_EQ(rows.size(), 1u);
  const OrvantaEvent event = rows[0]->record();
  const std::string r = "\xEF\xBF\xBD";
  EXPECT_EQ(event.pushId, "tok" + r + "|||app");
  EXPECT_EQ(event.name, "caf" + r);
  EXPECT_EQ(event.createdAt, 1700000000.0);
  EXPECT_EQ(event.additionalStringFields, (std::map<std::string, std::string>{{"k" + r, "A" + r}}));
  EXPECT_EQ(event.additionalNumericFields, (std::map<std::string, std::int64_t>{{"n", 2}}));
  EXPECT_EQ(event.additionalDateFields.at("d"), Date::sinceReferenceDate(1000.0));
  std::string body;
  EXPECT_NO_THROW(event.writeBody(body));
}

// The rows kept in memory are bounded: a long offline period does not grow the kit without
// limit. Rows beyond the bound are read from the file at each call, the same rows all the same.
TEST_F(DatabaseTest, TheRowsKeptInMemoryAreBounded) {
  std::filesystem::create_directories(testPlatform().dataDirectory());
  const std::size_t bound = 8 * 1024;
  Database<OrvantaEvent> db(path(), bound);
  std::vector<std::string> expected;
  for (int i = 0; i < 200; ++i) {
    auto event = makeEvent("e" + std::to_string(i), {{"i", i}});
    expected.push_back(event.name);
    db.add(event);
    EXPECT_LE(db.cachedBytes(), bound);
  }
  EXPECT_GT(db.cachedRows(), 0u);
  EXPECT_LT(db.cachedRows(), 200u);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(names(db.allRows()), expected);
    EXPECT_LE(db.cachedBytes(), bound);
  }
  // The oldest rows are the ones kept; deleting them makes room for the next ones.
  for (int i = 0; i < 50; ++i) {
    db.deleteRows("eventName", "e" + std::to_string(i));
  }
  expected.erase(expected.begin(), expected.begin() + 50);
  EXPECT_EQ(names(db.allRows()), expected);
  EXPECT_GT(db.cachedRows(), 0u);
  EXPECT_LE(db.cachedBytes(), bound);
  EXPECT_LE(Database<OrvantaEvent>::kDefaultMaxCachedBytes, std::size_t{8} << 20);
}

TEST_F(DatabaseTest, OpeningFailsWhereNoFileCanBeMade) {
  try {
    Database<OrvantaEvent> db(testPlatform().root() + "/missing/folder/Orvanta.sqlite");
    FAIL() << "opened";
  } catch (const Error& error) {
    EXPECT_EQ(error.domain(), Error::Domain::database);
    EXPECT_EQ(error.code(), SQLITE_CANTOPEN);
  }
}

class NoDocuments : public port::FileLocations {
 public:
  port::DirectoryLookup documentsDirectory() override { return {std::nullopt, "no home"}; }
  std::string temporaryDirectory() override { return "/tmp"; }
};

// Every stored event carries the push token: the data folder, the database and its journal
// files are readable by their owner only, whatever the process's umask.
TEST_F(DatabaseTest, TheEventDatabaseIsPrivateToItsOwner) {
  const mode_t previous = ::umask(022);
  auto db = openEventDatabase(*platform()->fileLocations);
  ASSERT_NE(db, nullptr);
  db->add(makeEvent("private"));
  EXPECT_EQ(modeOf(testPlatform().dataDirectory()), 0700u);
  for (const char* suffix : {"", "-wal", "-shm"}) {
    EXPECT_EQ(modeOf(path() + suffix), 0600u) << suffix;
  }
  db.reset();

  // A database left readable by an earlier version is narrowed when it is opened.
  ::chmod(path().c_str(), 0644);
  ::chmod((path() + "-wal").c_str(), 0644);
  auto reopened = openEventDatabase(*platform()->fileLocations);
  ASSERT_NE(reopened, nullptr);
  EXPECT_EQ(modeOf(path()), 0600u);
  EXPECT_EQ(modeOf(path() + "-wal"), 0600u);
  EXPECT_EQ(names(reopened->allRows()), std::vector<std::string>{"private"});
  ::umask(previous);
}

TEST_F(DatabaseTest, WithoutDocumentsDirectoryTheKitUsesATemporaryDatabase) {
  enableLogging();
  auto db = openEventDatabase(*platform()->fileLocations);
  ASSERT_NE(db, nullptr);
  EXPECT_TRUE(std::filesystem::exists(path()));  // the data folder was created for it

  NoDocuments noDocuments;
  EXPECT_EQ(urlForFileInDocumentsDirectory(noDocuments, "Orvanta.sqlite"), std::nullopt);
  auto temporary = openEventDatabase(noDocuments);
  ASSERT_NE(temporary, nullptr);
  temporary->add(makeEvent("kept in memory"));
  EXPECT_EQ(temporary->allRows().size(), 1u);
  EXPECT_EQ(
      logSink()
          .linesContaining("Unable to create URL for file in documents folders, error: no home")
          .size(),
      2u);
}

}  // namespace
}  // namespace orvanta
