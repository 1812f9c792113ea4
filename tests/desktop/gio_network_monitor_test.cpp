#include "linux/gio/gio_network_monitor.hpp"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "networking/reachability.hpp"
#include "testing/manual_main_queue.hpp"

namespace orvanta::linux_platform {
namespace {

// The kernel's routes only: the network monitor stays off the system bus.
class GioNetworkMonitorEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { ::setenv("GIO_USE_NETWORK_MONITOR", "netlink", 1); }
};
[[maybe_unused]] const auto* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new GioNetworkMonitorEnvironment());

TEST(GioNetworkMonitor, StartsReportsAStateAndStopsCleanly) {
  auto monitor = std::make_unique<GioNetworkMonitor>();
  const std::optional<port::NetworkState> state = monitor->currentState();
  ASSERT_TRUE(state.has_value());
  // The private monitor agrees with the process's default one.
  GNetworkMonitor* systemDefault = g_network_monitor_get_default();
  EXPECT_EQ(state->available, g_network_monitor_get_network_available(systemDefault) != FALSE);
  EXPECT_EQ(state->metered, g_network_monitor_get_network_metered(systemDefault) != FALSE);
  EXPECT_EQ(state->connectivity == port::NetworkConnectivity::full,
            g_network_monitor_get_connectivity(systemDefault) == G_NETWORK_CONNECTIVITY_FULL);
  EXPECT_TRUE(monitor->startWatching([](const port::NetworkState&) {}));
  monitor->stopWatching();
  EXPECT_TRUE(monitor->startWatching([](const port::NetworkState&) {}));
  monitor.reset();  // stops while watching, ends the loop and joins the thread
}

TEST(GioNetworkMonitor, DrivesReachabilityToItsFirstAnswer) {
  auto queue = std::make_shared<testing::ManualMainQueue>();
  auto reachability = Reachability::make({std::make_shared<GioNetworkMonitor>(), queue});
  int answers = 0;
  reachability->setWhenReachable([&](Reachability&) { ++answers; });
  reachability->setWhenUnreachable([&](Reachability&) { ++answers; });
  ASSERT_EQ(reachability->startNotifier(), std::nullopt);
  queue->runUntilIdle();
  EXPECT_GE(answers, 1);
  EXPECT_NE(reachability->description(), "unavailable flags");
  reachability->stopNotifier();
  reachability.reset();
}

}  // namespace
}  // namespace orvanta::linux_platform
