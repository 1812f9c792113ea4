#include "storage/table_builder.hpp"

namespace orvanta {
namespace {

const char* typeName(SqlType type) {
  switch (type) {
    case SqlType::text:
      return "TEXT";
    case SqlType::integer:
      return "INTEGER";
    case SqlType::real:
      return "REAL";
    case SqlType::blob:
      return "BLOB";
  }
  return "";
}

}  // namespace

TableBuilder::TableBuilder(std::string tableName) : tableName_(std::move(tableName)) {}

TableBuilder& TableBuilder::column(std::string name, SqlType type, ColumnConstraints constraints) {
  columns_.push_back(
      ColumnDefinition{std::move(name), type, constraints.primaryKey, constraints.notNull});
  return *this;
}

std::string TableBuilder::createStatement() const {
  std::string sql = "CREATE TABLE " + quoteIdentifier(tableName_) + " (";
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const ColumnDefinition& column = columns_[i];
    if (i > 0) {
      sql += ", ";
    }
    sql += quoteIdentifier(column.name);
    sql += ' ';
    sql += typeName(column.type);
    if (column.primaryKey) {
      sql += " PRIMARY KEY";
    }
    if (column.notNull) {
      sql += " NOT NULL";
    }
  }
  sql += ')';
  return sql;
}

std::string quoteIdentifier(const std::string& name) {
  std::string quoted = "\"";
  for (char c : name) {
    quoted += c;
    if (c == '"') {
      quoted += '"';
    }
  }
  quoted += '"';
  return quoted;
}

}  // namespace orvanta
