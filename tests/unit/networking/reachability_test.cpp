#include "networking/reachability.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "testing/manual_main_queue.hpp"

namespace orvanta {
namespace {

using ::testing::ElementsAre;
using Connection = Reachability::Connection;
using State = port::NetworkState;

constexpr State kWired{true, false, port::NetworkConnectivity::full};
constexpr State kMetered{true, true, port::NetworkConnectivity::full};
constexpr State kOffline{false, false, port::NetworkConnectivity::local};

/// A network monitor the test drives: `change` delivers a new state as the monitor's thread would.
class FakeNetworkMonitor : public port::NetworkMonitor {
 public:
  std::optional<State> state = kWired;
  bool canWatch = true;
  int stopCount = 0;

  std::optional<State> currentState() const override { return state; }
  bool startWatching(ChangeHandler onChange) override {
    if (!canWatch) {
      return false;
    }
    handler_ = std::move(onChange);
    return true;
  }
  void stopWatching() override {
    ++stopCount;
    handler_ = nullptr;
  }

  bool watching() const { return static_cast<bool>(handler_); }
  void change(State next) {
    state = next;
    if (handler_) {
      handler_(next);
    }
  }

 private:
  ChangeHandler handler_;
};

/// What reached the host, in order, and whether it ran on the main queue.
struct Delivery {
  std::string what;
  Connection connection;
  bool onMainQueue;
  friend bool operator==(const Delivery&, const Delivery&) = default;
};

class ReachabilityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    reachability = Reachability::make({monitor, queue});
    ASSERT_TRUE(reachability);
    reachability->setWhenReachable([this](Reachability& r) { record("reachable", r); });
    reachability->setWhenUnreachable([this](Reachability& r) { record("unreachable", r); });
    reachability->addObserver(
        [this](std::string_view name, Reachability& r) { record(std::string(name), r); });
  }

  void record(std::string what, Reachability& object) {
    EXPECT_EQ(&object, reachability.get());
    deliveries.push_back({std::move(what), object.connection(), queue->isCurrent()});
  }

  /// Runs the main queue and hands back what it delivered.
  std::vector<Delivery> deliver() {
    queue->runUntilIdle();
    return std::exchange(deliveries, {});
  }

  std::shared_ptr<FakeNetworkMonitor> monitor = std::make_shared<FakeNetworkMonitor>();
  std::shared_ptr<testing::ManualMainQueue> queue = std::make_shared<testing::ManualMainQueue>();
  std::shared_ptr<Reachability> reachability;
  std::vector<Delivery> deliveries;
};

TEST_F(ReachabilityTest, DeliversEachChangeOnTheMainQueueThenPostsTheNotification) {
  ASSERT_EQ(reachability->startNotifier(), std::nullopt);
  EXPECT_TRUE(reachability->isNotifierRunning());
  EXPECT_TRUE(deliveries.empty()) << "nothing runs before the main queue does";
  EXPECT_THAT(deliver(),
              ElementsAre(Delivery{"reachable", Connection::wifi, true},
                          Delivery{"ReachabilityChangedNotification", Connection::wifi, true}));

  monitor->change(kOffline);
  EXPECT_THAT(deliver(),
              ElementsAre(Delivery{"unreachable", Connection::none, true},
                          Delivery{"ReachabilityChangedNotification", Connection::none, true}));
  EXPECT_EQ(reachability->description(), "--l");

  monitor->change(kOffline);
  EXPECT_TRUE(deliver().empty()) << "the same state again is no change";

  monitor->change(kMetered);
  EXPECT_THAT(deliver(),
              ElementsAre(Delivery{"reachable", Connection::cellular, true},
                          Delivery{"ReachabilityChangedNotification", Connection::cellular, true}));
  EXPECT_EQ(reachability->currentReachabilityStatus(),
            Reachability::NetworkStatus::reachableViaWWAN);
  EXPECT_EQ(reachability->currentReachabilityString(), "Cellular");
  EXPECT_EQ(reachability->description(), "RMf");
}

TEST_F(ReachabilityTest, MeteredCountsAsNoConnectionWhenCellularIsNotAllowed) {
  reachability->setAllowsCellularConnection(false);
  monitor->state = kMetered;
  ASSERT_EQ(reachability->startNotifier(), std::nullopt);
  EXPECT_THAT(deliver(),
              ElementsAre(Delivery{"unreachable", Connection::none, true},
                          Delivery{"ReachabilityChangedNotification", Connection::none, true}));
  EXPECT_FALSE(reachability->isReachable());
  EXPECT_EQ(reachability->currentReachabilityString(), "No Connection");

  monitor->change(kWired);
  EXPECT_THAT(deliver(),
              ElementsAre(Delivery{"reachable", Connection::wifi, true},
                          Delivery{"ReachabilityChangedNotification", Connection::wifi, true}));
}

TEST_F(ReachabilityTest, AfterStopOrDestructionNothingMoreIsDelivered) {
  ASSERT_EQ(reachability->startNotifier(), std::nullopt);
  deliver();
  reachability->stopNotifier();
  EXPECT_FALSE(monitor->watching());
  EXPECT_FALSE(reachability->isNotifierRunning());
  monitor->change(kOffline);
  EXPECT_TRUE(deliver().empty());

  // A change already queued for the main queue does nothing once the monitor is gone.
  ASSERT_EQ(reachability->startNotifier(), std::nullopt);
  monitor->change(kWired);
  ASSERT_GT(queue->pendingCount(), 0u);
  reachability.reset();
  EXPECT_FALSE(monitor->watching()) << "destruction stops the notifier";
  EXPECT_TRUE(deliver().empty());
}

TEST_F(ReachabilityTest, ReadsTheStateOnDemandWithoutNotifying) {
  EXPECT_EQ(reachability->description(), "unavailable flags");
  monitor->state = kMetered;
  EXPECT_EQ(reachability->connection(), Connection::cellular);
  EXPECT_EQ(reachability->description(), "RMf");
  EXPECT_TRUE(deliver().empty());

  // Starting with the state already known and unchanged has nothing to tell.
  ASSERT_EQ(reachability->startNotifier(), std::nullopt);
  EXPECT_TRUE(deliver().empty());
  EXPECT_EQ(reachability->startNotifier(), std::nullopt) << "a second start does nothing";
}

TEST_F(ReachabilityTest, FailedStartsNameTheStepAndLeaveTheNotifierStopped) {
  monitor->canWatch = false;
  EXPECT_EQ(reachability->startNotifier(), ReachabilityError::unableToSetCallback);
  EXPECT_FALSE(reachability->isNotifierRunning());

  monitor->canWatch = true;
  monitor->state = std::nullopt;
  EXPECT_EQ(reachability->startNotifier(), ReachabilityError::unableToGetInitialFlags);
  EXPECT_FALSE(reachability->isNotifierRunning());
  EXPECT_FALSE(monitor->watching());
  EXPECT_EQ(reachability->connection(), Connection::none);
  EXPECT_EQ(reachability->description(), "unavailable flags");
}

}  // namespace
}  // namespace orvanta
