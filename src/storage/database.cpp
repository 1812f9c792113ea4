#include "storage/database.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "core/logger.hpp"
#include "core/os.hpp"
#include "core/utf8.hpp"
#include "storage/wal_check.hpp"

namespace orvanta::detail {
namespace {

/// How long a statement waits for another connection's lock before it fails as busy.
constexpr int kBusyTimeoutMilliseconds = 5000;

Error sqliteError(sqlite3* connection, int code) {
  const char* message = connection != nullptr ? sqlite3_errmsg(connection) : sqlite3_errstr(code);
  return Error(Error::Domain::database, code, message != nullptr ? message : "unknown error");
}

struct ConnectionCloser {
  void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
};
using ConnectionHandle = std::unique_ptr<sqlite3, ConnectionCloser>;

/// A prepared statement, kept for the life of the connection and reset after each use.
class Statement {
 public:
  Statement(sqlite3* connection, const std::string& sql) : connection_(connection) {
    int code = sqlite3_prepare_v3(connection, sql.c_str(), static_cast<int>(sql.size() + 1),
                                  SQLITE_PREPARE_PERSISTENT, &statement_, nullptr);
    if (code != SQLITE_OK) {
      throw sqliteError(connection, code);
    }
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  sqlite3_stmt* get() const { return statement_; }

  /// SQLITE_ROW or SQLITE_DONE; any other outcome throws.
  int step() {
    int code = sqlite3_step(statement_);
    if (code != SQLITE_ROW && code != SQLITE_DONE) {
      throw sqliteError(connection_, code);
    }
    return code;
  }

  void reset() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }

  void bindText(int index, std::string_view text) {
    check(sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC));
  }
  void bindInteger(int index, std::int64_t value) {
    check(sqlite3_bind_int64(statement_, index, value));
  }
  /// Column `column` of `row` as parameter `index`; the row must outlive the statement's use.
  void bindValue(int index, const RowValues& row, std::size_t column) {
    switch (row.kind(column)) {
      case RowValues::Kind::null:
        check(sqlite3_bind_null(statement_, index));
        return;
      case RowValues::Kind::integer:
        check(sqlite3_bind_int64(statement_, index, row.integer(column)));
        return;
      case RowValues::Kind::real:
        check(sqlite3_bind_double(statement_, index, row.real(column)));
        return;
      case RowValues::Kind::text:
        bindText(index, row.text(column));
        return;
    }
  }

 private:
  void check(int code) const {
    if (code != SQLITE_OK) {
      throw sqliteError(connection_, code);
    }
  }

  sqlite3* connection_;
  sqlite3_stmt* statement_ = nullptr;
};

/// Resets a statement on every way out of a scope.
class ResetGuard {
 public:
  explicit ResetGuard(Statement& statement) : statement_(statement) {}
  ~ResetGuard() { statement_.reset(); }
  ResetGuard(const ResetGuard&) = delete;
  ResetGuard& operator=(const ResetGuard&) = delete;

