#include "storage/database.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "analytics/event_database.hpp"
#include "storage/documents_directory.hpp"
#include "storage/wal_check.hpp"
#include "testing/platform_test.hpp"
#include "testing/storage_faults.hpp"

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

TEST_F(DatabaseTest, OtherCreationFailuresAreLoggedOnceAndTriedAgainByEachCall) {
  enableLogging();
  std::filesystem::create_directories(testPlatform().dataDirectory());
  RawConnection raw(path());
  raw.exec("CREATE TABLE other (a TEXT); CREATE INDEX orvantaevent ON other (a);");
  auto db = open();
  // Each call tries the creation again and fails with its error, said once.
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      add(*db, makeEvent("a"));
      FAIL() << "insert into a missing table succeeded";
    } catch (const Error& error) {
      EXPECT_EQ(error.domain(), Error::Domain::database);
      EXPECT_EQ(error.localizedDescription(),
                "there is already an index named orvantaevent (code: 1)");
    }
  }
  auto lines = logSink().linesContaining("Unable to create database because: ");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], HasSubstr("there is already an index named orvantaevent (code: 1)"));
  // Once what stood in the way is gone, the next call makes the table.
  raw.exec("DROP TABLE other");
  add(*db, makeEvent("a"));
  EXPECT_EQ(names(db->allRows()), std::vector<std::string>{"a"});
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

// The process ends without closing the file, so the next launch recovers whatever log is left: a
// checkpoint leaves one page of it. Another connection's reader is not waited for: the log stays
// whole until a later checkpoint finds no reader.
TEST_F(DatabaseTest, ACheckpointLeavesALogOfOnePageUnlessAnotherConnectionReadsIt) {
  auto db = open();
  const std::string padding(500, 'p');
  for (int i = 0; i < 100; ++i) {
    add(*db, makeEvent("e" + std::to_string(i), {{"pad", padding}}));
  }
  const std::string wal = path() + "-wal";
  const auto logged = std::filesystem::file_size(wal);
  ASSERT_GT(logged, 100u * 500u);

  RawConnection reader(path());
  reader.exec("BEGIN; SELECT count(*) FROM orvantaevent;");
  db->checkpoint();
  EXPECT_GE(std::filesystem::file_size(wal), logged);
  reader.exec("COMMIT");

  db->checkpoint();
  const std::uintmax_t oneFrame = 32 + 24 + 4096;
  EXPECT_LE(std::filesystem::file_size(wal), oneFrame);
  add(*db, makeEvent("after"));
  EXPECT_EQ(open()->allRows().size(), 101u);
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
  Database<OrvantaEvent> db(path(), {.maxCachedBytes = bound});
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

// A file that can't be opened is said once, with its path and the reason; every call tries to
// open it afresh, and fails with that reason until it can. So is a table that can't be made (a
// fresh installation on a full disk): made by the first call after the disk has room.
TEST_F(DatabaseTest, OpeningAndCreationThatFailedAreTriedAgainByEachCall) {
  enableLogging();
  testing::FaultyDisk disk;
  const std::string folder = testPlatform().root() + "/missing/folder";
  auto expectFailure = [](Database<OrvantaEvent>& db, int code) {
    for (int attempt = 0; attempt < 2; ++attempt) {
      try {
        db.add(makeEvent("refused"));
        ADD_FAILURE() << "stored";
      } catch (const Error& error) {
        EXPECT_EQ(error.domain(), Error::Domain::database);
        EXPECT_EQ(error.code(), code);
      }
    }
  };
  {
    Database<OrvantaEvent> db(folder + "/Orvanta.sqlite");
    expectFailure(db, SQLITE_CANTOPEN);
    std::filesystem::create_directories(folder);
    db.add(makeEvent("later"));
    EXPECT_EQ(names(db.allRows()), std::vector<std::string>{"later"});
  }
  disk.setFault(testing::FaultyDisk::Fault::cannotOpen, EACCES);
  {
    Database<OrvantaEvent> db(folder + "/Orvanta.sqlite");
    expectFailure(db, SQLITE_CANTOPEN);
    disk.setFault(testing::FaultyDisk::Fault::none);
    EXPECT_EQ(names(db.allRows()), std::vector<std::string>{"later"});
  }
  auto lines = logSink().linesContaining("Unable to open database " + folder + "/Orvanta.sqlite: ");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], HasSubstr("unable to open database file: No such file or directory"));
  EXPECT_THAT(lines[1], HasSubstr("unable to open database file: Permission denied (code: 14)"));

  disk.setFault(testing::FaultyDisk::Fault::full);
  {
    Database<OrvantaEvent> db(folder + "/Fresh.sqlite");
    expectFailure(db, SQLITE_FULL);
    disk.setFault(testing::FaultyDisk::Fault::none);
    db.add(makeEvent("stored"));
    EXPECT_EQ(names(db.allRows()), std::vector<std::string>{"stored"});
  }
  EXPECT_EQ(
      logSink()
          .linesContaining("Unable to create database because: database or disk is full (code: 13)")
          .size(),
      1u);
}

