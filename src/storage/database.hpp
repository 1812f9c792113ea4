#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/json_coding.hpp"
#include "orvanta/error.hpp"
#include "orvanta/port/file_locations.hpp"
#include "storage/row_values.hpp"
#include "storage/table_builder.hpp"

namespace orvanta {

/// A record kept in a table of its own: it declares the table's columns (`create`, one of them
/// the text primary key), names the table (`kTableName`, the type's name in lower case), gives its
/// primary key (`primaryKey`) and reads and writes itself as a JSON object whose top-level keys
/// are the column names.
template <class T>
concept Storable = requires(const T& record, TableBuilder& builder, const nlohmann::json& json) {
  T::create(builder);
  { T::kTableName } -> std::convertible_to<std::string_view>;
  { record.primaryKey() } -> std::convertible_to<const std::string&>;
  { record.toJson() } -> std::same_as<nlohmann::ordered_json>;
  { T::fromJson(json) } -> std::same_as<T>;
};

/// A record that may also write its row directly (`toRow`), the columns in order as its JSON form
/// would spread them (map columns as compact JSON text): faster than building that form.
template <class T>
concept WritesOwnColumns = requires(const T& record) {
  { record.toRow() } -> std::same_as<detail::RowValues>;
};

/// A record that may also read itself from its columns: none when the row is not in the form the
/// record writes, and the JSON form is read instead (which reports what is wrong exactly).
template <class T>
concept ReadsOwnColumns = requires(const detail::RowValues& values) {
  { T::readColumns(values) } -> std::same_as<std::optional<T>>;
};

/// A record that may also check cheaply that `readColumns` would read a row.
template <class T>
concept ChecksOwnColumns = ReadsOwnColumns<T> && requires(const detail::RowValues& values) {
  { T::canReadColumns(values) } -> std::same_as<bool>;
};

namespace detail {

/// The table of the record type `T`, declared once.
template <Storable T>
const TableBuilder& tableOf() {
  // Never destroyed: the kit's database threads may still read it while the process exits.
  static const TableBuilder* const table = [] {
    auto* builder = new TableBuilder{std::string(T::kTableName)};
    T::create(*builder);
    return builder;
  }();
  return *table;
}

/// The index of the table's text primary-key column, or the column count when there is none.
std::size_t primaryKeyIndex(const TableBuilder& table);

/// A row from a record's JSON form: each column from the member of the same name (strings as
/// text, numbers as they are, Booleans as 1 or 0, objects and arrays as their compact JSON text, a
/// missing member as NULL).
RowValues rowValuesFromJson(const TableBuilder& table, const nlohmann::ordered_json& json);

/// The JSON form a record decodes from: scalars as they are (NULL leaves the key out, so that the
/// decoder reports it missing), the text of a BLOB-declared column parsed as JSON. Throws
/// `DecodingFailure` for such text that is not JSON.
nlohmann::json jsonFromRowValues(const TableBuilder& table, const RowValues& values);

/// Turns what a record's `toJson` / `fromJson` threw into the kit's error.
Error storageErrorFromCurrentException();

/// Whether `error` is a row the table refuses (a key already stored, a required value missing),
/// rather than a failure of the storage itself.
bool isConstraintFailure(const Error& error);

}  // namespace detail

/// One stored row: its row id and its column values, packed and never changed. `record()` reads
/// the record back; a row handed out by `Database::allRows` has been read once already, so reading
/// it again cannot fail. Shared between threads freely.
template <Storable T>
class StoredRecord {
 public:
  StoredRecord(std::int64_t rowId, detail::RowValues values)
      : rowId_(rowId), values_(std::move(values)) {}

  std::int64_t rowId() const { return rowId_; }
  const detail::RowValues& values() const { return values_; }
  /// The text of the primary-key column.
  std::string_view primaryKey() const {
    return values_.text(detail::primaryKeyIndex(detail::tableOf<T>()));
  }

  /// Throws the `Error` of `record()` when the row does not read back; costs less than `record()`.
  void check() const {
    if constexpr (ChecksOwnColumns<T>) {
      if (T::canReadColumns(values_)) {
        return;
      }
    }
    (void)record();
  }

  /// Decodes the row. Throws an `Error` of the decoding domain when it does not read back.
  T record() const {
    if constexpr (ReadsOwnColumns<T>) {
      if (auto record = T::readColumns(values_)) {
        return std::move(*record);
      }
    }
    try {
      return T::fromJson(detail::jsonFromRowValues(detail::tableOf<T>(), values_));
    } catch (...) {
      throw detail::storageErrorFromCurrentException();
    }
  }