 private:
  Statement& statement_;
};

/// Result codes that tell of a damaged file rather than of a failed operation.
bool isDamage(int code) {
  const int primary = code & 0xFF;
  return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

/// The time now in UTC, as "20250102T030405Z".
std::string utcStamp() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
  return text;
}

/// Renames the database at `path` (and its log) "<path>.damaged-<UTC time>", keeping the latest
/// `SqliteTable::kKeptDamagedFiles` of them; the new name. Throws a system error when the file
/// can't be renamed.
std::string keepDamagedFile(const std::string& path) {
  namespace fs = std::filesystem;
  const std::string prefix = fs::path(path).filename().string() + ".damaged-";
  const std::string stamped = path + ".damaged-" + utcStamp();
  std::string kept = stamped;
  std::error_code ignored;
  for (int n = 2; fs::exists(kept, ignored); ++n) {
    kept = stamped + "-" + std::to_string(n);
  }
  std::error_code error;
  fs::rename(path, kept, error);
  if (error) {
    throw Error(Error::Domain::system, error.value(),
                "could not rename the damaged file " + path + ": " + error.message());
  }
  for (const char* suffix : {"-wal", "-journal"}) {
    if (fs::exists(path + suffix, ignored)) {
      fs::rename(path + suffix, kept + suffix, ignored);
    }
  }
  fs::remove(path + "-shm", ignored);

  std::vector<std::string> keptFiles;
  for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path(), ignored)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(prefix) && !name.ends_with("-wal") && !name.ends_with("-journal") &&
        !name.ends_with("-shm")) {
      keptFiles.push_back(entry.path().string());
    }
  }
  std::sort(keptFiles.begin(), keptFiles.end());  // the time stamps sort as the times do
  while (keptFiles.size() > SqliteTable::kKeptDamagedFiles) {
    for (const char* suffix : {"", "-wal", "-journal", "-shm"}) {
      fs::remove(keptFiles.front() + suffix, ignored);
    }
    keptFiles.erase(keptFiles.begin());
  }
  return kept;
}

bool tableExists(sqlite3* connection, const std::string& name) {
  Statement statement(connection, "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?");
  statement.bindText(1, name);
  return statement.step() == SQLITE_ROW;
}

/// Runs a statement that may answer rows (a pragma) and ignores them.
void execute(sqlite3* connection, const std::string& sql) {
  Statement statement(connection, sql);
  while (statement.step() == SQLITE_ROW) {
  }
}

}  // namespace

struct SqliteTable::Impl : SqliteTable::RowReader {
  std::string location;
  port::Durability durability;
  TableBuilder table;
  ConnectionHandle connection;
  bool tableMade = false;
  /// A statement met a damaged file: it is opened again (and checked) at the next call.
  bool damaged = false;
  /// The next opening checks every page of the file (SQLite's quick check) rather than reading
  /// the schema alone: a statement met damage, or the write-ahead log was found damaged.
  bool checkEveryPage = false;
  bool walChecked = false;
  bool openFailureSaid = false;
  bool creationFailureSaid = false;
  std::uint64_t generation = 0;
  std::unique_ptr<Statement> insert;
  std::unique_ptr<Statement> selectAll;
  std::unique_ptr<Statement> dataVersion;
  std::unique_ptr<Statement> begin;
  std::unique_ptr<Statement> commit;
  std::unique_ptr<Statement> rollback;
  std::unique_ptr<Statement> checkpoint;
  std::map<std::string, std::unique_ptr<Statement>, std::less<>> deleteBy;
  /// Moving a row aside: savepoint, copy, delete, trim, release (prepared on first use).
  std::unique_ptr<Statement> asideSavepoint;
  std::unique_ptr<Statement> asideCopy;
  std::unique_ptr<Statement> asideDelete;
  std::unique_ptr<Statement> asideTrim;
  std::unique_ptr<Statement> asideRelease;
  std::unique_ptr<Statement> asideRollback;
  std::int64_t lastDataVersion = -1;

  Impl(std::string path, TableBuilder builder, port::Durability mode)
      : location(std::move(path)), durability(mode), table(std::move(builder)) {}
  ~Impl() override { close(); }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  bool isFile() const {
    return !location.empty() && location != ":memory:" && !location.starts_with("file:");
  }

  /// The connection, with its table: the file is opened, and the table made, when that has not
  /// been done yet or failed before. Throws what still fails.
  sqlite3* ready() {
    if (connection && damaged && sqlite3_get_autocommit(connection.get()) != 0) {
      checkEveryPage = true;
      close();  // opened again below: the check at opening keeps the damaged file aside
    }
    if (!connection) {
      try {
        open();
        openFailureSaid = false;
      } catch (const Error& error) {
        if (!openFailureSaid) {
          openFailureSaid = true;
          OrvantaLogger::error("Unable to open database " + location + ": " +
                               error.localizedDescription());
        }
        throw;
      }
    }
    if (!tableMade) {
      makeTable();
    }
    return connection.get();
  }

