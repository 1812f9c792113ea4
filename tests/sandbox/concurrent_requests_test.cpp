#include <thread>

#include "sandbox_client.hpp"

namespace orvanta::sandbox::testing {
namespace {

using namespace std::chrono_literals;

class ConcurrentRequestsTest : public SandboxTest {};

// Sixteen keep-alive clients: the first request of each is held in the server until all sixteen
// are in at once (none waits for another connection to finish); then they all post together,
// each sending its first event twice. Nothing is lost or counted twice. Throughput is measured by
// bench/sandbox_throughput.cpp.
TEST_F(ConcurrentRequestsTest, SixteenConnectionsAreServedAtOnceAndEveryPostIsCounted) {
  constexpr int kClients = 16;
  constexpr int kEach = 20;
  sandbox->setFault(Endpoint::event, Fault{.delay = 60s});
  std::vector<int> created(kClients, 0);
  std::vector<std::thread> threads;
  for (int clientIndex = 0; clientIndex < kClients; ++clientIndex) {
    threads.emplace_back([&, clientIndex] {
      SandboxClient own;
      for (int i = 0; i < kEach; ++i) {
        const std::string event = validEvent(credentials(), clientIndex * 1000.0 + i).dump();
        const auto headers = eventHeaders(credentials());
        created[static_cast<std::size_t>(clientIndex)] +=
            own.send("POST", url("event"), headers, event).status == 201 ? 1 : 0;
        if (i == 0) {
          own.send("POST", url("event"), headers, event);
        }
      }
    });
  }
  EXPECT_TRUE(
      sandbox->waitFor([&] { return sandbox->inFlight(Endpoint::event).now == kClients; }, 10s));
  sandbox->clearFaults();
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
  EXPECT_EQ(sandbox->inFlight(Endpoint::event).now, 0);
  EXPECT_EQ(sandbox->inFlight(Endpoint::event).max, kClients);
  EXPECT_TRUE(sandbox->violations().empty());
}

}  // namespace
}  // namespace orvanta::sandbox::testing
