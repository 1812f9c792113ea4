#pragma once

// Storage that fails on demand, for the tests of what the kit keeps when the disk does not:
// `FaultyDisk` under SQLite (the event database) and `FaultySecureStore` over a secure store.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "orvanta/port/secure_store.hpp"

namespace orvanta::testing {

/// A SQLite VFS over the system's, installed as the process's default VFS for as long as it lives
/// (every connection opened meanwhile goes through it; close them before it ends). It passes
/// everything through, except what it is told to break:
///
/// - `Fault::full`: every write, and every truncation that would grow a file, fails with
///   SQLITE_FULL, as on a full disk whose files have no block to reuse;
/// - `Fault::readOnly`: every write, truncation and deletion fails (SQLITE_IOERR_*), files are
///   opened read-only and none can be made, as on a file system remounted read-only;
/// - `Fault::cannotOpen`: opening a database file fails with `errno` `openErrno`.
///
/// Power cuts: from construction on, the disk keeps, for every file, what its last sync made
/// durable, and undoes every later write at `cut()`, as a power loss would; files created since
/// their last sync come back empty. Syncs are recorded, not performed: the model is the disk.
/// `cutAfter(n)` cuts at the n-th write, truncation or sync from then on, before doing it, so a
/// cut can fall anywhere inside a transaction. Once cut, every read, write and open fails until
/// `restore()`: the connections of the process that "died" must be closed before it.
///
/// Thread-safe.
class FaultyDisk {
 public:
  enum class Fault { none, full, readOnly, cannotOpen };

  FaultyDisk();
  ~FaultyDisk();
  FaultyDisk(const FaultyDisk&) = delete;
  FaultyDisk& operator=(const FaultyDisk&) = delete;

  void setFault(Fault fault, int openErrno = EACCES);

  /// Cuts the power now: every file as of its last sync; every operation fails until `restore`.
  void cut();
  /// Cuts the power before the `operations`-th write, truncation or sync from now (1: the next).
  void cutAfter(std::size_t operations);
  /// True once the power is cut (by `cut` or `cutAfter`).
  bool isCut() const;
  /// Power back: operations pass through again, the files as the cut left them.
  void restore();

  /// Syncs asked for so far.
  std::size_t syncs() const;

  struct State;  ///< internal

 private:
  std::unique_ptr<State> state_;
};

/// A secure store over another whose writes and deletions fail (answer `failure`, as a full or
/// read-only disk makes them) while `failing` is set; reads always pass through.
class FaultySecureStore : public port::SecureStore {
 public:
  explicit FaultySecureStore(std::shared_ptr<port::SecureStore> store) : store_(std::move(store)) {}

  std::optional<std::string> read(const std::string& account) override {
    return store_->read(account);
  }
  port::SecureStoreStatus add(const std::string& account, const std::string& bytes) override {
    return failing ? port::SecureStoreStatus::failure : store_->add(account, bytes);
  }
  port::SecureStoreStatus remove(const std::string& account) override {
    return failing ? port::SecureStoreStatus::failure : store_->remove(account);
  }

  std::atomic<bool> failing{false};

 private:
  std::shared_ptr<port::SecureStore> store_;
};

}  // namespace orvanta::testing
