#include "testing/storage_faults.hpp"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace orvanta::testing {

struct FaultyDisk::State {
  /// What the disk holds durably of one file: its size at its last sync, and what the writes
  /// since overwrote below that size (offset, old bytes), in order.
  struct Record {
    sqlite3_int64 syncedSize = 0;
    std::vector<std::pair<sqlite3_int64, std::string>> undo;
  };

  sqlite3_vfs vfs{};
  sqlite3_vfs* real = nullptr;
  std::atomic<Fault> fault{Fault::none};
  std::atomic<int> openErrno{EACCES};
  std::atomic<int> injectedErrno{0};
  std::atomic<bool> cut{false};

  mutable std::mutex mutex;  ///< every write, truncation, sync and the cut itself
  std::map<std::string, Record> records;
  std::size_t cutCountdown = 0;  ///< 0: no cut planned
  std::size_t syncs = 0;

  /// Called before each write, truncation or sync, lock held: false when the power is cut.
  bool powerOn() {
    if (cut) {
      return false;
    }
    if (cutCountdown > 0 && --cutCountdown == 0) {
      cutNow();
      return false;
    }
    return true;
  }

  /// Puts every file back as of its last sync. Lock held.
  void cutNow() {
    cut = true;
    for (auto& [path, record] : records) {
      int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
      if (fd < 0) {
        continue;
      }
      for (auto undo = record.undo.rbegin(); undo != record.undo.rend(); ++undo) {
        if (::pwrite(fd, undo->second.data(), undo->second.size(), undo->first) < 0) {
          break;
        }
      }
      if (::ftruncate(fd, record.syncedSize) != 0) {
        // The file keeps its unsynced tail; the tests then fail on what they find.
      }
      ::close(fd);
      record.undo.clear();
    }
  }
};

