#include "analytics/orvanta_analytics_operations_handler.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "analytics/orvanta_analytics_event_post_operation.hpp"
#include "core/health.hpp"
#include "core/logger.hpp"
#include "core/utf8.hpp"

namespace orvanta {

namespace detail {

std::string describeEvent(const OrvantaEvent& event) {
  try {
    return event.toJson().dump();
  } catch (const std::exception&) {
    return "{\"uuidId\":\"" + event.uuidId + "\"}";
  }
}

std::string describeParameters(const OrvantaEvent& event) {
  try {
    // Merged as `OrvantaEvent::parameters()` merges them: a later map wins.
    nlohmann::json merged = nlohmann::json::object();
    nlohmann::ordered_json json = event.toJson();
    for (const char* key : {"additionalStringFields", "additionalNumericFields",
                            "additionalBoolFields", "additionalDateFields"}) {
      for (const auto& [name, value] : json[key].items()) {
        merged[name] = value;
      }
    }
    return merged.dump();
  } catch (const std::exception&) {
    return "{}";
  }
}

}  // namespace detail

namespace {

constexpr const char* kOperationQueueName =
    "com.tessamoor.orvantaAnalyticsOperationsHandler.operationQueue";

/// How long the deleter waits for more deletions to share one transaction, and how many are
/// enough not to wait.
constexpr std::chrono::milliseconds kDeletionLinger{5};
constexpr std::size_t kDeletionBatch = 256;

/// How long a flush that waits for delivery pauses after a round with failures, at first and at
/// most.
constexpr std::chrono::milliseconds kFirstFlushPause{250};
constexpr std::chrono::milliseconds kLongestFlushPause{2000};

/// How long failed deletions wait before they are tried again (unless a write succeeds first), at
/// first and at most.
constexpr std::chrono::milliseconds kFirstDeletionRetry{1000};
constexpr std::chrono::milliseconds kLongestDeletionRetry{30000};

/// A row's key as a log line shows it: a damaged row's may be anything.
std::string shownKey(std::string_view key) {
  constexpr std::size_t kShown = 64;
  return key.size() > kShown ? repairedUtf8(key.substr(0, kShown)) + "..." : std::string(key);
}

/// Whether a failed write says the database can't be written now (a full or read-only disk, a
/// file that can't be opened), rather than that it refuses this row.
bool isStorageFault(const Error& error) {
  return (error.domain() == Error::Domain::database || error.domain() == Error::Domain::system) &&
         !detail::isConstraintFailure(error);
}

/// What an event held in memory costs, roughly: its texts and the nodes of its maps.
std::size_t approximateBytes(const OrvantaEvent& event) {
  constexpr std::size_t kNode = 64;
  std::size_t bytes =
      sizeof(OrvantaEvent) + event.uuidId.size() + event.pushId.size() + event.name.size();
  for (const auto& [key, value] : event.additionalStringFields) {
    bytes += kNode + key.size() + value.size();
  }
  for (const auto& [key, value] : event.additionalNumericFields) {
    bytes += kNode + key.size();
  }
  for (const auto& [key, value] : event.additionalBoolFields) {
    bytes += kNode + key.size();
  }
  for (const auto& [key, value] : event.additionalDateFields) {
    bytes += kNode + key.size();
  }
  return bytes;
}

/// Sets aside every stored row that does not decode, one error line each. Whether any was set
/// aside. Inside the serial database section.
bool setAsideDamaged(EventDatabase& database) {
  std::vector<EventDatabase::DamagedRow> damaged;
  try {
    damaged = database.damagedRows();
  } catch (const Error&) {
    return false;  // the table itself does not read: nothing to set aside row by row
  }
  bool setAside = false;
  for (const auto& row : damaged) {
    const std::string reason = "it does not decode: " + row.error.localizedDescription();
    try {
      database.setAside(row.rowId, reason);
    } catch (const Error& error) {
      OrvantaLogger::error("Could not set event " + shownKey(row.primaryKey) +
                           " aside: " + error.localizedDescription());
      continue;
    }
    setAside = true;
    OrvantaLogger::error("Event " + shownKey(row.primaryKey) + " set aside, not sent: " + reason);
  }
  return setAside;
}

/// Moves out of `rows`, and out of the table, every event whose body the service would refuse
/// for its size. Inside the serial database section.
void setAsideOversized(EventDatabase& database, std::vector<EventDatabase::Row>& rows) {
  std::erase_if(rows, [&](const EventDatabase::Row& row) {
    if (!OrvantaEvent::rowMayBeOversized(row->values())) {
      return false;
    }
    auto size = row->record().oversizedBody();
    if (!size) {
      return false;
    }
    const std::string reason = "body of " + std::to_string(*size) + " bytes, over the " +
                               std::to_string(kMaxEventBodyBytes) + " the service takes";
    try {
      database.setAside(row->rowId(), reason);
    } catch (const Error& error) {
      OrvantaLogger::error("Could not set event " + std::string(row->primaryKey()) +
                           " aside: " + error.localizedDescription());
      return true;  // not posted either: the service would refuse it
    }
    OrvantaLogger::error("Event " + std::string(row->primaryKey()) +
                         " set aside, not sent: " + reason);
    return true;
  });
}

/// Looks keys up by `std::string_view` without making a string.
struct KeyHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view key) const { return std::hash<std::string_view>()(key); }
};

}  // namespace

