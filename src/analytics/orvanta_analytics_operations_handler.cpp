#include "analytics/orvanta_analytics_operations_handler.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "analytics/orvanta_analytics_event_post_operation.hpp"
#include "core/logger.hpp"

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
    OrvantaLogger::error("Event " + std::string(row->primaryKey()) + " set aside, not sent: " +
                         reason);
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

  /// A post of `event` succeeded (HTTP client's thread).
  void deliveredRow(EventDatabase::Row row) {
    std::lock_guard lock(mutex);
    if (!delivered.emplace(row->primaryKey()).second) {
      return;  // posted twice and already waiting
    }
    waiting.push_back(std::move(row));
    if (waiting.size() == 1 || waiting.size() == kDeletionBatch) {
      changed.notify_all();  // a turn to start, or one to stop waiting for more
    }
  }

  /// The deleter: every turn deletes all that is waiting, in one transaction. A turn starts
  /// when the first deletion arrives and waits a little for more (a commit costs as much as
  /// many deletions), unless enough are waiting or someone waits for the handler to be idle.
  /// After a stop it still deletes what was asked for, then ends.
  void run() {
    std::unique_lock lock(mutex);
    while (true) {
      changed.wait(lock, [&] { return stopping || !waiting.empty(); });
      changed.wait_for(lock, kDeletionLinger, [&] {
        return stopping || idleWaiters > 0 || waiting.size() >= kDeletionBatch;
      });
      if (waiting.empty()) {
        return;
      }
      std::vector<EventDatabase::Row> batch;
      batch.swap(waiting);
      deleting = true;
      lock.unlock();
      deleteRows(batch);
      lock.lock();
      deleting = false;
      changed.notify_all();
    }
  }

  void deleteRows(const std::vector<EventDatabase::Row>& batch) {
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
      }
      // Still inside the section, so that a flush sees each row either gone or left out.
      std::lock_guard lock(mutex);
      for (const auto& row : batch) {
        if (auto found = delivered.find(row->primaryKey()); found != delivered.end()) {
          delivered.erase(found);
        }
      }
    }
    // A row whose deletion failed is posted again by a later flush.
    for (const auto& [row, error] : failures) {
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
    try {
      shared_->database->add(*event);
    } catch (const Error& error) {
      failure = error;
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
  std::optional<Error> failure;
  {
    std::lock_guard section(shared_->databaseQueue);
    if (!shared_->database) {
      return;
    }
    try {
      rows = shared_->database->allRows();
      setAsideOversized(*shared_->database, rows);
    } catch (const Error& error) {
      failure = error;
    }
    std::lock_guard lock(shared_->mutex);
    if (!shared_->delivered.empty()) {
      std::erase_if(rows, [&](const EventDatabase::Row& row) {
        return shared_->delivered.find(row->primaryKey()) != shared_->delivered.end();
      });
    }
  }
  if (failure) {
    OrvantaLogger::verbose("Unable to fetch all events from database - " +
                           failure->localizedDescription());
    return;
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
  auto pause = kFirstFlushPause;
  while (true) {
    postEventsFromDatabase();
    const bool finished = operationQueue_.waitUntilAllOperationsAreFinished(deadline);
    if (finished) {
      waitForDeletions();
    }
    const std::optional<std::size_t> left = storedEvents();
    if (!left) {
      return 1;
    }
    const auto resume = std::chrono::steady_clock::now() + pause;
    if (*left == 0 || !finished || resume >= deadline) {
      return *left;
    }
    // Some posts failed (the service down, say): try again shortly, as a later flush would.
    std::unique_lock lock(shared_->mutex);
    if (shared_->changed.wait_until(lock, resume, [&] { return shared_->stopping; })) {
      return *left;
    }
    pause = std::min(pause * 2, kLongestFlushPause);
  }
}

std::optional<std::size_t> OrvantaAnalyticsOperationsHandler::storedEvents() {
  std::lock_guard section(shared_->databaseQueue);
  if (!shared_->database) {
    return 0;
  }
  try {
    const auto rows = shared_->database->allRows();
    std::lock_guard lock(shared_->mutex);
    return static_cast<std::size_t>(std::count_if(rows.begin(), rows.end(), [&](const auto& row) {
      return shared_->delivered.find(row->primaryKey()) == shared_->delivered.end();
    }));
  } catch (const Error& error) {
    OrvantaLogger::verbose("Unable to fetch all events from database - " +
                           error.localizedDescription());
    return std::nullopt;
  }
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
  shared_->changed.wait(lock, [&] { return shared_->waiting.empty() && !shared_->deleting; });
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
