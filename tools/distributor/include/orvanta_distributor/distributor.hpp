#pragma once

// orvanta-distributor: a UnifiedPush distributor for development, on one machine.
//
//   auto distributor = orvanta::distributor::Distributor::start({.busAddress = bus.address()});
//   // applications register with it over D-Bus and get loopback endpoints; every POST to an
//   // endpoint reaches the application's connector as a Message.
//
// It owns a name "org.unifiedpush.Distributor.<something>" on a session bus and serves
// org.unifiedpush.Distributor1 and org.unifiedpush.Distributor2 at /org/unifiedpush/Distributor.
// Endpoints are http://127.0.0.1:<port>/up/<id>, served by the distributor itself. Registrations
// live as long as the distributor. A program registers (and unregisters) only under a bus name it
// owns; a request from a web page (with "Origin") is refused. An application that registered its
// server's VAPID key ("vapid", through Distributor2) gets only the POSTs signed with it
// ("Authorization: vapid t=<JWT>, k=<key>", RFC 8292): an unsigned one is answered 401, one signed
// with another key, wrongly, for another origin or with an expired token 403. Message bodies are
// forwarded as they came (encrypted pushes stay encrypted). Every member may be called from any
// thread.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvanta::distributor {

inline constexpr const char* kNamePrefix = "org.unifiedpush.Distributor.";

struct Options {
  // D-Bus address of the bus; empty: the session bus (DBUS_SESSION_BUS_ADDRESS first).
  std::string busAddress{};
  // The distributor's bus name, whole or the part after kNamePrefix.
  std::string name = "orvanta";
  // The HTTP port on 127.0.0.1; 0: an ephemeral port, see port().
  std::uint16_t port = 0;
  // When set, every registration is refused with this reason.
  std::optional<std::string> refuseReason{};
  // Serve org.unifiedpush.Distributor2 next to Distributor1.
  bool offerVersion2 = true;
  // Largest POST body forwarded; larger ones are answered 413.
  std::size_t maxMessageBytes = 1024 * 1024;
  // One line for people per registration, unregistration and message; called on the
  // distributor's threads.
  std::function<void(const std::string& line)> log{};
};

// An application registered with the distributor.
struct Registration {
  std::string service;  // the connector's bus name
  std::string token;    // the connection token the application chose
  std::string description;
  std::string endpoint;
  std::optional<std::string> vapid;  // the application server's key, through version 2 only
  int interfaceVersion = 1;          // 1 or 2: the interface it registered through
};

// A message forwarded to an application's connector.
struct Forwarded {
  std::string service;
  std::string token;
  std::string id;  // the message id the distributor gave it
  std::string body;
};

class Distributor {
 public:
  // Connects, takes the name and starts listening; throws std::runtime_error with the reason
  // when one of them fails (the name is owned by someone else, say).
  static std::unique_ptr<Distributor> start(Options options = {});

  ~Distributor();  // stop()
  Distributor(const Distributor&) = delete;
  Distributor& operator=(const Distributor&) = delete;

  // Stops serving HTTP, gives the name back (released when this returns) and disconnects.
  // Idempotent.
  void stop();

  const std::string& busName() const;
  std::uint16_t port() const;
  // "http://127.0.0.1:<port>/up/": what every endpoint starts with.
  std::string endpointBase() const;

  std::vector<Registration> registrations() const;
  std::vector<Forwarded> forwarded() const;
  // Registrations refused so far.
  std::size_t refusals() const;

  // Blocks until `predicate` holds or `timeout` passes; its last value. The predicate runs on
  // the calling thread whenever something changed and may call any member.
  bool waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) const;

  class Impl;

 private:
  explicit Distributor(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvanta::distributor