struct OrvantaAnalyticsOperationsHandler::Shared {
  std::shared_ptr<EventDatabase> database;
  /// The serial database section, entered synchronously by the caller. Taken before `mutex`.
  std::mutex databaseQueue;

  // In the section:
  /// Events whose insert failed, oldest first, stored again before the next fetch.
  std::deque<std::shared_ptr<const OrvantaEvent>> heldInMemory;
  std::size_t bytesHeldInMemory = 0;
  /// Events dropped from memory since writing began to fail.
  std::size_t droppedFromMemory = 0;
  bool writesFailing = false;

  std::mutex mutex;
  std::condition_variable changed;
  /// Rows whose post succeeded, waiting for the deleter (the packed rows, already in memory).
  std::vector<EventDatabase::Row> waiting;
  /// Keys of the rows whose post succeeded and whose deletion has not run yet (waiting or being
  /// deleted): a flush leaves them out.
  std::unordered_set<std::string, KeyHash, std::equal_to<>> delivered;
  bool deleting = false;
  bool stopping = false;
  std::size_t idleWaiters = 0;  ///< callers of `waitUntilIdle`
  /// Rows whose deletion failed, still in `delivered`: tried again at `retryAt`, or at once when
  /// `retryNow` (a write succeeded since).
  std::vector<EventDatabase::Row> retrying;
  std::chrono::steady_clock::time_point retryAt;
  std::chrono::milliseconds retryPause = kFirstDeletionRetry;
  bool retryNow = false;
  /// The queue as the handler last saw it: events stored or held in memory and not delivered,
  /// and the oldest one's key and creation time.
  QueueState queue;
  std::string oldestKey;

  /// An event joined the queue. Under `mutex`.
  void queued(const OrvantaEvent& event) {
    if (queue.waiting++ == 0) {
      queue.oldestCreatedAt = event.createdAt;
      oldestKey = event.uuidId;
    }
  }

  /// A fetch saw `rows` (those not delivered) and `held` events in memory. In the section.
  void sawQueue(const std::vector<EventDatabase::Row>& rows) {
    std::optional<double> oldest;
    std::string key;
    if (!heldInMemory.empty()) {
      oldest = heldInMemory.front()->createdAt;
      key = heldInMemory.front()->uuidId;
    }
    std::lock_guard lock(mutex);
    if (!rows.empty()) {
      // The first row is the oldest stored; read back only when it changed.
      if (rows.front()->primaryKey() == oldestKey && queue.oldestCreatedAt) {
        oldest = queue.oldestCreatedAt;
      } else {
        try {
          oldest = rows.front()->record().createdAt;
        } catch (const Error&) {
          oldest.reset();
        }
      }
      key = std::string(rows.front()->primaryKey());
    }
    queue.waiting = rows.size() + heldInMemory.size();
    queue.oldestCreatedAt = oldest;
    oldestKey = std::move(key);
  }

  /// A write failed because the database can't be written: one error line when a run of such
  /// failures begins. In the section.
  void writesFailed(const Error& error) {
    health::count(health::Counter::storageErrors);
    if (writesFailing) {
      return;
    }
    writesFailing = true;
    OrvantaLogger::error("The event database can't be written (" + error.localizedDescription() +
                         "): events are held in memory until it can, at most " +
                         std::to_string(kMaxEventsHeldInMemory) + " events or " +
                         std::to_string(kMaxBytesHeldInMemory >> 20) + " MiB");
  }

