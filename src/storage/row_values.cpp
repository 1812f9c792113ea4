#include "storage/row_values.hpp"

#include <cstring>

namespace orvanta::detail {

RowValues::Builder::Builder(std::size_t columns, std::size_t dataBytes) : columns_(columns) {
  const std::size_t header = 2 + columns * kSlotBytes;
  bytes_.reserve(header + dataBytes);
  bytes_.resize(header);
  const auto count = static_cast<std::uint16_t>(columns);
  std::memcpy(bytes_.data(), &count, sizeof count);
}

bool RowValues::Builder::slot(Kind kind, std::size_t size) {
  if (written_ >= columns_) {
    return false;  // more values than columns: the extra ones are not kept
  }
  const auto size32 = static_cast<std::uint32_t>(size);
  char* at = bytes_.data() + 2 + written_ * kSlotBytes;
  at[0] = static_cast<char>(kind);
  std::memcpy(at + 1, &size32, sizeof size32);
  ++written_;
  return true;
}

void RowValues::Builder::null() {
  slot(Kind::null, 0);
}

void RowValues::Builder::integer(std::int64_t value) {
  if (slot(Kind::integer, sizeof value)) {
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
}

void RowValues::Builder::real(double value) {
  if (slot(Kind::real, sizeof value)) {
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
}

void RowValues::Builder::text(std::string_view value) {
  if (slot(Kind::text, value.size())) {
    bytes_.append(value);
  }
}

RowValues RowValues::Builder::finish() {
  while (written_ < columns_) {
    null();
  }
  RowValues row;
  row.bytes_ = std::move(bytes_);
  if (row.bytes_.capacity() > row.bytes_.size() + 64) {
    row.bytes_.shrink_to_fit();  // rows are kept: no room to spare
  }
  return row;
}

std::size_t RowValues::size() const {
  if (bytes_.empty()) {
    return 0;
  }
  std::uint16_t count = 0;
  std::memcpy(&count, bytes_.data(), sizeof count);
  return count;
}

RowValues::Slot RowValues::slotAt(std::size_t column) const {
  Slot slot{Kind::null, 0, 0};
  if (column >= size()) {
    return slot;
  }
  // A row has a handful of columns: the offset is the sum of the sizes before it.
  const char* at = bytes_.data() + 2;
  for (std::size_t i = 0; i <= column; ++i, at += kSlotBytes) {
    std::uint32_t size = 0;
    std::memcpy(&size, at + 1, sizeof size);
    if (i == column) {
      slot.kind = static_cast<Kind>(at[0]);
      slot.size = size;
    } else {
      slot.offset += size;
    }
  }
  return slot;
}

RowValues::Kind RowValues::kind(std::size_t column) const {
  return slotAt(column).kind;
}

std::int64_t RowValues::integer(std::size_t column) const {
  const Slot slot = slotAt(column);
  std::int64_t value = 0;
  if (slot.kind == Kind::integer) {
    std::memcpy(&value, bytes_.data() + 2 + size() * kSlotBytes + slot.offset, sizeof value);
  }
  return value;
}

double RowValues::real(std::size_t column) const {
  const Slot slot = slotAt(column);
  double value = 0.0;
  if (slot.kind == Kind::real) {
    std::memcpy(&value, bytes_.data() + 2 + size() * kSlotBytes + slot.offset, sizeof value);
  }
  return value;
}

std::string_view RowValues::text(std::size_t column) const {
  const Slot slot = slotAt(column);
  if (slot.kind != Kind::text) {
    return {};
  }
  return std::string_view(bytes_.data() + 2 + size() * kSlotBytes + slot.offset, slot.size);
}

}  // namespace orvanta::detail
