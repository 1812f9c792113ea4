#include "storage/database.hpp"

#include <sqlite3.h>

#include <map>
#include <string>
#include <utility>

#include "core/logger.hpp"
#include "core/os.hpp"
#include "core/utf8.hpp"

namespace orvanta::detail {
namespace {

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
  ConnectionHandle connection;
  TableBuilder table;
  std::unique_ptr<Statement> insert;
  std::unique_ptr<Statement> selectAll;
  std::unique_ptr<Statement> dataVersion;
  std::unique_ptr<Statement> begin;
  std::unique_ptr<Statement> commit;
  std::unique_ptr<Statement> rollback;
  std::map<std::string, std::unique_ptr<Statement>, std::less<>> deleteBy;
  /// Moving a row aside: savepoint, copy, delete, trim, release (prepared on first use).
  std::unique_ptr<Statement> asideSavepoint;
  std::unique_ptr<Statement> asideCopy;
  std::unique_ptr<Statement> asideDelete;
  std::unique_ptr<Statement> asideTrim;
  std::unique_ptr<Statement> asideRelease;
  std::unique_ptr<Statement> asideRollback;
  std::int64_t lastDataVersion = -1;

  explicit Impl(TableBuilder builder) : table(std::move(builder)) {}

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

  void run(std::unique_ptr<Statement>& statement, const char* sql) {
    if (!statement) {
      statement = std::make_unique<Statement>(connection.get(), sql);
    }
    ResetGuard guard(*statement);
    statement->step();
  }
};

SqliteTable::SqliteTable(const std::string& location, TableBuilder table)
    : impl_(std::make_unique<Impl>(std::move(table))) {
  for (const auto& column : impl_->table.columns()) {
    if (column.primaryKey) {
      primaryKey_ = column.name;
      break;
    }
  }

  if (!location.empty() && location != ":memory:" && !location.starts_with("file:")) {
    // SQLite gives its journal files the database file's permissions: a file readable by its
    // owner only keeps all three private. Failing here is not fatal; opening reports the rest.
    os::makeOwnerOnlyFile(location, true);
    for (const char* suffix : {"-wal", "-shm", "-journal"}) {
      os::makeOwnerOnlyFile(location + suffix, false);
    }
  }

  sqlite3* raw = nullptr;
  int code =
      sqlite3_open_v2(location.c_str(), &raw,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  impl_->connection.reset(raw);  // closed on every way out, even when opening failed
  if (code != SQLITE_OK) {
    throw sqliteError(raw, code);
  }
  sqlite3* connection = impl_->connection.get();
  sqlite3_busy_timeout(connection, 5000);

  // Committed rows survive a killed process in WAL mode with synchronous=NORMAL, and a commit
  // costs no fsync. A temporary database keeps its own journal mode; failing to switch is not
  // fatal either (another connection may hold the file in rollback mode).
  try {
    execute(connection, "PRAGMA journal_mode=WAL");
    execute(connection, "PRAGMA synchronous=NORMAL");
    // A small page cache: flushes read rows from the decoded-row cache, and what SQLite misses is
    // in the system's file cache. 256 KiB keeps the table's tail and the index's busy pages; more
    // measured no faster and costs the host memory.
    execute(connection, "PRAGMA cache_size=-256");
  } catch (const Error&) {  // NOLINT(bugprone-empty-catch): the defaults still work
  }

  const std::string& tableName = impl_->table.tableName();
  try {
    // Every launch after the first meets the table it made before; the statement is issued only
    // when the table is missing, and another process making it meanwhile is met as below.
    if (!tableExists(connection, tableName)) {
      execute(connection, impl_->table.createStatement());
    }
  } catch (const Error& error) {
    if (error.localizedDescription() !=
        "table " + quoteIdentifier(tableName) + " already exists (code: 1)") {
      OrvantaLogger::error("Unable to create database because: " + error.localizedDescription());
    }
  }

  impl_->dataVersion = std::make_unique<Statement>(connection, "PRAGMA data_version");
  impl_->lastDataVersion = impl_->readDataVersion();
}

SqliteTable::~SqliteTable() {
  if (impl_) {
    // Statements first: closing a connection with live statements would keep it open.
    impl_->insert.reset();
    impl_->selectAll.reset();
    impl_->dataVersion.reset();
    impl_->begin.reset();
    impl_->commit.reset();
    impl_->rollback.reset();
    impl_->deleteBy.clear();
    for (auto* statement : {&impl_->asideSavepoint, &impl_->asideCopy, &impl_->asideDelete,
                            &impl_->asideTrim, &impl_->asideRelease, &impl_->asideRollback}) {
      statement->reset();
    }
  }
}

std::int64_t SqliteTable::insert(const RowValues& row) {
  // Prepared on first use, so that a table that could not be created fails here, in the call
  // that needs it.
  if (!impl_->insert) {
    std::string columns;
    std::string placeholders;
    for (const auto& column : impl_->table.columns()) {
      columns += columns.empty() ? "" : ", ";
      placeholders += placeholders.empty() ? "?" : ", ?";
      columns += quoteIdentifier(column.name);
    }
    impl_->insert = std::make_unique<Statement>(
        impl_->connection.get(), "INSERT INTO " + quoteIdentifier(impl_->table.tableName()) + " (" +
                                     columns + ") VALUES (" + placeholders + ")");
  }
  Statement& statement = *impl_->insert;
  ResetGuard guard(statement);
  const std::size_t count = impl_->table.columns().size();
  for (std::size_t i = 0; i < count; ++i) {
    statement.bindValue(static_cast<int>(i) + 1, row, i);
  }
  statement.step();
  return sqlite3_last_insert_rowid(impl_->connection.get());
}

void SqliteTable::beginScan() {
  if (!impl_->selectAll) {
    std::string columns;
    for (const auto& column : impl_->table.columns()) {
      columns += columns.empty() ? "" : ", ";
      columns += quoteIdentifier(column.name);
    }
    impl_->selectAll = std::make_unique<Statement>(
        impl_->connection.get(), "SELECT rowid, " + columns + " FROM " +
                                     quoteIdentifier(impl_->table.tableName()) + " ORDER BY rowid");
  }
}

bool SqliteTable::stepScan(std::int64_t& rowId) {
  if (impl_->selectAll->step() != SQLITE_ROW) {
    return false;
  }
  rowId = sqlite3_column_int64(impl_->selectAll->get(), 0);
  return true;
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
  auto found = impl_->deleteBy.find(column);
  if (found == impl_->deleteBy.end()) {
    bool known = false;
    for (const auto& definition : impl_->table.columns()) {
      known = known || definition.name == column;
    }
    if (!known) {
      throw Error(Error::Domain::database, SQLITE_ERROR, "no such column: " + std::string(column));
    }
    auto statement = std::make_unique<Statement>(
        impl_->connection.get(), "DELETE FROM " + quoteIdentifier(impl_->table.tableName()) +
                                     " WHERE (" + quoteIdentifier(std::string(column)) + " = ?)");
    found = impl_->deleteBy.emplace(std::string(column), std::move(statement)).first;
  }
  Statement& statement = *found->second;
  ResetGuard guard(statement);
  statement.bindText(1, value);
  statement.step();
}

void SqliteTable::setAside(std::int64_t rowId, std::string_view reason, std::size_t keep) {
  sqlite3* connection = impl_->connection.get();
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
        connection, "INSERT INTO " + aside + " (" + columns + ", \"reason\", \"setAsideAt\") SELECT " +
                        columns + ", ?, CAST(strftime('%s', 'now') AS REAL) FROM " + table +
                        " WHERE rowid = ?");
    impl_->asideDelete =
        std::make_unique<Statement>(connection, "DELETE FROM " + table + " WHERE rowid = ?");
    impl_->asideTrim = std::make_unique<Statement>(
        connection, "DELETE FROM " + aside + " WHERE rowid <= (SELECT max(rowid) FROM " + aside +
                        ") - ?");
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
    run(*impl_->asideDelete, [&](Statement& statement) {
      statement.bindInteger(1, rowId);
    });
    run(*impl_->asideTrim, [&](Statement& statement) {
      statement.bindInteger(1, static_cast<std::int64_t>(keep));
    });
  } catch (...) {
    try {
      run(*impl_->asideRollback, [](Statement&) {});
      run(*impl_->asideRelease, [](Statement&) {});
    } catch (...) {  // NOLINT(bugprone-empty-catch): the first failure is the one reported
    }
    throw;
  }
  run(*impl_->asideRelease, [](Statement&) {});
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

const TableBuilder& SqliteTable::table() const {
  return impl_->table;
}

bool SqliteTable::changedElsewhere() {
  std::int64_t version = impl_->readDataVersion();
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
