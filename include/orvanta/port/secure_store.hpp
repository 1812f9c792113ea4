#pragma once

#include <optional>
#include <string>

#include "orvanta/export.hpp"

namespace orvanta::port {

/// Outcome of a secure store operation, mirroring the platform key store's statuses.
enum class SecureStoreStatus { success, itemNotFound, failure };

/// The platform's secure key store: generic-password items identified by account name alone.
/// Implementations are thread-safe. Reads never return a partially written item.
class ORVANTA_API SecureStore {
 public:
  virtual ~SecureStore() = default;
  /// The item's bytes, or no value when it is missing or cannot be read for any reason.
  virtual std::optional<std::string> read(const std::string& account) = 0;
  /// Adds an item; an existing item under the same account is a failure (callers delete first).
  virtual SecureStoreStatus add(const std::string& account, const std::string& bytes) = 0;
  /// Deletes an item; `itemNotFound` when there is none.
  virtual SecureStoreStatus remove(const std::string& account) = 0;
};

}  // namespace orvanta::port