namespace {

struct FaultyFile {
  sqlite3_file base;
  FaultyDisk::State* state;
  std::string* path;  ///< none for SQLite's temporary files, which are not tracked
  sqlite3_file* real;
};

FaultyDisk::State* stateOf(sqlite3_vfs* vfs) {
  return static_cast<FaultyDisk::State*>(vfs->pAppData);
}

FaultyFile* faulty(sqlite3_file* file) {
  return reinterpret_cast<FaultyFile*>(file);
}

const sqlite3_io_methods* realMethods(FaultyFile* file) {
  return file->real->pMethods;
}

sqlite3_int64 sizeOf(FaultyFile* file) {
  sqlite3_int64 size = 0;
  realMethods(file)->xFileSize(file->real, &size);
  return size;
}

/// Keeps what a write or truncation over [offset, end) destroys of the durable part of a file.
void keepOldBytes(FaultyFile* file, sqlite3_int64 offset, sqlite3_int64 end) {
  if (file->path == nullptr) {
    return;
  }
  auto& record = file->state->records[*file->path];
  end = std::min(end, record.syncedSize);
  if (offset >= end) {
    return;
  }
  std::string old(static_cast<std::size_t>(end - offset), '\0');
  realMethods(file)->xRead(file->real, old.data(), static_cast<int>(old.size()), offset);
  record.undo.emplace_back(offset, std::move(old));
}

int fileClose(sqlite3_file* file) {
  auto* self = faulty(file);
  int code = realMethods(self)->xClose(self->real);
  delete self->path;
  self->path = nullptr;
  return code;
}

int fileRead(sqlite3_file* file, void* buffer, int amount, sqlite3_int64 offset) {
  auto* self = faulty(file);
  if (self->state->cut) {
    return SQLITE_IOERR_READ;
  }
  return realMethods(self)->xRead(self->real, buffer, amount, offset);
}

int fileWrite(sqlite3_file* file, const void* buffer, int amount, sqlite3_int64 offset) {
  auto* self = faulty(file);
  auto& state = *self->state;
  std::lock_guard lock(state.mutex);
  if (!state.powerOn()) {
    return SQLITE_IOERR_WRITE;
  }
  switch (state.fault.load()) {
    case FaultyDisk::Fault::readOnly:
      return SQLITE_IOERR_WRITE;
    case FaultyDisk::Fault::full:
      return SQLITE_FULL;
    default:
      break;
  }
  keepOldBytes(self, offset, offset + amount);
  return realMethods(self)->xWrite(self->real, buffer, amount, offset);
}

int fileTruncate(sqlite3_file* file, sqlite3_int64 size) {
  auto* self = faulty(file);
  auto& state = *self->state;
  std::lock_guard lock(state.mutex);
  if (!state.powerOn()) {
    return SQLITE_IOERR_TRUNCATE;
  }
  const sqlite3_int64 current = sizeOf(self);
  if (state.fault == FaultyDisk::Fault::readOnly ||
      (state.fault == FaultyDisk::Fault::full && size > current)) {
    return state.fault == FaultyDisk::Fault::full ? SQLITE_FULL : SQLITE_IOERR_TRUNCATE;
  }
  keepOldBytes(self, size, current);
  return realMethods(self)->xTruncate(self->real, size);
}

int fileSync(sqlite3_file* file, int) {
  auto* self = faulty(file);
  auto& state = *self->state;
  std::lock_guard lock(state.mutex);
  if (!state.powerOn()) {
    return SQLITE_IOERR_FSYNC;
  }
  ++state.syncs;
  if (self->path != nullptr) {
    auto& record = state.records[*self->path];
    record.syncedSize = sizeOf(self);
    record.undo.clear();
  }
  return SQLITE_OK;  // what is durable is the model's to say; the real disk need not sync
}

int fileSize(sqlite3_file* file, sqlite3_int64* size) {
  auto* self = faulty(file);
  if (self->state->cut) {
    return SQLITE_IOERR_FSTAT;
  }
  return realMethods(self)->xFileSize(self->real, size);
}

int fileLock(sqlite3_file* file, int level) {
  return realMethods(faulty(file))->xLock(faulty(file)->real, level);
}
int fileUnlock(sqlite3_file* file, int level) {
  return realMethods(faulty(file))->xUnlock(faulty(file)->real, level);
}
int fileCheckReservedLock(sqlite3_file* file, int* result) {
  return realMethods(faulty(file))->xCheckReservedLock(faulty(file)->real, result);
}
int fileControl(sqlite3_file* file, int op, void* argument) {
  return realMethods(faulty(file))->xFileControl(faulty(file)->real, op, argument);
}
int fileSectorSize(sqlite3_file* file) {
  return realMethods(faulty(file))->xSectorSize(faulty(file)->real);
}
int fileDeviceCharacteristics(sqlite3_file* file) {
  return realMethods(faulty(file))->xDeviceCharacteristics(faulty(file)->real);
}
// The shared-memory index of the write-ahead log is rebuilt by the next process: it passes
// through untouched, power or not.
int fileShmMap(sqlite3_file* file, int page, int pageSize, int extend, void volatile** address) {
  return realMethods(faulty(file))->xShmMap(faulty(file)->real, page, pageSize, extend, address);
}
int fileShmLock(sqlite3_file* file, int offset, int count, int flags) {
  return realMethods(faulty(file))->xShmLock(faulty(file)->real, offset, count, flags);
}
void fileShmBarrier(sqlite3_file* file) {
  realMethods(faulty(file))->xShmBarrier(faulty(file)->real);
}
int fileShmUnmap(sqlite3_file* file, int deleteFlag) {
  return realMethods(faulty(file))->xShmUnmap(faulty(file)->real, deleteFlag);
}

// Version 2: no memory-mapped reads, so that every read goes through `fileRead`.
const sqlite3_io_methods kMethods = {
    2,
    fileClose,
    fileRead,
    fileWrite,
    fileTruncate,
    fileSync,
    fileSize,
    fileLock,
    fileUnlock,
    fileCheckReservedLock,
    fileControl,
    fileSectorSize,
    fileDeviceCharacteristics,
    fileShmMap,
    fileShmLock,
    fileShmBarrier,
    fileShmUnmap,
    nullptr,
    nullptr,
};

int vfsOpen(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags) {
  auto& state = *stateOf(vfs);
  auto* self = faulty(file);
  self->base.pMethods = nullptr;
  self->state = &state;
  self->path = nullptr;
  self->real = reinterpret_cast<sqlite3_file*>(self + 1);
  if (state.cut) {
    return SQLITE_CANTOPEN;
  }
  int exists = 0;
  if (name != nullptr) {
    state.real->xAccess(state.real, name, SQLITE_ACCESS_EXISTS, &exists);
  }
  const FaultyDisk::Fault fault = state.fault;
  if (fault == FaultyDisk::Fault::cannotOpen && (flags & SQLITE_OPEN_MAIN_DB) != 0) {
    state.injectedErrno = state.openErrno.load();
    return SQLITE_CANTOPEN;
  }
  if (fault == FaultyDisk::Fault::readOnly && name != nullptr) {
    if (exists == 0) {
      state.injectedErrno = EROFS;
      return SQLITE_CANTOPEN;
    }
    flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
  }
  int code = state.real->xOpen(state.real, name, self->real, flags, outFlags);
  if (code != SQLITE_OK) {
    return code;
  }
  state.injectedErrno = 0;
  if (name != nullptr) {
    self->path = new std::string(name);
    std::lock_guard lock(state.mutex);
    auto found = state.records.find(name);
    if (found == state.records.end() || exists == 0) {
      // A file that was there before counts as durable; a new one holds nothing until synced.
      state.records[name] = {exists != 0 ? sizeOf(self) : 0, {}};
    } else {
      // Changed behind the disk's back (removed and made again by a test): no more than it holds.
      found->second.syncedSize = std::min(found->second.syncedSize, sizeOf(self));
    }
  }
  self->base.pMethods = &kMethods;
  return SQLITE_OK;
}

int vfsDelete(sqlite3_vfs* vfs, const char* name, int syncDirectory) {
  auto& state = *stateOf(vfs);
  std::lock_guard lock(state.mutex);
  if (state.cut || state.fault == FaultyDisk::Fault::readOnly) {
    return SQLITE_IOERR_DELETE;
  }
  state.records.erase(name);
  return state.real->xDelete(state.real, name, syncDirectory);
}

int vfsAccess(sqlite3_vfs* vfs, const char* name, int flags, int* result) {
  auto& state = *stateOf(vfs);
  return state.real->xAccess(state.real, name, flags, result);
}
int vfsFullPathname(sqlite3_vfs* vfs, const char* name, int size, char* out) {
  auto& state = *stateOf(vfs);
  return state.real->xFullPathname(state.real, name, size, out);
}
void* vfsDlOpen(sqlite3_vfs* vfs, const char* name) {
  return stateOf(vfs)->real->xDlOpen(stateOf(vfs)->real, name);
}
void vfsDlError(sqlite3_vfs* vfs, int size, char* message) {
  stateOf(vfs)->real->xDlError(stateOf(vfs)->real, size, message);
}
void (*vfsDlSym(sqlite3_vfs* vfs, void* handle, const char* symbol))(void) {
  return stateOf(vfs)->real->xDlSym(stateOf(vfs)->real, handle, symbol);
}
void vfsDlClose(sqlite3_vfs* vfs, void* handle) {
  stateOf(vfs)->real->xDlClose(stateOf(vfs)->real, handle);
}
int vfsRandomness(sqlite3_vfs* vfs, int size, char* out) {
  return stateOf(vfs)->real->xRandomness(stateOf(vfs)->real, size, out);
}
int vfsSleep(sqlite3_vfs* vfs, int microseconds) {
  return stateOf(vfs)->real->xSleep(stateOf(vfs)->real, microseconds);
}
int vfsCurrentTime(sqlite3_vfs* vfs, double* now) {
  return stateOf(vfs)->real->xCurrentTime(stateOf(vfs)->real, now);
}
int vfsGetLastError(sqlite3_vfs* vfs, int size, char* message) {
  auto& state = *stateOf(vfs);
  if (int injected = state.injectedErrno.load(); injected != 0) {
    return injected;
  }
  return state.real->xGetLastError(state.real, size, message);
}
int vfsCurrentTimeInt64(sqlite3_vfs* vfs, sqlite3_int64* now) {
  return stateOf(vfs)->real->xCurrentTimeInt64(stateOf(vfs)->real, now);
}

}  // namespace

