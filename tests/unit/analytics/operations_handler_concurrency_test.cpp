// The event queue with every thread it has at once: producers tracking and flushing, posts ending
// on a thread of the service's own (and starting the next ones there), the deleter. Runs under
// ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "analytics/orvanta_analytics_impl.hpp"
#include "analytics/orvanta_analytics_operations_handler.hpp"
#include "core/owned_thread.hpp"
#include "storage/common_data.hpp"
#include "testing/mock_devices_service.hpp"
#include "testing/platform_test.hpp"
#include "testing/storage_faults.hpp"
#include "testing/temporary_directory.hpp"
#include "user/orvanta_user_data_impl.hpp"

namespace orvanta {
namespace {

/// Answers posts on its own thread, in arrival order: two of every three succeed.
class AnsweringService : public EventsServiceProtocol {
 public:
  AnsweringService() : thread_("answering", [this] { run(); }) {}
  ~AnsweringService() override {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
      wake_.notify_all();
    }
    thread_.join();
  }

  void addEvent(const OrvantaEvent& event, CompletionHandler<Void> handler) override {
    std::lock_guard lock(mutex_);
    pending_.emplace_back(event.uuidId, std::move(handler));
    wake_.notify_all();
  }

  std::set<std::string> delivered() {
    std::lock_guard lock(mutex_);
    return delivered_;
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    while (true) {
      wake_.wait(lock, [&] { return stopping_ || !pending_.empty(); });
      if (pending_.empty()) {
        return;
      }
      auto [uuid, handler] = std::move(pending_.front());
      pending_.pop_front();
      const bool success = ++answered_ % 3 != 0;
      if (success) {
        delivered_.insert(uuid);
      }
      lock.unlock();  // the handler starts the next post, which calls addEvent
      if (success) {
        handler.onNext();
      } else {
        handler.onError(Error::statusCode(503));
      }
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::pair<std::string, CompletionHandler<Void>>> pending_;
  std::set<std::string> delivered_;
  unsigned answered_ = 0;
  bool stopping_ = false;
  OwnedThread thread_;
};

/// Tracks 60 events from each of three threads at once, each event followed by a flush, calling
/// `before(producer, index)` before each. The events' keys.
std::set<std::string> trackFromThreads(OrvantaAnalyticsOperationsHandler& handler,
                                       const std::function<void(int, int)>& before = {}) {
  constexpr int kProducers = 3;
  constexpr int kEvents = 60;
  std::mutex trackedMutex;
  std::set<std::string> tracked;
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kEvents; ++i) {
        if (before) {
          before(p, i);
        }
        auto event = std::make_shared<const OrvantaEvent>(
            "token", "app", "p" + std::to_string(p) + "-" + std::to_string(i), 1.0 * i,
            ValueMap{{"i", i}});
        {
          std::lock_guard lock(trackedMutex);
          tracked.insert(event->uuidId);
        }
        handler.addEventToDatabase(event);
        handler.postEventsFromDatabase();
      }
    });
  }
  for (auto& producer : producers) {
    producer.join();
  }
  return tracked;
}

TEST(OperationsHandlerConcurrencyTest, ProducersPostsAndDeletionsAtOnceLoseNothing) {
  testing::TemporaryDirectory root;
  auto database = std::make_shared<Database<OrvantaEvent>>(root.file("events.sqlite"));
  // The test owns the service, so that it is destroyed here and never by the last post's
  // completion on the service's own thread, which would free the loop that is running it.
  AnsweringService service;
  std::shared_ptr<EventsServiceProtocol> borrowed(std::shared_ptr<void>{}, &service);
  auto handler =
      OrvantaAnalyticsOperationsHandler::make({database, [borrowed] { return borrowed; }});
  const std::set<std::string> tracked = trackFromThreads(*handler);

  // Flush until every row is gone: each flush delivers two of three remaining rows at least.
  for (int round = 0; round < 50; ++round) {
    handler->waitUntilIdle();
    if (database->allRows().empty()) {
      break;
    }
    handler->postEventsFromDatabase();
  }
  handler->waitUntilIdle();
  EXPECT_TRUE(database->allRows().empty());
  EXPECT_EQ(service.delivered(), tracked);
}