  /// Runs `work` on the connection; a failure that tells of a damaged file is noted.
  template <class Work>
  auto guarded(Work&& work) -> decltype(work()) {
    try {
      return work();
    } catch (const Error& error) {
      if (error.domain() == Error::Domain::database && isDamage(error.code())) {
        damaged = true;
      }
      throw;
    }
  }

  /// Opens the file, all or nothing: on failure the connection is closed again.
  void open() {
    try {
      openAndCheck();
    } catch (...) {
      close();
      throw;
    }
  }

  void openAndCheck() {
    if (isFile()) {
      // SQLite gives its journal files the database file's permissions: a file readable by its
      // owner only keeps all three private. Failing here is not fatal; opening reports the rest.
      os::makeOwnerOnlyFile(location, true);
      for (const char* suffix : {"-wal", "-shm", "-journal"}) {
        os::makeOwnerOnlyFile(location + suffix, false);
      }
      if (!walChecked) {
        walChecked = true;
        checkEveryPage = reportWalDamage() || checkEveryPage;
      }
    }
    connect();
    tableMade = false;
    damaged = false;
    ++generation;
    std::optional<std::string> problem =
        isFile() ? integrityProblem(std::exchange(checkEveryPage, false)) : std::nullopt;
    std::string kept;
    if (problem) {
      close();
      kept = keepDamagedFile(location);
      os::makeOwnerOnlyFile(location, true);
      connect();
    }
    // Committed rows survive a killed process in WAL mode, and with synchronous=NORMAL a commit
    // costs no fsync (FULL: one per commit, for hosts that must survive a power cut). A temporary
    // database keeps its own journal mode; failing to switch is not fatal either (another
    // connection may hold the file in rollback mode).
    try {
      execute(connection.get(), "PRAGMA journal_mode=WAL");
      execute(connection.get(), durability == port::Durability::full ? "PRAGMA synchronous=FULL"
                                                                     : "PRAGMA synchronous=NORMAL");
      // A small page cache: flushes read rows from the decoded-row cache, and what SQLite misses
      // is in the system's file cache. 256 KiB keeps the table's tail and the index's busy pages;
      // more measured no faster and costs the host memory.
      execute(connection.get(), "PRAGMA cache_size=-256");
      // The kit's process ends without closing the database, so the write-ahead log outlives it
      // and the next launch reads it whole (SQLite's recovery, the damage check below). A log
      // that a checkpoint has emptied is cut back to this size, so a launch reads at most about
      // that much rather than the 4 MiB a busy log reaches.
      execute(connection.get(), "PRAGMA journal_size_limit=262144");
    } catch (const Error&) {  // NOLINT(bugprone-empty-catch): the defaults still work
    }
    dataVersion = std::make_unique<Statement>(connection.get(), "PRAGMA data_version");
    lastDataVersion = readDataVersion();
    if (problem) {
      std::size_t copied = 0;
      try {
        makeTable();
        copied = copyRowsFrom(kept);
      } catch (const Error&) {  // NOLINT(bugprone-empty-catch): the table is made at next use
      }
      OrvantaLogger::error("The database " + location + " was damaged (" + *problem +
                           "): kept as " + kept + " and made anew, with the " +
                           std::to_string(copied) + " rows that could still be read");
    }
  }

  void connect() {
    sqlite3* raw = nullptr;
    int code = sqlite3_open_v2(location.c_str(), &raw,
                               SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                               nullptr);
    connection.reset(raw);  // closed on every way out, even when opening failed
    std::string reason;
    if (code != SQLITE_OK) {
      reason = raw != nullptr ? sqlite3_errmsg(raw) : sqlite3_errstr(code);
      if (int system = raw != nullptr ? sqlite3_system_errno(raw) : 0; system != 0) {
        reason += ": " + std::generic_category().message(system);
      }
    } else if (sqlite3_db_readonly(raw, "main") == 1) {
      // SQLite falls back to reading a file it may not write; nothing could be stored in it.
      code = SQLITE_READONLY;
      reason = "the file can be read but not written";
    }
    if (code != SQLITE_OK) {
      connection.reset();
      throw Error(Error::Domain::database, code, reason);
    }
    sqlite3_busy_timeout(raw, kBusyTimeoutMilliseconds);
  }

