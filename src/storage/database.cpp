#include "storage/database.hpp"

#include <sqlite3.h>

#include <map>
#include <string>
#include <utility>

#include "core/logger.hpp"

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

  void bindText(int index, const std::string& text) {
    check(sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                            SQLITE_STATIC));
  }
  void bindJson(int index, const nlohmann::ordered_json& value) {
    switch (value.type()) {
      case nlohmann::ordered_json::value_t::string:
        bindText(index, value.get_ref<const std::string&>());
        return;
      case nlohmann::ordered_json::value_t::number_float:
        check(sqlite3_bind_double(statement_, index, value.get<double>()));
        return;
      case nlohmann::ordered_json::value_t::number_integer:
      case nlohmann::ordered_json::value_t::number_unsigned:
        check(sqlite3_bind_int64(statement_, index, value.get<std::int64_t>()));
        return;
      case nlohmann::ordered_json::value_t::boolean:
        check(sqlite3_bind_int(statement_, index, value.get<bool>() ? 1 : 0));
        return;
      case nlohmann::ordered_json::value_t::null:
      case nlohmann::ordered_json::value_t::discarded:
        check(sqlite3_bind_null(statement_, index));
        return;
      case nlohmann::ordered_json::value_t::object:
      case nlohmann::ordered_json::value_t::array:
      case nlohmann::ordered_json::value_t::binary: {
        // Nested values are kept as their JSON text.
        std::string text = value.dump();
        check(sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                                SQLITE_TRANSIENT));
        return;
      }
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
  std::map<std::string, std::unique_ptr<Statement>, std::less<>> deleteBy;
  std::int64_t lastDataVersion = -1;

  explicit Impl(TableBuilder builder) : table(std::move(builder)) {}

  /// The current row of `selectAll` (column 0 is the row id) as the record's JSON.
  nlohmann::json read() const override {
    sqlite3_stmt* statement = selectAll->get();
    nlohmann::json row = nlohmann::json::object();
    const auto& columns = table.columns();
    for (std::size_t i = 0; i < columns.size(); ++i) {
      int index = static_cast<int>(i) + 1;
      const ColumnDefinition& column = columns[i];
      switch (sqlite3_column_type(statement, index)) {
        case SQLITE_NULL:
          break;  // absent: the record's decoder reports the missing key
        case SQLITE_INTEGER:
          row[column.name] = sqlite3_column_int64(statement, index);
          break;
        case SQLITE_FLOAT:
          row[column.name] = sqlite3_column_double(statement, index);
          break;
        case SQLITE_TEXT:
        case SQLITE_BLOB:
        default: {
          const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, index));
          std::string_view text(bytes != nullptr ? bytes : "",
                                static_cast<std::size_t>(sqlite3_column_bytes(statement, index)));
          if (column.type == SqlType::blob) {
            row[column.name] = parseJson(text);  // throws DecodingFailure for text that isn't JSON
          } else {
            row[column.name] = std::string(text);
          }
          break;
        }
      }
    }
    return row;
  }

  std::int64_t readDataVersion() {
    ResetGuard guard(*dataVersion);
    if (dataVersion->step() != SQLITE_ROW) {
      return -1;
    }
    return sqlite3_column_int64(dataVersion->get(), 0);
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
    impl_->deleteBy.clear();
  }
}

std::int64_t SqliteTable::insert(const nlohmann::ordered_json& row) {
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
  const auto& columns = impl_->table.columns();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    auto member = row.find(columns[i].name);
    if (member == row.end()) {
      statement.bindJson(static_cast<int>(i) + 1, nullptr);
    } else {
      statement.bindJson(static_cast<int>(i) + 1, *member);
    }
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

void SqliteTable::deleteWhere(std::string_view column, const std::string& value) {
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

bool SqliteTable::changedElsewhere() {
  std::int64_t version = impl_->readDataVersion();
  bool changed = version != impl_->lastDataVersion;
  impl_->lastDataVersion = version;
  return changed;
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
