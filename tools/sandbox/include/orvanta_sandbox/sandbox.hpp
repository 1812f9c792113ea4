#pragma once

// orvanta-sandbox: the push service and the API service, played on 127.0.0.1.
//
//   auto sandbox = orvanta::sandbox::Sandbox::start({.credentials = {...}});
//   // point the kit at sandbox->baseUrl() for both services, run it, then look at
//   // sandbox->devices(), events(), reports(), violations(), requests().
//
// Every member is safe to call from any thread. Requests are served on one thread per
// connection, so a delayed answer never holds up another connection; at most 64 connections at
// once, and one idle for 10 s is closed. Only requests whose "Host" names the sandbox are served.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "orvanta_sandbox/records.hpp"

namespace orvanta::sandbox {

struct Options {
  Credentials credentials{};
  std::uint16_t port = 0;  // 0: an ephemeral port, see port()
  // The request log keeps the newest entries up to this many; older ones are dropped and
  // counted (droppedRequests()).
  std::size_t requestLogLimit = 200000;
  // Called after each service request was answered, on the connection's thread.
  std::function<void(const RecordedRequest&, const std::string& reason)> onRequest{};
  // The private key (32 bytes, URL-safe base64) of the VAPID key pair that signs every push the
  // sandbox POSTs to a device's endpoint; empty: a new pair for this run. Throws
  // std::invalid_argument from start() when it is not one.
  std::string vapidPrivateKey{};
};

class Sandbox {
 public:
  // Starts listening; throws std::runtime_error when the port can't be bound.
  static std::unique_ptr<Sandbox> start(Options options = {});

  ~Sandbox();  // stop()
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  // Interrupts delayed answers, closes every connection and joins the server's threads.
  // Idempotent.
  void stop();

  std::uint16_t port() const;
  // "http://127.0.0.1:<port>/v1/": the base of both services.
  std::string baseUrl() const;
  // "http://127.0.0.1:<port>/_sandbox/": the console, a web page that shows and drives the
  // sandbox.
  std::string consoleUrl() const;
  const Credentials& credentials() const;
  // The public half of the sandbox's VAPID key (the uncompressed P-256 point in URL-safe base64):
  // what an application gives the kit (LinuxPlatformOptions::vapidPublicKey) so that its
  // distributor takes the sandbox's pushes. Also served at GET /_sandbox/vapid.
  const std::string& vapidPublicKey() const;

  // What was received and kept.
  std::vector<RecordedRequest> requests() const;
  std::size_t requestCount() const;  // including dropped log entries
  std::size_t droppedRequests() const;
  std::vector<Device> devices() const;  // in order of first registration
  std::optional<Device> device(const std::string& userId) const;
  std::vector<Report> reports() const;  // in order of first delivery
  std::vector<Event> events() const;    // in order of first delivery
  std::size_t eventCount() const;       // distinct events
  std::vector<Violation> violations() const;
  InFlight inFlight(Endpoint endpoint) const;

  // The answer of GET devices/{deviceToken}/last_push. Either a whole payload (its "data" member
  // is answered) or the bare "data" object.
  void setLastPush(const std::string& deviceToken, nlohmann::json push);
  void clearLastPush(const std::string& deviceToken);

  // Keeps `counters` (a host's health snapshot, as the kit writes it) for the device with this
  // user id or push token; the console shows them. False when no device matches or the counters
  // are not a JSON object of named non-negative integers.
  bool setHealth(const std::string& userIdOrToken, nlohmann::json counters);

  // Sends a push to the device with this token, as the service does: it becomes the device's
  // last push, then the payload (a bare "data" object put under "data") is POSTed to the push
  // endpoint the token stands for (its bytes in hex: see docs/sandbox.md), waiting up to 10 s for
  // the answer. Throws std::invalid_argument when the push (or its "data" object) has no string
  // "id".
  Delivery send(const std::string& deviceToken, nlohmann::json push);
  std::vector<SentPush> sentPushes() const;  // in order of sending

  // A fault for one endpoint; `std::nullopt` means every endpoint (used when the endpoint has
  // none of its own).
  void setFault(std::optional<Endpoint> endpoint, Fault fault);
  void clearFault(std::optional<Endpoint> endpoint);
  void clearFaults();

  // Forgets devices, reports, events, requests, violations, last pushes, sent pushes and faults;
  // in-flight maxima restart from the current counts, and the "epoch" of the state goes up by one.
  void reset();

  // The state as JSON, as the control API serves it but whole: the control API masks credentials
  // and push endpoints in it (docs/sandbox.md). `newest` keeps only that many of the newest
  // reports, events and sent pushes (the totals are always given).
  nlohmann::json stateJson(std::size_t newest = kAll) const;
  // The request log from sequence number `since` on (each entry has its "seq"; "next" is the one
  // to ask for next time), at most the `newest` of them.
  nlohmann::json requestsJson(std::size_t since = 0, std::size_t newest = kAll) const;
  // The violations from index `since` on, at most the `newest` of them, each with its "seq".
  nlohmann::json violationsJson(std::size_t since = 0, std::size_t newest = kAll) const;
  static constexpr std::size_t kAll = static_cast<std::size_t>(-1);

  // Blocks until `predicate` holds or `timeout` passes; returns its last value. The predicate
  // is evaluated on the calling thread each time the state changes, and may call any member.
  bool waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) const;
  bool waitForEventCount(std::size_t count, std::chrono::milliseconds timeout) const;
  bool waitForRequestCount(std::size_t count, std::chrono::milliseconds timeout) const;

  class Impl;

 private:
  explicit Sandbox(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// Reads "AppId", "Token", "Secret" and "EventsToken" from an "OrvantaConfig.plist" (XML or
// binary). Missing or non-string entries read as empty strings, as in the kit. Throws
// std::runtime_error when the file can't be read or isn't a dictionary.
Credentials loadCredentials(const std::string& plistPath);

}  // namespace orvanta::sandbox