// The same while the disk fills, empties, turns read-only and back under the producers, the
// posts' deletions and the deleter's retries: events wait in memory, deletions are tried again,
// and every event is delivered in the end.
TEST(OperationsHandlerConcurrencyTest, TheDiskComingAndGoingUnderEveryThreadLosesNothing) {
  testing::TemporaryDirectory root;
  testing::FaultyDisk disk;
  auto database = std::make_shared<Database<OrvantaEvent>>(root.file("events.sqlite"));
  AnsweringService service;
  std::shared_ptr<EventsServiceProtocol> borrowed(std::shared_ptr<void>{}, &service);
  auto handler =
      OrvantaAnalyticsOperationsHandler::make({database, [borrowed] { return borrowed; }});
  using Fault = testing::FaultyDisk::Fault;
  const std::set<std::string> tracked = trackFromThreads(*handler, [&](int p, int i) {
    const Fault faults[] = {Fault::full, Fault::none, Fault::readOnly, Fault::none};
    if (i % 5 == 0) {
      disk.setFault(faults[(i / 5 + p) % 4]);  // under the other producers' feet
    }
  });

  // Each flush stores what waits in memory and delivers two of three remaining events at least.
  disk.setFault(testing::FaultyDisk::Fault::none);
  for (int round = 0; round < 50 && service.delivered() != tracked; ++round) {
    handler->postEventsFromDatabase();
    handler->waitUntilIdle();
  }
  EXPECT_EQ(handler->eventsHeldInMemory(), 0u);
  EXPECT_EQ(service.delivered(), tracked);
  handler.reset();
}

}  // namespace
}  // namespace orvanta

namespace orvanta {
namespace {

class TrackingWhileTheRecordIsRewrittenTest : public testing::PlatformTest {};

// The host's threads track while others rewrite the device record (profiles saved, tokens stored)
// and the last opened push: a track that meets a record being replaced still sees the token, so
// every event is stored and delivered.
TEST_F(TrackingWhileTheRecordIsRewrittenTest, EveryTrackedEventIsStoredAndDelivered) {
  auto auth = AuthData::make(authDataDependencies(std::make_shared<MockDevicesService>()));
  auth->storeDeviceTokenAndRegister("first-token");
  AnsweringService service;
  std::shared_ptr<EventsServiceProtocol> borrowed(std::shared_ptr<void>{}, &service);
  auto database = context().eventStore();
  auto handler =
      OrvantaAnalyticsOperationsHandler::make({database, [borrowed] { return borrowed; }});
  auto analytics = OrvantaAnalytics::Impl::make({.operationsHandler = handler,
                                                 .authData = auth,
                                                 .lifecycle = nullptr,
                                                 .clock = platform()->clock,
                                                 .configFile = context().configFile()});
  auto user = std::make_shared<OrvantaUserData::Impl>(OrvantaUserData::Impl::Dependencies{auth});

  constexpr int kTrackers = 3;
  constexpr int kEvents = 100;
  {
    std::vector<std::thread> threads;
    for (int t = 0; t < kTrackers; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kEvents; ++i) {
          analytics->trackEvent("t" + std::to_string(t) + "-" + std::to_string(i), {{"i", i}});
        }
      });
    }
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        user->edit([i](OrvantaDevice& device) { device.user.email = std::to_string(i) + "@x"; });
        user->saveUser();
      }
    });
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        auth->storeDeviceTokenAndRegister("token-" + std::to_string(i));
        context().commonData()->setLastOpenedPushId("push-" + std::to_string(i));
      }
    });
    for (auto& thread : threads) {
      thread.join();
    }
  }

  for (int round = 0; round < 50; ++round) {
    handler->waitUntilIdle();
    if (database->allRows().empty()) {
      break;
    }
    handler->postEventsFromDatabase();
  }
  handler->waitUntilIdle();
  EXPECT_TRUE(database->allRows().empty());
  EXPECT_EQ(service.delivered().size(), static_cast<std::size_t>(kTrackers * kEvents));
}

}  // namespace
}  // namespace orvanta