  /// A write succeeded: after failures, one line, and the deletions that failed are tried again
  /// now. `stored`: events held in memory that are stored now. In the section.
  void writesWork(std::size_t stored) {
    if (!writesFailing) {
      return;
    }
    writesFailing = false;
    OrvantaLogger::info([&] {
      std::string line = "The event database can be written again";
      if (stored > 0) {
        line += ": the " + std::to_string(stored) + " events held in memory are stored";
      }
      if (droppedFromMemory > 0) {
        line += ", " + std::to_string(droppedFromMemory) + " older ones were dropped";
      }
      return line;
    });
    droppedFromMemory = 0;
    std::lock_guard lock(mutex);
    if (!retrying.empty()) {
      retryNow = true;
      changed.notify_all();
    }
  }

  /// Holds `event` in memory, within the bounds: the oldest go first. In the section.
  void holdInMemory(std::shared_ptr<const OrvantaEvent> event) {
    bytesHeldInMemory += approximateBytes(*event);
    heldInMemory.push_back(std::move(event));
    std::size_t dropped = 0;
    while (heldInMemory.size() > kMaxEventsHeldInMemory ||
           bytesHeldInMemory > kMaxBytesHeldInMemory) {
      bytesHeldInMemory -= approximateBytes(*heldInMemory.front());
      heldInMemory.pop_front();
      ++dropped;
    }
    if (dropped > 0) {
      std::lock_guard lock(mutex);
      queue.waiting -= std::min(queue.waiting, dropped);
    }
    for (std::size_t i = 0; i < dropped; ++i) {
      // Said at the first one dropped, then at the 10th, the 100th...
      const std::size_t count = ++droppedFromMemory;
      std::size_t power = 1;
      while (power < count) {
        power *= 10;
      }
      if (power == count) {
        OrvantaLogger::error(
            std::to_string(count) +
            (count == 1 ? " event held in memory was" : " events held in memory were") +
            " dropped, the oldest first: the event database still can't be written");
      }
    }
  }

  /// Stores the events held in memory: the oldest alone first (while the disk still refuses, that
  /// is all it costs), then the others in one transaction. The error when some stay in memory.
  /// In the section.
  std::optional<Error> storeHeldEvents() {
    if (heldInMemory.empty()) {
      return std::nullopt;
    }
    const std::size_t held = heldInMemory.size();
    try {
      storeHeld(*heldInMemory.front());
      bytesHeldInMemory -= approximateBytes(*heldInMemory.front());
      heldInMemory.pop_front();
      health::count(health::Counter::eventsStored);
      if (!heldInMemory.empty()) {
        database->inTransaction([&] {
          for (const auto& event : heldInMemory) {
            storeHeld(*event);
          }
        });
        health::count(health::Counter::eventsStored, heldInMemory.size());
      }
    } catch (const Error& error) {
      writesFailed(error);
      return error;
    }
    heldInMemory.clear();
    bytesHeldInMemory = 0;
    writesWork(held);
    return std::nullopt;
  }

  void storeHeld(const OrvantaEvent& event) {
    try {
      database->add(event);
    } catch (const Error& error) {
      if (!detail::isConstraintFailure(error)) {
        throw;
      }
      // Its key is stored already: an insert reported as failed had gone through.
    }
  }

  /// Every stored row, those that do not decode set aside first (after the required line for the
  /// failed fetch); none when they can't be read. In the section.
  std::optional<std::vector<EventDatabase::Row>> fetchRows() {
    for (bool retried = false;; retried = true) {
      try {
        auto rows = database->allRows();
        setAsideOversized(*database, rows);
        return rows;
      } catch (const Error& error) {
        health::count(health::Counter::storageErrors);
        OrvantaLogger::verbose("Unable to fetch all events from database - " +
                               error.localizedDescription());
        if (retried || error.domain() != Error::Domain::decoding || !setAsideDamaged(*database)) {
          return std::nullopt;
        }
      }
    }
  }