// A file found damaged, when it is opened or by a statement later, is kept aside under a
// time-stamped name (the latest three), a new one is made with the rows that still read, and one
// error line names the kept file.
TEST_F(DatabaseTest, ADamagedFileIsKeptAsideAndMadeAnewWithTheRowsThatStillRead) {
  enableLogging();
  std::filesystem::create_directories(testPlatform().dataDirectory());
  auto keptFiles = [&] {
    std::vector<std::string> kept;
    for (const auto& entry : std::filesystem::directory_iterator(testPlatform().dataDirectory())) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with("Orvanta.sqlite.damaged-") && !name.ends_with("-wal") &&
          !name.ends_with("-shm")) {
        kept.push_back(entry.path().string());
      }
    }
    std::sort(kept.begin(), kept.end());
    return kept;
  };

  // Not a database at all.
  testing::writeFile(path(), std::string(4096, 'x'));
  auto db = open();
  ASSERT_EQ(keptFiles().size(), 1u);
  EXPECT_EQ(testing::readFile(keptFiles()[0]), std::string(4096, 'x'));
  EXPECT_EQ(logSink()
                .linesContaining("The database " + path() +
                                 " was damaged (file is not a database (code: 26)): kept as " +
                                 keptFiles()[0] +
                                 " and made anew, with the 0 rows that could still be read")
                .size(),
            1u);

  // Damaged under an open connection: the statement that meets it fails, the next call opens the
  // file again and copies what still reads.
  const std::string padding(200, 'p');
  db->inTransaction([&] {
    for (int i = 0; i < 3000; ++i) {
      db->add(makeEvent("e" + std::to_string(i), {{"pad", padding}}));
    }
  });
  db.reset();
  db = open();  // the rows are in the file itself now, the log empty
  RawConnection(path()).exec(
      "INSERT INTO orvantaevent VALUES ('late', 'p', 'late', 1.0, '{}', '{}', '{}', '{}')");
  // Whole pages gone (the page size is at offset 16 of the file), so that the scan meets pages
  // SQLite sees as missing.
  const std::string header = testing::readFile(path()).substr(16, 2);
  const std::uintmax_t page =
      static_cast<unsigned char>(header[0]) * 256u + static_cast<unsigned char>(header[1]);
  std::filesystem::resize_file(path(), std::filesystem::file_size(path()) / 2 / page * page);
  try {
    db->allRows();
    FAIL() << "a damaged file was read whole";
  } catch (const Error& error) {
    EXPECT_EQ(error.localizedDescription(), "database disk image is malformed (code: 11)");
  }
  const auto rows = db->allRows();
  ASSERT_EQ(keptFiles().size(), 2u);
  EXPECT_GT(rows.size(), 100u);
  EXPECT_LT(rows.size(), 3000u);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i]->record().name, "e" + std::to_string(i));
  }
  EXPECT_EQ(logSink()
                .linesContaining("and made anew, with the " + std::to_string(rows.size()) +
                                 " rows that could still be read")
                .size(),
            1u);

  // Only the latest three are kept.
  db.reset();
  testing::writeFile(path(), std::string(4096, 'y'));
  db = open();
  db.reset();
  testing::writeFile(path(), std::string(4096, 'z'));
  db = open();
  const auto kept = keptFiles();
  ASSERT_EQ(kept.size(), 3u);
  EXPECT_EQ(testing::readFile(kept[2]), std::string(4096, 'z'));
  db->add(makeEvent("fine"));
  EXPECT_EQ(names(db->allRows()), std::vector<std::string>{"fine"});
}

