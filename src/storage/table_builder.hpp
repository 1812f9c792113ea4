#pragma once

#include <string>
#include <vector>

namespace orvanta {

enum class SqlType { text, integer, real, blob };

/// One column of a table: name, declared type and constraints.
struct ColumnDefinition {
  std::string name;
  SqlType type = SqlType::text;
  bool primaryKey = false;
  bool notNull = false;

  friend bool operator==(const ColumnDefinition&, const ColumnDefinition&) = default;
};

struct ColumnConstraints {
  bool primaryKey = false;
  bool notNull = false;
};

/// Collects the columns a record declares for its table (see `OrvantaEvent::create`) and renders
/// the statement that creates it: a plain CREATE TABLE (no IF NOT EXISTS, not temporary, with a
/// row id), identifiers in double quotes.
class TableBuilder {
 public:
  explicit TableBuilder(std::string tableName);

  TableBuilder& column(std::string name, SqlType type, ColumnConstraints constraints = {});

  const std::string& tableName() const { return tableName_; }
  const std::vector<ColumnDefinition>& columns() const { return columns_; }

  /// CREATE TABLE "t" ("a" TEXT PRIMARY KEY NOT NULL, "b" REAL NOT NULL, ...)
  std::string createStatement() const;

 private:
  std::string tableName_;
  std::vector<ColumnDefinition> columns_;
};

/// `name` in double quotes, inner double quotes doubled.
std::string quoteIdentifier(const std::string& name);

}  // namespace orvanta