 private:
  std::int64_t rowId_;
  detail::RowValues values_;
};

/// A store of records of one type. Every member throws an `Error` of the database domain (SQLite's
/// message and result code) or of the decoding domain (a row that does not read back). No locking
/// of its own: the caller serialises the calls.
template <Storable T>
class DatabaseProtocol {
 public:
  using DataType = T;
  /// Rows never change once written, so a row read back is shared rather than copied.
  using Row = std::shared_ptr<const StoredRecord<T>>;

  virtual ~DatabaseProtocol() = default;

  /// INSERT of one row. A second row with the same primary key is a constraint failure.
  virtual void add(const T& record) = 0;
  /// Every row, in insertion (row id) order. The first row that does not decode fails the whole
  /// call, so one corrupt row hides all the others until it is deleted.
  virtual std::vector<Row> allRows() = 0;
  /// DELETE of the rows whose `column` equals `value`. `column` must be one of the table's.
  virtual void deleteRows(std::string_view column, const std::string& value) = 0;
  /// DELETE of the row with this primary key; deleting a row that is not there succeeds.
  virtual void deleteRow(std::string_view primaryKey) = 0;
  /// Runs `work` (calls of this store) as one transaction: committed when `work` returns, rolled
  /// back when it throws (the exception then goes on). Many small writes cost one commit.
  virtual void inTransaction(const std::function<void()>& work) = 0;
  /// Moves the row with this row id, whatever it holds, out of the table into its side table
  /// (`detail::SqliteTable::kAsideSuffix`), where it is kept with `reason` for diagnosis and never
  /// read by the kit again. The side table keeps the latest `kMaxRowsAside` rows.
  virtual void setAside(std::int64_t rowId, std::string_view reason) = 0;

  /// A stored row that does not read back.
  struct DamagedRow {
    std::int64_t rowId;
    std::string primaryKey;  ///< the text of its key column, as stored
    Error error;             ///< why it does not read back
  };
  /// Every row that does not read back (those that make `allRows` fail), in row-id order.
  virtual std::vector<DamagedRow> damagedRows() = 0;

  /// Makes every commit so far durable: the write-ahead log is synced, copied into the file and
  /// the file synced (a checkpoint). Commits are otherwise synced as `port::Durability` says.
  virtual void checkpoint() = 0;

  static constexpr std::size_t kMaxRowsAside = 1000;
};

/// How a `Database` opens its file.
struct DatabaseOptions {
  port::Durability durability = port::Durability::normal;
  /// The bytes of rows kept in memory: 4 MiB, about 16,000 typical events.
  std::size_t maxCachedBytes = std::size_t{4} << 20;
};

namespace detail {

/// The SQLite side of `Database`: one connection, its prepared statements and the JSON form of
/// rows. Not a template, so SQLite stays out of the headers.
///
/// The connection and the table are made at construction and, when that failed, again by the next
/// call that needs them (which throws what still fails): a file that could not be opened is
/// opened afresh, a table that could not be created (a full disk) is created then. A file found
/// damaged is kept aside and replaced (see the constructor), also when a statement meets the
/// damage later on: the next call outside a transaction opens the file again.
class SqliteTable {
 public:
  /// Opens (creating if needed) the file at `location` read-write; the empty location opens a
  /// private temporary database. A file the kit creates is readable by its owner only (0600), and
  /// so are the journal files SQLite makes beside it; an existing one is narrowed to that. WAL
  /// journal, synchronous=NORMAL (FULL for `Durability::full`), busy time-out of 5 s. Then creates
  /// the table, silently accepting "already exists" and logging any other failure; a table made
  /// here is synced to the disk at once.
  ///
  /// Failures are logged once each, and tried again by the next call: a file that can't be opened
  /// for writing (one error line with the path and the reason); a write-ahead log whose frames
  /// SQLite will drop (one warning); a file that is not a database or fails SQLite's quick check
  /// is renamed "<name>.damaged-<UTC time>" (the latest `kKeptDamagedFiles` are kept), the rows
  /// that still read are copied into a new file, and one error line names the kept file.
  SqliteTable(const std::string& location, TableBuilder table,
              port::Durability durability = port::Durability::normal);
  ~SqliteTable();
  SqliteTable(const SqliteTable&) = delete;
  SqliteTable& operator=(const SqliteTable&) = delete;