// SQLite replays a write-ahead log up to its first damaged frame and drops the rest silently; the
// kit says so, once, when it opens the file.
TEST_F(DatabaseTest, AGarbledWriteAheadLogIsSaidInAWarning) {
  enableLogging();
  std::filesystem::create_directories(testPlatform().dataDirectory());
  std::string file;
  std::string wal;
  {
    RawConnection raw(path());
    raw.exec("PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;");
    open();
    for (int i = 0; i < 4; ++i) {
      raw.exec("INSERT INTO orvantaevent VALUES ('k" + std::to_string(i) +
               "', 'p', 'n', 1.0, "
               "'{}', '{}', '{}', '{}')");
    }
    file = testing::readFile(path());  // as a killed process leaves them
    wal = testing::readFile(path() + "-wal");
  }
  auto word = [](const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
  };
  const std::size_t frameBytes = 24 + word(wal, 8);
  std::vector<std::size_t> commits;  // frames of this generation of the log that end a commit
  for (std::size_t frame = 0; 32 + (frame + 1) * frameBytes <= wal.size(); ++frame) {
    const std::size_t at = 32 + frame * frameBytes;
    if (word(wal, at + 8) == word(wal, 16) && word(wal, at + 12) == word(wal, 20) &&
        word(wal, at + 4) != 0) {
      commits.push_back(frame);
    }
  }
  ASSERT_GE(commits.size(), 4u);
  // The first frame of the first insert: damaged, it drops the four inserts.
  const std::size_t damaged = commits.size() == 4 ? 0 : commits[commits.size() - 5] + 1;
  const std::size_t dropped = static_cast<std::size_t>(
      std::count_if(commits.begin(), commits.end(), [&](std::size_t c) { return c > damaged; }));
  std::string badFrame = wal;
  badFrame[32 + damaged * frameBytes + 100] ^= 1;
  std::string badHeader = wal;
  badHeader[12] ^= 1;

  EXPECT_EQ(detail::walDamage(wal), std::nullopt);
  EXPECT_EQ(detail::walDamage(wal.substr(0, wal.size() - 100)), std::nullopt);  // a torn tail
  EXPECT_EQ(detail::walDamage(badHeader), "its header is damaged: the whole log (" +
                                              std::to_string(wal.size()) + " bytes) is dropped");
  const std::string frameDamage = "frame " + std::to_string(damaged + 1) +
                                  " is damaged: " + std::to_string(dropped) +
                                  " transactions committed after it are dropped";
  EXPECT_EQ(detail::walDamage(badFrame), frameDamage);

  // SQLite agrees: the whole log replays all four rows; the damaged one none of them.
  for (const std::string* log : {&wal, &badFrame}) {
    testing::writeFile(path(), file);
    testing::writeFile(path() + "-wal", *log);
    std::filesystem::remove(path() + "-shm");
    EXPECT_EQ(open()->allRows().size(), log == &wal ? 4u : 0u);
  }
  EXPECT_EQ(logSink().linesContaining("The write-ahead log").size(), 1u);
  EXPECT_EQ(logSink()
                .linesContaining("The write-ahead log " + path() + "-wal is damaged (" +
                                 frameDamage + "): the database is opened as it was before it")
                .size(),
            1u);
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