  /// Statements first: closing a connection with live statements would keep it open.
  void close() {
    for (auto* statement :
         {&insert, &selectAll, &dataVersion, &begin, &commit, &rollback, &checkpoint,
          &asideSavepoint, &asideCopy, &asideDelete, &asideTrim, &asideRelease, &asideRollback}) {
      statement->reset();
    }
    deleteBy.clear();
    connection.reset();
  }

  void makeTable() {
    const std::string& tableName = table.tableName();
    try {
      // Every launch after the first meets the table it made before; the statement is issued
      // only when the table is missing, and another process making it meanwhile is met below.
      if (!tableExists(connection.get(), tableName)) {
        execute(connection.get(), table.createStatement());
        try {
          // On the disk now: until the next checkpoint a power cut would take the table away,
          // and with it every event stored in it.
          execute(connection.get(), "PRAGMA wal_checkpoint(PASSIVE)");
        } catch (const Error&) {  // NOLINT(bugprone-empty-catch): synced at the next checkpoint
        }
      }
    } catch (const Error& error) {
      if (error.localizedDescription() !=
          "table " + quoteIdentifier(tableName) + " already exists (code: 1)") {
        if (!creationFailureSaid) {
          creationFailureSaid = true;
          OrvantaLogger::error("Unable to create database because: " +
                               error.localizedDescription());
        }
        throw;
      }
    }
    tableMade = true;
    creationFailureSaid = false;
  }

  /// Why the open file is not a sound database; none when it is. A launch reads the schema, which
  /// finds a file that is no database or has lost its schema; every page is checked (SQLite's
  /// quick check, a quarter of a millisecond even on a small file) only when there is a reason
  /// to: damage met by a statement is found when it is met, and the file is then opened again
  /// and checked whole. Throws failures that say nothing of the file (busy, out of memory).
  std::optional<std::string> integrityProblem(bool everyPage) {
    try {
      if (!everyPage) {
        Statement schema(connection.get(), "SELECT count(*) FROM sqlite_master");
        schema.step();
        return std::nullopt;
      }
      Statement check(connection.get(), "PRAGMA quick_check(1)");
      if (check.step() != SQLITE_ROW) {
        return "no answer to the quick check";
      }
      const unsigned char* text = sqlite3_column_text(check.get(), 0);
      std::string answer = text != nullptr ? reinterpret_cast<const char*>(text) : "";
      if (answer == "ok") {
        return std::nullopt;
      }
      return answer;
    } catch (const Error& error) {
      if (isDamage(error.code())) {
        return error.localizedDescription();
      }
      throw;
    }
  }