FaultyDisk::FaultyDisk() : state_(std::make_unique<State>()) {
  sqlite3_initialize();
  State& state = *state_;
  state.real = sqlite3_vfs_find(nullptr);
  if (state.real == nullptr || state.real->iVersion < 2) {
    throw std::runtime_error("no default SQLite VFS to wrap");
  }
  state.vfs.iVersion = 2;
  state.vfs.szOsFile = static_cast<int>(sizeof(FaultyFile)) + state.real->szOsFile;
  state.vfs.mxPathname = state.real->mxPathname;
  state.vfs.zName = "orvanta-faulty-disk";
  state.vfs.pAppData = &state;
  state.vfs.xOpen = vfsOpen;
  state.vfs.xDelete = vfsDelete;
  state.vfs.xAccess = vfsAccess;
  state.vfs.xFullPathname = vfsFullPathname;
  state.vfs.xDlOpen = vfsDlOpen;
  state.vfs.xDlError = vfsDlError;
  state.vfs.xDlSym = vfsDlSym;
  state.vfs.xDlClose = vfsDlClose;
  state.vfs.xRandomness = vfsRandomness;
  state.vfs.xSleep = vfsSleep;
  state.vfs.xCurrentTime = vfsCurrentTime;
  state.vfs.xGetLastError = vfsGetLastError;
  state.vfs.xCurrentTimeInt64 = vfsCurrentTimeInt64;
  sqlite3_vfs_register(&state.vfs, 1);
}

FaultyDisk::~FaultyDisk() {
  sqlite3_vfs_unregister(&state_->vfs);
  sqlite3_vfs_register(state_->real, 1);
}

void FaultyDisk::setFault(Fault fault, int openErrno) {
  state_->openErrno = openErrno;
  state_->fault = fault;
}

void FaultyDisk::cut() {
  std::lock_guard lock(state_->mutex);
  state_->cutNow();
}

void FaultyDisk::cutAfter(std::size_t operations) {
  std::lock_guard lock(state_->mutex);
  state_->cutCountdown = operations;
}

bool FaultyDisk::isCut() const {
  return state_->cut;
}

void FaultyDisk::restore() {
  std::lock_guard lock(state_->mutex);
  state_->cut = false;
  state_->cutCountdown = 0;
}

std::size_t FaultyDisk::syncs() const {
  std::lock_guard lock(state_->mutex);
  return state_->syncs;
}

}  // namespace orvanta::testing
