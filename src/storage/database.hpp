#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/json_coding.hpp"
#include "orvanta/error.hpp"
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

/// A store of records of one type. Every member throws an `Error` of the database domain (SQLite's
/// message and result code) or of the decoding domain (a row that does not read back). No locking
/// of its own: the caller serialises the calls.
template <Storable T>
class DatabaseProtocol {
 public:
  using DataType = T;
  /// Rows never change once written, so a row read back is shared rather than copied.
  using Row = std::shared_ptr<const T>;

  virtual ~DatabaseProtocol() = default;

  /// INSERT of one row. A second row with the same primary key is a constraint failure.
  virtual void add(Row row) = 0;
  /// Every row, in insertion (row id) order. The first row that does not decode fails the whole
  /// call, so one corrupt row hides all the others until it is deleted.
  virtual std::vector<Row> allRows() = 0;
  /// DELETE of the rows whose `column` equals `value`. `column` must be one of the table's.
  virtual void deleteRows(std::string_view column, const std::string& value) = 0;
  /// DELETE of the row with `row`'s primary key; deleting a row that is not there succeeds.
  virtual void deleteRow(const T& row) = 0;
};

namespace detail {

/// The SQLite side of `Database`: one connection, its prepared statements and the JSON form of
/// rows. Not a template, so SQLite stays out of the headers.
class SqliteTable {
 public:
  /// Opens (creating if needed) the file at `location` read-write; the empty location opens a
  /// private temporary database. WAL journal, synchronous=NORMAL, busy time-out of 5 s. Then
  /// creates the table, silently accepting "already exists" and logging any other failure.
  /// Throws the SQLite error when the file can't be opened.
  SqliteTable(const std::string& location, TableBuilder table);
  ~SqliteTable();
  SqliteTable(const SqliteTable&) = delete;
  SqliteTable& operator=(const SqliteTable&) = delete;

  /// Binds each column from the member of `row` with the same name and inserts; the new row id.
  std::int64_t insert(const nlohmann::ordered_json& row);

  /// Reads a row as the JSON object its record decodes from.
  class RowReader {
   public:
    virtual nlohmann::json read() const = 0;

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
  void deleteWhere(std::string_view column, const std::string& value);

  /// True when another connection has committed a change since the last call (PRAGMA
  /// data_version).
  bool changedElsewhere();

  /// The table's primary-key column, or empty when it has none.
  const std::string& primaryKeyColumn() const { return primaryKey_; }

  struct Impl;

 private:
  void beginScan();
  bool stepScan(std::int64_t& rowId);
  const RowReader& scanReader() const;
  void endScan();

  std::unique_ptr<Impl> impl_;
  std::string primaryKey_;
};

/// Turns what a record's `toJson` / `fromJson` threw into the kit's error.
Error storageErrorFromCurrentException();

}  // namespace detail

/// The record store over SQLite: one long-lived connection to one file, one table named after the
/// record type, prepared statements kept for reuse, bound parameters only.
///
/// Decoded rows are kept in memory, by row id, and reused by later `allRows` calls: rows are never
/// updated, and a change made through another connection (another process) empties the cache, so
/// what `allRows` returns is always what the file holds.
template <Storable T>
class Database final : public DatabaseProtocol<T> {
 public:
  using Row = typename DatabaseProtocol<T>::Row;

  /// Opens the database at `connectionLocation` (a file path, or "" for a temporary one) and
  /// creates the table. Throws the SQLite error when the connection can't be opened.
  explicit Database(const std::string& connectionLocation)
      : table_(connectionLocation, makeTable()) {}

  void add(Row row) override {
    nlohmann::ordered_json json;
    try {
      json = row->toJson();
    } catch (...) {
      throw detail::storageErrorFromCurrentException();
    }
    std::int64_t rowId = table_.insert(json);
    remember(rowId, std::move(row));
  }

  std::vector<Row> allRows() override {
    if (table_.changedElsewhere()) {
      cache_.clear();
    }
    std::vector<Row> rows;
    rows.reserve(cache_.size() + 1);
    rowIds_.clear();
    std::size_t cursor = 0;
    bool cacheChanged = false;
    table_.scan([&](std::int64_t rowId, const detail::SqliteTable::RowReader& reader) {
      while (cursor < cache_.size() && cache_[cursor].first < rowId) {
        ++cursor;  // a row deleted since it was cached
        cacheChanged = true;
      }
      if (cursor < cache_.size() && cache_[cursor].first == rowId) {
        rows.push_back(cache_[cursor].second);
        ++cursor;
      } else {
        try {
          rows.push_back(std::make_shared<const T>(T::fromJson(reader.read())));
        } catch (...) {
          throw detail::storageErrorFromCurrentException();
        }
        cacheChanged = true;
      }
      rowIds_.push_back(rowId);
    });
    if (cacheChanged || cursor != cache_.size()) {
      cache_.clear();
      cache_.reserve(rows.size());
      for (std::size_t i = 0; i < rows.size(); ++i) {
        cache_.emplace_back(rowIds_[i], rows[i]);
      }
    }
    return rows;
  }

  void deleteRows(std::string_view column, const std::string& value) override {
    table_.deleteWhere(column, value);
  }

  void deleteRow(const T& row) override {
    const std::string& key = table_.primaryKeyColumn();
    if (key.empty()) {
      throw Error(Error::Domain::database, 1, "no primary key to delete by");
    }
    table_.deleteWhere(key, row.primaryKey());
    // The cached copy is dropped by the next `allRows`, which no longer meets its row id.
  }

 private:
  static TableBuilder makeTable() {
    TableBuilder builder{std::string(T::kTableName)};
    T::create(builder);
    return builder;
  }

  /// Keeps the row just inserted: a new row id is normally the largest; a reused one (the table was
  /// emptied) replaces whatever was cached under it.
  void remember(std::int64_t rowId, Row row) {
    if (cache_.empty() || cache_.back().first < rowId) {
      cache_.emplace_back(rowId, std::move(row));
      return;
    }
    auto at = std::lower_bound(cache_.begin(), cache_.end(), rowId,
                               [](const auto& entry, std::int64_t id) { return entry.first < id; });
    if (at != cache_.end() && at->first == rowId) {
      at->second = std::move(row);
    } else {
      cache_.emplace(at, rowId, std::move(row));
    }
  }

  detail::SqliteTable table_;
  std::vector<std::pair<std::int64_t, Row>> cache_;  ///< sorted by row id
  std::vector<std::int64_t> rowIds_;                 ///< scratch for `allRows`
};

}  // namespace orvanta