  /// Copies the rows of the table that still read from the database at `path` into this one, in
  /// one transaction (with their row ids, rows breaking a constraint left out). How many.
  std::size_t copyRowsFrom(const std::string& path) {
    sqlite3* raw = nullptr;
    int code = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    ConnectionHandle source(raw);
    if (code != SQLITE_OK) {
      return 0;
    }
    // The kept file stays as it was found: its log is read, never copied into it.
    sqlite3_db_config(raw, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    std::string columns = "rowid";
    std::string placeholders = "?";
    for (const auto& column : table.columns()) {
      columns += ", " + quoteIdentifier(column.name);
      placeholders += ", ?";
    }
    const std::string name = quoteIdentifier(table.tableName());
    std::size_t copied = 0;
    try {
      Statement select(raw, "SELECT " + columns + " FROM " + name);
      Statement copy(connection.get(), "INSERT OR IGNORE INTO " + name + " (" + columns +
                                           ") VALUES (" + placeholders + ")");
      execute(connection.get(), "BEGIN");
      // Rows up to the first one the damage makes unreadable.
      while (sqlite3_step(select.get()) == SQLITE_ROW) {
        ResetGuard guard(copy);
        const int count = sqlite3_column_count(select.get());
        for (int i = 0; i < count; ++i) {
          sqlite3_bind_value(copy.get(), i + 1, sqlite3_column_value(select.get(), i));
        }
        copy.step();
        copied += static_cast<std::size_t>(sqlite3_changes(connection.get()));
      }
      execute(connection.get(), "COMMIT");
    } catch (const Error&) {
      if (sqlite3_get_autocommit(connection.get()) == 0) {
        sqlite3_exec(connection.get(), "ROLLBACK", nullptr, nullptr, nullptr);
      }
      copied = 0;
    }
    source.reset();
    std::error_code ignored;
    std::filesystem::remove(path + "-shm", ignored);
    return copied;
  }

  /// One warning when SQLite is about to drop part of the write-ahead log silently. Whether it is
  /// damaged.
  bool reportWalDamage() {
    constexpr std::size_t kMaxCheckedBytes = std::size_t{64} << 20;
    const std::string wal = location + "-wal";
    std::error_code error;
    const auto size = std::filesystem::file_size(wal, error);
    if (error || size == 0 || size > kMaxCheckedBytes) {
      return false;
    }
    std::string bytes(static_cast<std::size_t>(size), '\0');
    std::ifstream file(wal, std::ios::binary);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    if (auto damage = walDamage(bytes)) {
      OrvantaLogger::warning("The write-ahead log " + wal + " is damaged (" + *damage +
                             "): the database is opened as it was before it");
      return true;
    }
    return false;
  }

  /// The current row of `selectAll` (column 0 is the row id).
  RowValues values() const override {
    sqlite3_stmt* statement = selectAll->get();
    const std::size_t count = table.columns().size();
    std::size_t dataBytes = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const int index = static_cast<int>(i) + 1;
      const int type = sqlite3_column_type(statement, index);
      dataBytes += type == SQLITE_TEXT || type == SQLITE_BLOB
                       ? static_cast<std::size_t>(sqlite3_column_bytes(statement, index))
                       : 8;
    }
    RowValues::Builder row(count, dataBytes);
    for (std::size_t i = 0; i < count; ++i) {
      const int index = static_cast<int>(i) + 1;
      switch (sqlite3_column_type(statement, index)) {
        case SQLITE_NULL:
          row.null();
          break;
        case SQLITE_INTEGER:
          row.integer(sqlite3_column_int64(statement, index));
          break;
        case SQLITE_FLOAT:
          row.real(sqlite3_column_double(statement, index));
          break;
        case SQLITE_TEXT:
        case SQLITE_BLOB:
        default: {
          const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, index));
          std::string_view text(bytes != nullptr ? bytes : "",
                                static_cast<std::size_t>(sqlite3_column_bytes(statement, index)));
          if (isValidUtf8(text)) {
            row.text(text);
          } else {
            // Only ill-formed bytes change, never JSON's own punctuation, so a map column stays
            // the JSON it was.
            row.text(repairedUtf8(text));
          }
          break;
        }
      }
    }
    return row.finish();
  }

  std::int64_t readDataVersion() {
    ResetGuard guard(*dataVersion);
    if (dataVersion->step() != SQLITE_ROW) {
      return -1;
    }
    return sqlite3_column_int64(dataVersion->get(), 0);
  }

  /// A checkpoint that also empties the log when no other connection reads it, then begins the
  /// log anew with one small commit (the schema cookie's page, its value unchanged). The process
  /// ends without closing the database, so what the log holds is what the next launch reads
  /// before its first event: SQLite's recovery and the damage check then read one page, not the
  /// up to 256 KiB a busy log reaches. And the new log's header is synced here, on the thread
  /// that checkpoints, rather than by the next launch's first commit.
  void checkpointAndBeginLog() {
    sqlite3* db = ready();
    guarded([&] {
      if (!checkpoint) {
        checkpoint = std::make_unique<Statement>(db, "PRAGMA wal_checkpoint(TRUNCATE)");
      }
      std::int64_t busy = 1;
      std::int64_t frames = -1;
      {
        // Without waiting for other connections' readers: then it is a passive checkpoint.
        struct NoWaiting {
          sqlite3* db;
          explicit NoWaiting(sqlite3* connection) : db(connection) { sqlite3_busy_timeout(db, 0); }
          ~NoWaiting() { sqlite3_busy_timeout(db, kBusyTimeoutMilliseconds); }
          NoWaiting(const NoWaiting&) = delete;
          NoWaiting& operator=(const NoWaiting&) = delete;
        } noWaiting(db);
        ResetGuard guard(*checkpoint);
        if (checkpoint->step() == SQLITE_ROW) {
          busy = sqlite3_column_int64(checkpoint->get(), 0);
          frames = sqlite3_column_int64(checkpoint->get(), 1);
        }
      }
      if (busy != 0 || frames != 0 || !isFile()) {
        return;  // not in WAL mode, or the log could not be emptied: it stays as it is
      }
      Statement read(db, "PRAGMA user_version");
      const std::int64_t version =
          read.step() == SQLITE_ROW ? sqlite3_column_int64(read.get(), 0) : 0;
      execute(db, "PRAGMA user_version=" + std::to_string(version));
    });
  }

  void run(std::unique_ptr<Statement>& statement, const char* sql) {
    sqlite3* db = ready();
    guarded([&] {
      if (!statement) {
        statement = std::make_unique<Statement>(db, sql);
      }
      ResetGuard guard(*statement);
      statement->step();
    });
  }
};

