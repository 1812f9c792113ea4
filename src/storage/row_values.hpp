#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvanta::detail {

/// One row's column values as the table holds them, in column order, packed into one buffer and
/// never changed. It is both what an insert binds and what a read hands back, so a row written by
/// this process is kept in memory exactly as it was written, at the cost of its bytes (a few
/// hundred for an event).
class RowValues {
 public:
  enum class Kind : std::uint8_t { null, integer, real, text };

  /// Appends columns in order; `finish` gives the row.
  class Builder {
   public:
    /// `dataBytes`: the expected size of the values (texts and 8 bytes per number), so that the
    /// row is made in one allocation.
    explicit Builder(std::size_t columns, std::size_t dataBytes = 192);
    void null();
    void integer(std::int64_t value);
    void real(double value);
    void text(std::string_view value);
    RowValues finish();

   private:
    bool slot(Kind kind, std::size_t size);
    std::string bytes_;  ///< the row being built: slots first, then the data
    std::size_t columns_;
    std::size_t written_ = 0;
  };

  RowValues() = default;

  std::size_t size() const;
  Kind kind(std::size_t column) const;
  /// The value of a column of that kind (0, 0.0 or "" for a column of another kind).
  std::int64_t integer(std::size_t column) const;
  double real(std::size_t column) const;
  std::string_view text(std::size_t column) const;

  /// The bytes the row takes in memory, its buffer included.
  std::size_t footprint() const { return sizeof(RowValues) + bytes_.capacity(); }

  friend bool operator==(const RowValues&, const RowValues&) = default;

 private:
  struct Slot {
    Kind kind;
    std::uint32_t offset;  ///< from the start of the data
    std::uint32_t size;
  };
  static constexpr std::size_t kSlotBytes = 5;
  Slot slotAt(std::size_t column) const;

  /// [column count: 2 bytes][per column: kind, 1 byte, and size, 4 bytes][data, the columns one
  /// after the other]; numbers are kept in the data as their 8 bytes.
  std::string bytes_;
};

}  // namespace orvanta::detail