  /// Binds each column from `row` and inserts; the new row id.
  std::int64_t insert(const RowValues& row);

  /// Reads the current row of a scan.
  class RowReader {
   public:
    /// The row's values; text that is not UTF-8 (written by something else than the kit) comes
    /// back repaired, so that every row can be written as JSON again.
    virtual RowValues values() const = 0;

   protected:
    virtual ~RowReader() = default;
  };

  /// Calls `visit(rowId, reader)` for every row, in row-id order, within one statement (so one
  /// consistent snapshot). `visit` may throw; the statement is reset either way.
  template <class Visit>
  void scan(Visit&& visit) {
    beginScan();
    try {
      while (true) {
        std::int64_t rowId = 0;
        if (!stepScan(rowId)) {
          break;
        }
        visit(rowId, scanReader());
      }
    } catch (...) {
      endScan();
      throw;
    }
    endScan();
  }

  /// DELETE ... WHERE ("column" = ?). Throws for a column the table does not have.
  void deleteWhere(std::string_view column, std::string_view value);

  /// The side table's name: the table's, and this.
  static constexpr const char* kAsideSuffix = "_aside";
  /// Moves the row `rowId` into the side table (made on first use: the same columns, untyped, so
  /// that any row fits, then "reason" and "setAsideAt", seconds since 1970), keeping its latest
  /// `keep` rows. One savepoint: all of it or nothing, also inside a transaction.
  void setAside(std::int64_t rowId, std::string_view reason, std::size_t keep);

  /// BEGIN / COMMIT / ROLLBACK.
  void begin();
  void commit();
  void rollback();

  /// The log synced, copied into the file, the file synced; the log then emptied and begun anew
  /// when no other connection reads it (a launch after this one recovers a short log).
  void checkpoint();

  /// How many damaged files are kept beside the database.
  static constexpr std::size_t kKeptDamagedFiles = 3;

  /// Counts the times the file was opened: rows read before a change of it belong to another file.
  std::uint64_t generation() const;

  /// True when another connection has committed a change since the last call (PRAGMA
  /// data_version).
  bool changedElsewhere();

  /// The table's primary-key column, or empty when it has none.
  const std::string& primaryKeyColumn() const { return primaryKey_; }
  const TableBuilder& table() const;

  struct Impl;

 private:
  void beginScan();
  bool stepScan(std::int64_t& rowId);
  const RowReader& scanReader() const;
  void endScan();

  std::unique_ptr<Impl> impl_;
  std::string primaryKey_;
};

}  // namespace detail

/// The record store over SQLite: one long-lived connection to one file, one table named after the
/// record type, prepared statements kept for reuse, bound parameters only.
///
/// Rows are kept in memory as they are stored (`StoredRecord`, a few hundred bytes for an event),
/// by row id, and reused by later `allRows` calls, which then read only rows they have not seen:
/// rows are never updated, and a change made through another connection (another process) empties
/// the cache, so what `allRows` returns is always what the file holds. The cache is bounded: it
/// keeps the oldest rows up to `maxCachedBytes`; rows beyond are read (and decoded) again by every
/// `allRows` until older ones are gone.
template <Storable T>
class Database final : public DatabaseProtocol<T> {
 public:
  using Row = typename DatabaseProtocol<T>::Row;

  static constexpr std::size_t kDefaultMaxCachedBytes = DatabaseOptions{}.maxCachedBytes;

  /// Opens the database at `connectionLocation` (a file path, or "" for a temporary one) and
  /// creates the table (see `detail::SqliteTable`). Never throws: what failed is tried again by
  /// the next call, which throws when it still fails.
  explicit Database(const std::string& connectionLocation, DatabaseOptions options = {})
      : table_(connectionLocation, detail::tableOf<T>(), options.durability),
        maxCachedBytes_(options.maxCachedBytes) {}

  void add(const T& record) override {
    detail::RowValues values = encode(record);
    std::int64_t rowId = table_.insert(values);
    remember(std::make_shared<const StoredRecord<T>>(rowId, std::move(values)));
  }