SqliteTable::SqliteTable(const std::string& location, TableBuilder table,
                         port::Durability durability)
    : impl_(std::make_unique<Impl>(location, std::move(table), durability)) {
  for (const auto& column : impl_->table.columns()) {
    if (column.primaryKey) {
      primaryKey_ = column.name;
      break;
    }
  }
  try {
    impl_->ready();
  } catch (const Error&) {  // NOLINT(bugprone-empty-catch): logged; the next call tries again
  }
}

SqliteTable::~SqliteTable() = default;

std::int64_t SqliteTable::insert(const RowValues& row) {
  sqlite3* connection = impl_->ready();
  return impl_->guarded([&] {
    if (!impl_->insert) {
      std::string columns;
      std::string placeholders;
      for (const auto& column : impl_->table.columns()) {
        columns += columns.empty() ? "" : ", ";
        placeholders += placeholders.empty() ? "?" : ", ?";
        columns += quoteIdentifier(column.name);
      }
      impl_->insert = std::make_unique<Statement>(
          connection, "INSERT INTO " + quoteIdentifier(impl_->table.tableName()) + " (" + columns +
                          ") VALUES (" + placeholders + ")");
    }
    Statement& statement = *impl_->insert;
    ResetGuard guard(statement);
    const std::size_t count = impl_->table.columns().size();
    for (std::size_t i = 0; i < count; ++i) {
      statement.bindValue(static_cast<int>(i) + 1, row, i);
    }
    statement.step();
    return sqlite3_last_insert_rowid(connection);
  });
}

void SqliteTable::beginScan() {
  sqlite3* connection = impl_->ready();
  impl_->guarded([&] {
    if (!impl_->selectAll) {
      std::string columns;
      for (const auto& column : impl_->table.columns()) {
        columns += columns.empty() ? "" : ", ";
        columns += quoteIdentifier(column.name);
      }
      impl_->selectAll = std::make_unique<Statement>(
          connection, "SELECT rowid, " + columns + " FROM " +
                          quoteIdentifier(impl_->table.tableName()) + " ORDER BY rowid");
    }
  });
}