  /// A post of `event` succeeded (HTTP client's thread).
  void deliveredRow(EventDatabase::Row row) {
    std::lock_guard lock(mutex);
    if (!delivered.emplace(row->primaryKey()).second) {
      return;  // posted twice and already waiting
    }
    if (queue.waiting > 0 && --queue.waiting == 0) {
      queue.oldestCreatedAt.reset();
      oldestKey.clear();
    }
    waiting.push_back(std::move(row));
    if (waiting.size() == 1 || waiting.size() == kDeletionBatch) {
      changed.notify_all();  // a turn to start, or one to stop waiting for more
    }
  }

  /// The deleter: every turn deletes all that is waiting, in one transaction. A turn starts
  /// when the first deletion arrives and waits a little for more (a commit costs as much as
  /// many deletions), unless enough are waiting or someone waits for the handler to be idle.
  /// Deletions that failed are tried again with the next turn that is due: when a write has
  /// succeeded since, or after a pause (doubling). After a stop it still deletes what was asked
  /// for, and tries the failed ones once more, then ends.
  void run() {
    std::unique_lock lock(mutex);
    while (true) {
      const auto due = [&] {
        return stopping || !waiting.empty() || (!retrying.empty() && retryNow);
      };
      if (retrying.empty()) {
        changed.wait(lock, due);
      } else if (!changed.wait_until(lock, retryAt, due)) {
        retryNow = true;
      }
      if (!waiting.empty()) {
        changed.wait_for(lock, kDeletionLinger, [&] {
          return stopping || idleWaiters > 0 || waiting.size() >= kDeletionBatch;
        });
      }
      std::vector<EventDatabase::Row> batch;
      batch.swap(waiting);
      if (retryNow || stopping) {
        batch.insert(batch.end(), retrying.begin(), retrying.end());
        retrying.clear();
      }
      retryNow = false;
      if (batch.empty()) {
        if (stopping) {
          return;
        }
        continue;
      }
      deleting = true;
      lock.unlock();
      std::vector<EventDatabase::Row> failed = deleteRows(batch);
      lock.lock();
      deleting = false;
      if (failed.empty()) {
        retryPause = kFirstDeletionRetry;
      } else {
        retrying.insert(retrying.end(), failed.begin(), failed.end());
        retryAt = std::chrono::steady_clock::now() + retryPause;
        retryPause = std::min(retryPause * 2, kLongestDeletionRetry);
      }
      changed.notify_all();
      if (stopping && waiting.empty()) {
        return;
      }
    }
  }

  /// Deletes `batch` in one transaction; the rows whose deletion failed (kept in `delivered`, so
  /// that no flush posts them again before they are deleted).
  std::vector<EventDatabase::Row> deleteRows(const std::vector<EventDatabase::Row>& batch) {
    std::vector<std::pair<const EventDatabase::Row*, Error>> failures;
    {
      std::lock_guard section(databaseQueue);
      if (database) {
        try {
          database->inTransaction([&] {
            for (const auto& row : batch) {
              try {
                database->deleteRow(row->primaryKey());
              } catch (const Error& error) {
                failures.emplace_back(&row, error);
              }
            }
          });
        } catch (const Error& error) {
          failures.clear();  // not committed: none of them is deleted
          for (const auto& row : batch) {
            failures.emplace_back(&row, error);
          }
        }
        if (failures.empty()) {
          writesWork(0);
        } else if (isStorageFault(failures.front().second)) {
          writesFailed(failures.front().second);
        } else {
          health::count(health::Counter::storageErrors);
        }
      }
      // Still inside the section, so that a flush sees each row either gone or left out.
      std::lock_guard lock(mutex);
      std::size_t next = 0;
      for (const auto& row : batch) {
        if (next < failures.size() && failures[next].first == &row) {
          ++next;
          continue;
        }
        if (auto found = delivered.find(row->primaryKey()); found != delivered.end()) {
          delivered.erase(found);
        }
      }
    }
    std::vector<EventDatabase::Row> failed;
    for (const auto& [row, error] : failures) {
      failed.push_back(*row);
      OrvantaLogger::verbose([&] {
        std::string event;
        try {
          event = detail::describeEvent((*row)->record());
        } catch (const Error&) {
          event = "{\"uuidId\":\"" + std::string((*row)->primaryKey()) + "\"}";
        }
        return "Could not remove event - " + event + " from database\nerror - " +
               error.localizedDescription();
      });
    }
    return failed;
  }
};

std::shared_ptr<OrvantaAnalyticsOperationsHandler> OrvantaAnalyticsOperationsHandler::make(
    Dependencies dependencies) {
  return std::make_shared<OrvantaAnalyticsOperationsHandler>(std::move(dependencies));
}

