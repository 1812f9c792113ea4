#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "analytics/event_database.hpp"
#include "analytics/operation_queue.hpp"
#include "core/owned_thread.hpp"
#include "models/orvanta_event.hpp"
#include "networking/events_service.hpp"

namespace orvanta {

/// The event queue as the analytics facade sees it.
class OrvantaAnalyticsOperationsHandlerProtocol {
 public:
  virtual ~OrvantaAnalyticsOperationsHandlerProtocol() = default;
  /// Stores `event`; posts nothing. Blocks the caller for the insert.
  virtual void addEventToDatabase(std::shared_ptr<const OrvantaEvent> event) = 0;
  /// Posts every stored event, one post each. Blocks the caller for the fetch only.
  virtual void postEventsFromDatabase() = 0;
  /// Cancels the posts that have not started; rows stay for a later flush.
  virtual void cancelAllOperations() = 0;
  /// Posts every stored event and waits for the posts; while some fail, waits a little and posts
  /// again, until no event is left or `deadline` has passed. How many events are left (stored, or
  /// held in memory until they can be stored; at least 1 when they can't be read). Then
  /// `checkpoint`. Blocks the caller; not from a post's own thread.
  virtual std::size_t flush(std::chrono::steady_clock::time_point deadline) = 0;
  /// Makes every stored event durable, so that a power cut can't take it: the events held in
  /// memory are stored, then the database checkpointed and synced. Blocks the caller.
  virtual void checkpoint() = 0;

  /// The queue as the handler last saw it (at its last fetch, and counting what was added and
  /// delivered since); nothing before the first event or flush. Never waits for the database.
  struct QueueState {
    std::size_t waiting = 0;                ///< events stored or held, not yet delivered
    std::optional<double> oldestCreatedAt;  ///< the oldest one's creation, seconds since 1970
  };
  virtual QueueState queueState() { return {}; }
};

/// Keeps tracked events in the event database and posts them to the events endpoint, at most 10
/// at a time, deleting a row only after its own post succeeded.
///
/// Every flush makes one post per stored row, even for rows whose post from an earlier flush is
/// still in flight: the service may receive an event more than once, never less than once.
///
/// Database work is serialised by one mutex (the serial database queue): the insert and the fetch
/// are done on the caller's thread; the deletions run on the handler's own thread
/// ("orvanta-database"), which takes every row whose post has succeeded since its last turn and
/// deletes them in one transaction. A row whose post succeeded counts as deleted from then on: a
/// flush before its deletion has run does not post it again. Posts start on the operation queue's
/// thread, or on the HTTP client's thread where the previous post ended. Always owned by a
/// `std::shared_ptr` (`make`): posts hold the handler weakly and do nothing once it is gone; the
/// handler's end waits for the deletions already asked for. Every member may be called from any
/// thread.
///
/// A fetch sets aside (`DatabaseProtocol::setAside`) a stored event whose body is over
/// `kMaxEventBodyBytes` (the facade refuses such events; an earlier version stored them), with one
/// error line, rather than post it for ever to a service that refuses it. A fetch that fails on
/// rows that do not decode sets them aside too, one error line each, and fetches again, so the
/// other rows go out in the same flush.
///
/// When the database can't be written (a full or read-only disk, a file that can't be opened),
/// nothing is lost: an event whose insert failed is held in memory (at most
/// `kMaxEventsHeldInMemory` events or `kMaxBytesHeldInMemory`; beyond, the oldest go, with a
/// line saying how many) and stored before the next fetch, and only then posted; a deletion that
/// failed is tried again on the handler's thread (when a write succeeds again, else after a
/// pause), its row left out of every flush meanwhile. One error line when writing starts to
/// fail, one line when it works again.
class OrvantaAnalyticsOperationsHandler
    : public OrvantaAnalyticsOperationsHandlerProtocol,
      public std::enable_shared_from_this<OrvantaAnalyticsOperationsHandler> {
 public:
  struct Dependencies {
    /// None when the database could not be opened: events are then neither stored nor sent.
    std::shared_ptr<EventDatabase> eventsDatabase;
    /// Makes the service of each post (a fresh `EventsService` over a new router, in the kit).
    /// Required.
    std::function<std::shared_ptr<EventsServiceProtocol>()> makeEventsService;
  };

  static constexpr std::size_t kMaxConcurrentOperationCount = 10;
  static constexpr std::size_t kMaxEventsHeldInMemory = 1000;
  static constexpr std::size_t kMaxBytesHeldInMemory = std::size_t{1} << 20;

  static std::shared_ptr<OrvantaAnalyticsOperationsHandler> make(Dependencies dependencies);

  /// Prefer `make`.
  explicit OrvantaAnalyticsOperationsHandler(Dependencies dependencies);
  /// Runs the deletions already asked for, then stops the handler's thread.
  ~OrvantaAnalyticsOperationsHandler() override;

  void addEventToDatabase(std::shared_ptr<const OrvantaEvent> event) override;
  void postEventsFromDatabase() override;
  void cancelAllOperations() override;
  std::size_t flush(std::chrono::steady_clock::time_point deadline) override;
  void checkpoint() override;
  QueueState queueState() override;

  /// Blocks until no post is waiting or running and every deletion they asked for has run. For
  /// tests and tools; not from a post's own thread.
  void waitUntilIdle();
  /// Blocks until every deletion asked for so far (by posts that have ended) has run (or failed,
  /// and waits to be tried again).
  void waitForDeletions();
  /// Events held in memory because they could not be stored.
  std::size_t eventsHeldInMemory();

  OperationQueue& operationQueue() { return operationQueue_; }

  /// The handler's state that its thread shares.
  struct Shared;

 private:
  std::shared_ptr<AsynchronousOperation> postEvent(const EventDatabase::Row& row);
  /// Events not yet delivered, stored or held in memory; none when they can't be read.
  std::optional<std::size_t> eventsLeft();

  /// Starts the handler's thread, once: with the first post that succeeds, so that a launch
  /// that delivers nothing costs no thread.
  void startDeleter();

  Dependencies dependencies_;
  std::shared_ptr<Shared> shared_;
  OperationQueue operationQueue_;
  std::once_flag deleterStarted_;
  OwnedThread deleter_;  ///< started by the first post that succeeds
};

namespace detail {

/// An event as log lines print it in full: its stored form, compact JSON with all eight keys.
std::string describeEvent(const OrvantaEvent& event);
/// An event's parameters as log lines print them: one compact JSON object, keys in order, dates
/// as seconds since 2001-01-01.
std::string describeParameters(const OrvantaEvent& event);

}  // namespace detail

}  // namespace orvanta