bool SqliteTable::stepScan(std::int64_t& rowId) {
  return impl_->guarded([&] {
    if (impl_->selectAll->step() != SQLITE_ROW) {
      return false;
    }
    rowId = sqlite3_column_int64(impl_->selectAll->get(), 0);
    return true;
  });
}

const SqliteTable::RowReader& SqliteTable::scanReader() const {
  return *impl_;
}

void SqliteTable::endScan() {
  if (impl_->selectAll) {
    impl_->selectAll->reset();
  }
}

void SqliteTable::deleteWhere(std::string_view column, std::string_view value) {
  bool known = false;
  for (const auto& definition : impl_->table.columns()) {
    known = known || definition.name == column;
  }
  if (!known) {
    throw Error(Error::Domain::database, SQLITE_ERROR, "no such column: " + std::string(column));
  }
  sqlite3* connection = impl_->ready();
  impl_->guarded([&] {
    auto found = impl_->deleteBy.find(column);
    if (found == impl_->deleteBy.end()) {
      auto statement = std::make_unique<Statement>(
          connection, "DELETE FROM " + quoteIdentifier(impl_->table.tableName()) + " WHERE (" +
                          quoteIdentifier(std::string(column)) + " = ?)");
      found = impl_->deleteBy.emplace(std::string(column), std::move(statement)).first;
    }
    Statement& statement = *found->second;
    ResetGuard guard(statement);
    statement.bindText(1, value);
    statement.step();
  });
}

void SqliteTable::setAside(std::int64_t rowId, std::string_view reason, std::size_t keep) {
  sqlite3* connection = impl_->ready();
  impl_->guarded([&] {
    if (!impl_->asideCopy) {
      const std::string table = quoteIdentifier(impl_->table.tableName());
      const std::string aside = quoteIdentifier(impl_->table.tableName() + kAsideSuffix);
      std::string columns;
      for (const auto& column : impl_->table.columns()) {
        columns += columns.empty() ? "" : ", ";
        columns += quoteIdentifier(column.name);
      }
      execute(connection, "CREATE TABLE IF NOT EXISTS " + aside + " (" + columns +
                              ", \"reason\" TEXT, \"setAsideAt\" REAL)");
      impl_->asideSavepoint = std::make_unique<Statement>(connection, "SAVEPOINT aside");
      impl_->asideCopy = std::make_unique<Statement>(
          connection, "INSERT INTO " + aside + " (" + columns +
                          ", \"reason\", \"setAsideAt\") SELECT " + columns +
                          ", ?, CAST(strftime('%s', 'now') AS REAL) FROM " + table +
                          " WHERE rowid = ?");
      impl_->asideDelete =
          std::make_unique<Statement>(connection, "DELETE FROM " + table + " WHERE rowid = ?");
      impl_->asideTrim = std::make_unique<Statement>(
          connection,
          "DELETE FROM " + aside + " WHERE rowid <= (SELECT max(rowid) FROM " + aside + ") - ?");
      impl_->asideRelease = std::make_unique<Statement>(connection, "RELEASE aside");
      impl_->asideRollback = std::make_unique<Statement>(connection, "ROLLBACK TO aside");
    }
    auto run = [](Statement& statement, auto&& bind) {
      ResetGuard guard(statement);
      bind(statement);
      statement.step();
    };
    run(*impl_->asideSavepoint, [](Statement&) {});
    try {
      run(*impl_->asideCopy, [&](Statement& statement) {
        statement.bindText(1, reason);
        statement.bindInteger(2, rowId);
      });
      run(*impl_->asideDelete, [&](Statement& statement) { statement.bindInteger(1, rowId); });
      run(*impl_->asideTrim,
          [&](Statement& statement) { statement.bindInteger(1, static_cast<std::int64_t>(keep)); });
    } catch (...) {
      try {
        run(*impl_->asideRollback, [](Statement&) {});
        run(*impl_->asideRelease, [](Statement&) {});
      } catch (...) {  // NOLINT(bugprone-empty-catch): the first failure is the one reported
      }
      throw;
    }
    run(*impl_->asideRelease, [](Statement&) {});
  });
}

