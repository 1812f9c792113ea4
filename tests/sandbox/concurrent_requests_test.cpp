#include <thread>

#include "sandbox_client.hpp"

namespace orvanta::sandbox::testing {
namespace {

using namespace std::chrono_literals;

class ConcurrentRequestsTest : public SandboxTest {};

// Every request is held in the server until all sixteen are in at once: none waits for another
// connection to finish.
TEST_F(ConcurrentRequestsTest, SixteenConnectionsAreServedAtTheSameTime) {
  constexpr int kConnections = 16;
  sandbox->setFault(Endpoint::event, Fault{.delay = 60s});
  std::vector<long> statuses(kConnections, 0);
  std::vector<std::thread> threads;
  for (int i = 0; i < kConnections; ++i) {
    threads.emplace_back([&, i] {
      SandboxClient own;
      statuses[static_cast<std::size_t>(i)] =
          own.send("POST", url("event"), eventHeaders(credentials()),
                   validEvent(credentials(), 1.0 + i).dump())
              .status;
    });
  }
  EXPECT_TRUE(sandbox->waitFor(
      [&] { return sandbox->inFlight(Endpoint::event).now == kConnections; }, 10s));
  sandbox->clearFaults();
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(statuses, std::vector<long>(kConnections, 201));
  EXPECT_EQ(sandbox->eventCount(), static_cast<std::size_t>(kConnections));
  EXPECT_EQ(sandbox->inFlight(Endpoint::event).now, 0);
  EXPECT_EQ(sandbox->inFlight(Endpoint::event).max, kConnections);
}

TEST_F(ConcurrentRequestsTest, KeepAliveClientsPostingTogetherAreAllCounted) {
  constexpr int kClients = 12;
  constexpr int kEach = 40;
  std::vector<int> created(kClients, 0);
  std::vector<std::thread> threads;
  for (int clientIndex = 0; clientIndex < kClients; ++clientIndex) {
    threads.emplace_back([&, clientIndex] {
      SandboxClient own;
      for (int i = 0; i < kEach; ++i) {
        const auto event = validEvent(credentials(), clientIndex * 1000.0 + i);
        created[static_cast<std::size_t>(clientIndex)] +=
            own.send("POST", url("event"), eventHeaders(credentials()), event.dump()).status == 201
                ? 1
                : 0;
        // Every client sends its first event twice.
        if (i == 0) {
          own.send("POST", url("event"), eventHeaders(credentials()), event.dump());
        }
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(created, std::vector<int>(kClients, kEach));
  EXPECT_EQ(sandbox->eventCount(), static_cast<std::size_t>(kClients * kEach));
  EXPECT_EQ(sandbox->requestCount(), static_cast<std::size_t>(kClients * (kEach + 1)));
  int deliveries = 0;
  for (const auto& event : sandbox->events()) {
    deliveries += event.deliveries;
  }
  EXPECT_EQ(deliveries, kClients * (kEach + 1));
  EXPECT_LE(sandbox->inFlight(Endpoint::event).max, kClients);
  EXPECT_TRUE(sandbox->violations().empty());
}

}  // namespace
}  // namespace orvanta::sandbox::testing
