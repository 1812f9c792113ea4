#pragma once

#include <memory>
#include <string>

#include "testing/child_process.hpp"
#include "testing/temporary_directory.hpp"

namespace orvanta::testing {

/// A message bus of the test's own: `dbus-daemon` started with a session configuration that lets
/// this user in, listens in a fresh temporary folder and starts no services (nothing installed on
/// the machine answers on it). The constructor returns once the daemon printed its address; the
/// destructor ends the daemon and reaps it. Use it from one thread.
///
///   PrivateSessionBus bus;
///   ASSERT_TRUE(bus.started()) << bus.failure();
///   connectTo(bus.address());
class PrivateSessionBus {
 public:
  PrivateSessionBus();

  bool started() const { return !address_.empty(); }
  /// Why the daemon did not start (its own messages included); empty once started.
  const std::string& failure() const { return failure_; }
  /// The D-Bus address clients connect to ("unix:path=...,guid=...").
  const std::string& address() const { return address_; }
  /// A folder that lives as long as the bus, for the test's own files.
  const TemporaryDirectory& directory() const { return *directory_; }

 private:
  std::unique_ptr<TemporaryDirectory> directory_;
  std::unique_ptr<ChildServer> daemon_;  // after the folder: ends first
  std::string address_;
  std::string failure_;
};

}  // namespace orvanta::testing