void SqliteTable::begin() {
  impl_->run(impl_->begin, "BEGIN");
}

void SqliteTable::commit() {
  impl_->run(impl_->commit, "COMMIT");
}

void SqliteTable::rollback() {
  impl_->run(impl_->rollback, "ROLLBACK");
}

void SqliteTable::checkpoint() {
  impl_->checkpointAndBeginLog();
}

std::uint64_t SqliteTable::generation() const {
  return impl_->generation;
}

const TableBuilder& SqliteTable::table() const {
  return impl_->table;
}

bool SqliteTable::changedElsewhere() {
  std::int64_t version = impl_->guarded([&] { return impl_->readDataVersion(); });
  bool changed = version != impl_->lastDataVersion;
  impl_->lastDataVersion = version;
  return changed;
}

std::size_t primaryKeyIndex(const TableBuilder& table) {
  const auto& columns = table.columns();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].primaryKey) {
      return i;
    }
  }
  return columns.size();
}

RowValues rowValuesFromJson(const TableBuilder& table, const nlohmann::ordered_json& json) {
  RowValues::Builder row(table.columns().size());
  for (const auto& column : table.columns()) {
    auto member = json.find(column.name);
    if (member == json.end()) {
      row.null();
      continue;
    }
    switch (member->type()) {
      case nlohmann::ordered_json::value_t::string:
        row.text(member->get_ref<const std::string&>());
        break;
      case nlohmann::ordered_json::value_t::number_float:
        row.real(member->get<double>());
        break;
      case nlohmann::ordered_json::value_t::number_integer:
      case nlohmann::ordered_json::value_t::number_unsigned:
        row.integer(member->get<std::int64_t>());
        break;
      case nlohmann::ordered_json::value_t::boolean:
        row.integer(member->get<bool>() ? 1 : 0);
        break;
      case nlohmann::ordered_json::value_t::null:
      case nlohmann::ordered_json::value_t::discarded:
        row.null();
        break;
      case nlohmann::ordered_json::value_t::object:
      case nlohmann::ordered_json::value_t::array:
      case nlohmann::ordered_json::value_t::binary:
        row.text(member->dump());  // nested values are kept as their JSON text
        break;
    }
  }
  return row.finish();
}

nlohmann::json jsonFromRowValues(const TableBuilder& table, const RowValues& values) {
  nlohmann::json row = nlohmann::json::object();
  const auto& columns = table.columns();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const ColumnDefinition& column = columns[i];
    switch (values.kind(i)) {
      case RowValues::Kind::null:
        break;  // absent: the record's decoder reports the missing key
      case RowValues::Kind::integer:
        row[column.name] = values.integer(i);
        break;
      case RowValues::Kind::real:
        row[column.name] = values.real(i);
        break;
      case RowValues::Kind::text:
        if (column.type == SqlType::blob) {
          row[column.name] = parseJson(values.text(i));  // throws for text that isn't JSON
        } else {
          row[column.name] = std::string(values.text(i));
        }
        break;
    }
  }
  return row;
}

bool isConstraintFailure(const Error& error) {
  return error.domain() == Error::Domain::database && (error.code() & 0xFF) == SQLITE_CONSTRAINT;
}

Error storageErrorFromCurrentException() {
  try {
    throw;
  } catch (const Error& error) {
    return error;
  } catch (const DecodingFailure& failure) {
    return failure.toError();
  } catch (const std::exception& exception) {
    return Error(Error::Domain::decoding, 0, exception.what());
  } catch (...) {
    return Error(Error::Domain::decoding, 0, "Unknown error");
  }
}

}  // namespace orvanta::detail