OrvantaAnalyticsOperationsHandler::OrvantaAnalyticsOperationsHandler(Dependencies dependencies)
    : dependencies_(std::move(dependencies)),
      shared_(std::make_shared<Shared>()),
      operationQueue_(kOperationQueueName, kMaxConcurrentOperationCount) {
  shared_->database = dependencies_.eventsDatabase;
}

void OrvantaAnalyticsOperationsHandler::startDeleter() {
  std::call_once(deleterStarted_, [this] {
    deleter_ = OwnedThread("orvanta-database", [shared = shared_] { shared->run(); });
  });
}

OrvantaAnalyticsOperationsHandler::~OrvantaAnalyticsOperationsHandler() {
  {
    std::lock_guard lock(shared_->mutex);
    shared_->stopping = true;
    shared_->changed.notify_all();
  }
  deleter_.join();
}

void OrvantaAnalyticsOperationsHandler::addEventToDatabase(
    std::shared_ptr<const OrvantaEvent> event) {
  if (!event) {
    return;
  }
  std::optional<Error> failure;
  {
    std::lock_guard section(shared_->databaseQueue);
    if (!shared_->database) {
      return;
    }
    if (!shared_->heldInMemory.empty()) {
      // After those held before it, so that events are stored in the order they came.
      {
        std::lock_guard lock(shared_->mutex);
        shared_->queued(*event);
      }
      shared_->holdInMemory(event);
      failure = shared_->storeHeldEvents();
    } else {
      try {
        shared_->database->add(*event);
        health::count(health::Counter::eventsStored);
        {
          std::lock_guard lock(shared_->mutex);
          shared_->queued(*event);
        }
        shared_->writesWork(0);
      } catch (const Error& error) {
        failure = error;
        if (isStorageFault(error)) {
          shared_->writesFailed(error);
          {
            std::lock_guard lock(shared_->mutex);
            shared_->queued(*event);
          }
          shared_->holdInMemory(event);
        } else {
          health::count(health::Counter::storageErrors);
        }
      }
    }
  }
  if (failure) {
    OrvantaLogger::verbose([&] {
      return "Could not add Event - " + detail::describeEvent(*event) + " to database\nerror - " +
             failure->localizedDescription();
    });
  }
}

void OrvantaAnalyticsOperationsHandler::postEventsFromDatabase() {
  std::vector<EventDatabase::Row> rows;
  {
    std::lock_guard section(shared_->databaseQueue);
    if (!shared_->database) {
      return;
    }
    // Events held in memory go out only once stored: a row is deleted after its post succeeded.
    shared_->storeHeldEvents();
    auto fetched = shared_->fetchRows();
    if (!fetched) {
      return;
    }
    rows = std::move(*fetched);
    {
      std::lock_guard lock(shared_->mutex);
      if (!shared_->delivered.empty()) {
        std::erase_if(rows, [&](const EventDatabase::Row& row) {
          return shared_->delivered.find(row->primaryKey()) != shared_->delivered.end();
        });
      }
    }
    shared_->sawQueue(rows);
  }
  if (rows.empty()) {
    return;
  }
  // One post per row, made when its turn comes: queuing ten thousand rows costs this thread one
  // entry, not ten thousand operations.
  auto events = std::make_shared<const std::vector<EventDatabase::Row>>(std::move(rows));
  std::weak_ptr<OrvantaAnalyticsOperationsHandler> weak = weak_from_this();
  operationQueue_.addOperations(
      events->size(), [weak, events](std::size_t index) -> std::shared_ptr<AsynchronousOperation> {
        auto self = weak.lock();
        if (!self) {
          return nullptr;
        }
        return self->postEvent((*events)[index]);
      });
}

void OrvantaAnalyticsOperationsHandler::cancelAllOperations() {
  operationQueue_.cancelAllOperations();
}