  std::vector<Row> allRows() override {
    std::vector<Row> rows;
    rows.reserve(cache_.size() + 1);
    std::size_t cursor = 0;
    bool cacheChanged = false;
    bool checked = false;
    table_.scan([&](std::int64_t rowId, const detail::SqliteTable::RowReader& reader) {
      if (!checked) {
        // Asked within the scan's own read transaction: it costs no locking of its own. (An
        // empty table leaves nothing cached to check.)
        checked = true;
        // A file opened again (found damaged, say) holds other rows than the ones kept.
        if (table_.changedElsewhere() || generation_ != table_.generation()) {
          forget();
          generation_ = table_.generation();
          cacheChanged = true;
        }
      }
      while (cursor < cache_.size() && cache_[cursor]->rowId() < rowId) {
        ++cursor;  // a row deleted since it was cached
        cacheChanged = true;
      }
      if (cursor < cache_.size() && cache_[cursor]->rowId() == rowId) {
        rows.push_back(cache_[cursor]);
        ++cursor;
        return;
      }
      auto row = std::make_shared<const StoredRecord<T>>(rowId, reader.values());
      row->check();  // a row that does not read back fails the whole call
      rows.push_back(std::move(row));
      cacheChanged = true;
    });
    if (cacheChanged || cursor != cache_.size()) {
      forget();
      for (const Row& row : rows) {
        if (!remember(row)) {
          break;
        }
      }
    }
    return rows;
  }

  void deleteRows(std::string_view column, const std::string& value) override {
    table_.deleteWhere(column, value);
  }

  void deleteRow(std::string_view primaryKey) override {
    const std::string& key = table_.primaryKeyColumn();
    if (key.empty()) {
      throw Error(Error::Domain::database, 1, "no primary key to delete by");
    }
    table_.deleteWhere(key, primaryKey);
    // The cached copy is dropped by the next `allRows`, which no longer meets its row id.
  }

  void inTransaction(const std::function<void()>& work) override {
    table_.begin();
    try {
      work();
    } catch (...) {
      try {
        table_.rollback();
      } catch (...) {  // NOLINT(bugprone-empty-catch): the first failure is the one reported
      }
      throw;
    }
    table_.commit();
  }

  void setAside(std::int64_t rowId, std::string_view reason) override {
    table_.setAside(rowId, reason, this->kMaxRowsAside);
    // The cached copy is dropped by the next `allRows`, which no longer meets its row id.
  }

  std::vector<typename DatabaseProtocol<T>::DamagedRow> damagedRows() override {
    std::vector<typename DatabaseProtocol<T>::DamagedRow> damaged;
    table_.scan([&](std::int64_t rowId, const detail::SqliteTable::RowReader& reader) {
      StoredRecord<T> row(rowId, reader.values());
      try {
        row.check();
      } catch (const Error& error) {
        damaged.push_back({rowId, std::string(row.primaryKey()), error});
      }
    });
    return damaged;
  }

  void checkpoint() override { table_.checkpoint(); }

  /// Rows held in memory now, and their bytes.
  std::size_t cachedRows() const { return cache_.size(); }
  std::size_t cachedBytes() const { return cachedBytes_; }

 private:
  static detail::RowValues encode(const T& record) {
    try {
      if constexpr (WritesOwnColumns<T>) {
        return record.toRow();
      } else {
        return detail::rowValuesFromJson(detail::tableOf<T>(), record.toJson());
      }
    } catch (...) {
      throw detail::storageErrorFromCurrentException();
    }
  }

  static std::size_t footprint(const Row& row) {
    // The row, its shared control block and its buffer.
    return sizeof(StoredRecord<T>) + 2 * sizeof(void*) + row->values().footprint();
  }

  /// Keeps `row` after the kept rows when it fits in the budget. SQLite gives a new row an id
  /// above every live one, so a kept row whose id is not below it is gone (its id is reused):
  /// those are dropped first.
  bool remember(Row row) {
    while (!cache_.empty() && cache_.back()->rowId() >= row->rowId()) {
      cachedBytes_ -= footprint(cache_.back());
      cache_.pop_back();
    }
    const std::size_t bytes = footprint(row);
    if (cachedBytes_ + bytes > maxCachedBytes_) {
      return false;
    }
    cache_.push_back(std::move(row));
    cachedBytes_ += bytes;
    return true;
  }

  void forget() {
    cache_.clear();
    cachedBytes_ = 0;
  }

  detail::SqliteTable table_;
  std::uint64_t generation_ = 0;
  std::size_t maxCachedBytes_;
  std::vector<Row> cache_;  ///< sorted by row id
  std::size_t cachedBytes_ = 0;
};

}  // namespace orvanta
