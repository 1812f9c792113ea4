#pragma once

// The values the sandbox records and hands out: requests, devices, reports, events, violations,
// and the faults it can be told to inject.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace orvanta::sandbox {

// The fixed "Authorization" value every push-service request carries, whatever the application.
inline constexpr std::string_view kPushAuthorization = "u8jzPde0IgxLd6GncfBAepfJBd0Kh8oOOL8";

// An application's credentials, as the service knows them.
struct Credentials {
  std::string appId = "sandbox-app-id";
  std::string token = "sandbox-token";
  std::string secret = "sandbox-secret";
  std::string eventsToken = "sandbox-events-token";
};

// The service endpoints, as named in faults, counters and the control API.
enum class Endpoint {
  devices,       // POST /v1/devices
  deviceUpdate,  // POST /v1/devices/{id}
  lastPush,      // GET  /v1/devices/{id}/last_push
  reports,       // POST /v1/pushes/{id}/reports
  event,         // POST /v1/event
};
inline constexpr std::size_t kEndpointCount = 5;

// "devices", "device_update", "last_push", "reports", "event".
std::string_view endpointName(Endpoint endpoint);
std::optional<Endpoint> endpointFromName(std::string_view name);

// One request to a service endpoint, as received, with the status it was answered (0 when the
// connection was dropped without an answer). Control requests are not recorded.
struct RecordedRequest {
  std::string method;
  std::string path;
  std::vector<std::pair<std::string, std::string>> headers;  // in arrival order
  std::string body;
  std::chrono::system_clock::time_point time;  // when the request was complete
  int status = 0;
  // Why it was answered so: the refusal's reason, or "fault" when a fault answered it; empty when
  // the service served it as usual.
  std::string reason;

  // Case-insensitive header lookup; the first header of that name.
  std::optional<std::string> header(std::string_view name) const;
};

// A device as last registered, keyed by its "user_id".
struct Device {
  std::string userId;
  std::optional<std::string> registrationId;
  std::optional<std::string> oldDeviceToken;
  nlohmann::json profile;     // the "orvanta" object
  nlohmann::json custom;      // the "custom" object
  nlohmann::json body;        // the whole last accepted body
  int registrations = 0;      // accepted posts to "devices" (and "devices/{id}" with a body)
  bool unregistered = false;  // a body-less post to "devices/{id}" named it
  nlohmann::json health;      // the kit's health counters as its host last posted them, or null
};

// A status report; identical bodies count as one report delivered several times.
struct Report {
  std::string pushId;  // from the path
  nlohmann::json body;
  int deliveries = 0;
};

// An event. The kit sends no identifier, so an event is identified by its whole body: the same
// body posted twice is one event delivered twice.
struct Event {
  nlohmann::json body;
  int deliveries = 0;
};

// What became of a push sent to a device: it is always set as the device's last push, then
// POSTed to the push endpoint that the device's token stands for. `notAvailable`: the token is no
// endpoint address (the device gets its pushes by another transport); `delivered`: the endpoint
// answered 2xx; `failed`: it answered otherwise, or not at all.
struct Delivery {
  enum class Outcome { notAvailable, delivered, failed };
  Outcome outcome = Outcome::notAvailable;
  std::string detail;      // for people: why not, or what the device's endpoint answered
  bool encrypted = false;  // sent encrypted to the keys of the device's token
};
std::string_view deliveryOutcomeName(Delivery::Outcome outcome);  // "not_available"...

// A push sent with `Sandbox::send`.
struct SentPush {
  std::string deviceToken;
  std::string pushId;  // the "id" of its "data" object
  std::chrono::system_clock::time_point time;
  Delivery delivery;
};

// A request the sandbox refused because the kit broke the contract or the credentials.
struct Violation {
  enum class Kind { contract, credentials, routing };
  Kind kind = Kind::contract;
  std::string method;
  std::string path;
  std::string reason;
  std::chrono::system_clock::time_point time;
};
std::string_view violationKindName(Violation::Kind kind);

// A fault injected into one endpoint (or all). Fields combine: a delay happens first, then the
// connection is dropped, or the status replaces the answer. A status outside 200...299 answers
// without looking at the request (nothing is stored, no check runs); a status within it is the
// answer to a request processed as usual. `addContentType` puts "Content-Type: application/json"
// on an answer that has no body.
struct Fault {
  std::optional<int> status{};
  bool addContentType = false;
  std::chrono::milliseconds delay{0};  // cut short when faults are cleared or reset
  bool drop = false;
  std::optional<int> count{};  // the next N requests only; none: until cleared
};

// Requests in flight on one endpoint: now, and the most seen at once since start or reset. A
// request counts from the arrival of its headers until its answer is ready to go out (or its
// connection is dropped), so a client that has received its answer is no longer counted.
struct InFlight {
  int now = 0;
  int max = 0;
};

nlohmann::json toJson(const RecordedRequest& request);
nlohmann::json toJson(const Device& device);
nlohmann::json toJson(const Report& report);
nlohmann::json toJson(const Event& event);
nlohmann::json toJson(const Violation& violation);
nlohmann::json toJson(const Fault& fault);
nlohmann::json toJson(const Delivery& delivery);
nlohmann::json toJson(const SentPush& push);
// Reads the control API's fault object: {"status", "content_type", "delay_ms", "drop", "count"}.
std::optional<Fault> faultFromJson(const nlohmann::json& object, std::string* error = nullptr);

}  // namespace orvanta::sandbox