std::size_t OrvantaAnalyticsOperationsHandler::flush(
    std::chrono::steady_clock::time_point deadline) {
  std::size_t left = 1;
  auto pause = kFirstFlushPause;
  while (true) {
    postEventsFromDatabase();
    const bool finished = operationQueue_.waitUntilAllOperationsAreFinished(deadline);
    if (finished) {
      waitForDeletions();
    }
    const std::optional<std::size_t> counted = eventsLeft();
    left = counted.value_or(1);
    const auto resume = std::chrono::steady_clock::now() + pause;
    if (!counted || left == 0 || !finished || resume >= deadline) {
      break;
    }
    // Some posts failed (the service down, say), or events wait in memory for the disk: try
    // again shortly, as a later flush would.
    std::unique_lock lock(shared_->mutex);
    if (shared_->changed.wait_until(lock, resume, [&] { return shared_->stopping; })) {
      break;
    }
    pause = std::min(pause * 2, kLongestFlushPause);
  }
  checkpoint();
  return left;
}

void OrvantaAnalyticsOperationsHandler::checkpoint() {
  std::lock_guard section(shared_->databaseQueue);
  if (!shared_->database) {
    return;
  }
  shared_->storeHeldEvents();
  try {
    shared_->database->checkpoint();
  } catch (const Error& error) {
    OrvantaLogger::verbose("Could not checkpoint the event database - " +
                           error.localizedDescription());
  }
}

std::optional<std::size_t> OrvantaAnalyticsOperationsHandler::eventsLeft() {
  std::lock_guard section(shared_->databaseQueue);
  if (!shared_->database) {
    return 0;
  }
  const std::size_t held = shared_->heldInMemory.size();
  try {
    const auto rows = shared_->database->allRows();
    std::lock_guard lock(shared_->mutex);
    return held +
           static_cast<std::size_t>(std::count_if(rows.begin(), rows.end(), [&](const auto& row) {
             return shared_->delivered.find(row->primaryKey()) == shared_->delivered.end();
           }));
  } catch (const Error& error) {
    OrvantaLogger::verbose("Unable to fetch all events from database - " +
                           error.localizedDescription());
    return held > 0 ? std::optional<std::size_t>(held) : std::nullopt;
  }
}

OrvantaAnalyticsOperationsHandler::QueueState OrvantaAnalyticsOperationsHandler::queueState() {
  std::lock_guard lock(shared_->mutex);
  return shared_->queue;
}

std::size_t OrvantaAnalyticsOperationsHandler::eventsHeldInMemory() {
  std::lock_guard section(shared_->databaseQueue);
  return shared_->heldInMemory.size();
}

void OrvantaAnalyticsOperationsHandler::waitUntilIdle() {
  // A post hands its deletion over before it finishes, so once no post is left every deletion
  // has been asked for.
  operationQueue_.waitUntilAllOperationsAreFinished();
  waitForDeletions();
}

void OrvantaAnalyticsOperationsHandler::waitForDeletions() {
  std::unique_lock lock(shared_->mutex);
  ++shared_->idleWaiters;
  shared_->changed.notify_all();
  shared_->changed.wait(lock, [&] {
    return shared_->waiting.empty() && !shared_->deleting &&
           !(shared_->retryNow && !shared_->retrying.empty());
  });
  --shared_->idleWaiters;
}

std::shared_ptr<AsynchronousOperation> OrvantaAnalyticsOperationsHandler::postEvent(
    const EventDatabase::Row& row) {
  // Rows are kept packed; the event is read back only for its own post.
  auto event = std::make_shared<const OrvantaEvent>(row->record());
  std::shared_ptr<EventsServiceProtocol> service = dependencies_.makeEventsService();
  auto operation = std::make_shared<OrvantaAnalyticsEventPostOperation>(
      OrvantaAnalyticsEventPostOperation::OperationDependencies{event, std::move(service)});
  std::weak_ptr<OrvantaAnalyticsOperationsHandler> weak = weak_from_this();
  operation->output.operationFinishedWithSuccess = [weak, event, row](bool success) {
    // Messages are built only when they are printed: a drain of thousands of events must not
    // pay for text nobody reads.
    if (success) {
      OrvantaLogger::info([&] {
        if (event->additionalStringFields.empty() && event->additionalNumericFields.empty() &&
            event->additionalBoolFields.empty() && event->additionalDateFields.empty()) {
          return "Successfully sent event: " + event->name;
        }
        return "Successfully sent event: " + event->name +
               ", parameters: " + detail::describeParameters(*event);
      });
      if (auto self = weak.lock()) {
        self->startDeleter();
        self->shared_->deliveredRow(row);
      }
    } else {
      OrvantaLogger::error(
          [&] { return "Failed to send event: " + detail::describeEvent(*event); });
    }
  };
  return operation;
}

}  // namespace orvanta
