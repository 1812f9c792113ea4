#include "orvanta_sandbox/sandbox.hpp"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "console_assets.hpp"
#include "contract.hpp"
#include "guards.hpp"
#include "orvanta_sandbox/web_push.hpp"
#include "push_delivery.hpp"

namespace orvanta::sandbox {
namespace {

using nlohmann::json;
using Clock = std::chrono::system_clock;

constexpr std::string_view kServicePrefix = "/v1/";
constexpr std::string_view kControlPrefix = "/_sandbox/";
constexpr std::size_t kMaxBody = 1024 * 1024;
/// The service takes events of at most 64 KiB of body, as the kit knows (it refuses larger ones
/// at `trackEvent`).
constexpr std::size_t kMaxEventBody = 64 * 1024;
// How long a device's push endpoint has to take a push.
constexpr long kDeliveryTimeoutMs = 10'000;
// Who signs the sandbox's pushes (the "sub" of its VAPID claims).
constexpr const char* kVapidSubject = "mailto:sandbox@orvanta.invalid";

// The change stream tells the console at most this often that the state changed, and says
// something at least this often so that a closed page frees its connection.
constexpr auto kChangeInterval = std::chrono::milliseconds(100);
constexpr auto kKeepAliveInterval = std::chrono::seconds(15);

// Connections served at once (the kit makes at most 10 event posts at once and a few other
// requests; the console a few more): one more is closed as soon as it is accepted.
constexpr unsigned kMaxConnections = 64;
// A connection that sends nothing for this long is closed, so idle ones cannot hold every place.
// A request held by a fault's delay, and the console's change stream, are exempt while they last.
constexpr unsigned kIdleTimeoutSeconds = 10;

constexpr const char* kForeignHost =
    "\"Host\" does not name this sandbox (127.0.0.1, localhost or [::1] with its port)";

// Where a service path leads: the endpoint, the id it carries, and the method it takes.
struct Route {
  Endpoint endpoint;
  std::string id;
  std::string_view method;
};

std::optional<Route> routeFor(std::string_view path) {
  if (path.substr(0, kServicePrefix.size()) != kServicePrefix) {
    return std::nullopt;
  }
  path.remove_prefix(kServicePrefix.size());
  std::vector<std::string_view> segments;
  while (true) {
    const auto slash = path.find('/');
    segments.push_back(path.substr(0, slash));
    if (slash == std::string_view::npos) {
      break;
    }
    path.remove_prefix(slash + 1);
  }
  for (const auto segment : segments) {
    if (segment.empty()) {
      return std::nullopt;
    }
  }
  if (segments.size() == 1 && segments[0] == "devices") {
    return Route{Endpoint::devices, {}, "POST"};
  }
  if (segments.size() == 1 && segments[0] == "event") {
    return Route{Endpoint::event, {}, "POST"};
  }
  if (segments.size() == 2 && segments[0] == "devices") {
    return Route{Endpoint::deviceUpdate, std::string(segments[1]), "POST"};
  }
  if (segments.size() == 3 && segments[0] == "devices" && segments[2] == "last_push") {
    return Route{Endpoint::lastPush, std::string(segments[1]), "GET"};
  }
  if (segments.size() == 3 && segments[0] == "pushes" && segments[2] == "reports") {
    return Route{Endpoint::reports, std::string(segments[1]), "POST"};
  }
  return std::nullopt;
}

// JSON text of what the sandbox shows: what it received may be no UTF-8 (a path, a header, a body
// it refused), and is shown with U+FFFD in place of the bytes that are not.
std::string showable(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// What one request is answered.
struct Answer {
  int status = 204;
  std::string body;
  std::string contentType = "application/json";  // when there is a body
  std::vector<std::pair<std::string, std::string>> headers{};
  bool addContentType = false;
  bool drop = false;
  bool changeStream = false;  // the console's stream of change notices instead of a body
  std::string reason;         // why it was refused, for the log line

  static Answer error(int status, std::string reason) {
    Answer answer;
    answer.status = status;
    answer.body = showable(json{{"error", reason}});
    answer.reason = std::move(reason);
    return answer;
  }
};

// One request on its way through the server, from its headers to its completion.
struct Exchange {
  bool control = false;
  bool ownHost = false;  // its "Host" names this server
  std::optional<Route> route;
  std::string method;
  std::string path;
  std::string body;
  bool tooLarge = false;
  bool counted = false;  // in the endpoint's in-flight count
};

MHD_Result collectHeader(void* cls, MHD_ValueKind /*kind*/, const char* key, const char* value) {
  auto* headers = static_cast<std::vector<std::pair<std::string, std::string>>*>(cls);
  headers->emplace_back(key != nullptr ? key : "", value != nullptr ? value : "");
  return MHD_YES;
}

bool is2xx(int status) {
  return status >= 200 && status <= 299;
}

// A count from the query string: absent gives `fallback`, anything but digits gives nothing.
std::optional<std::size_t> countArgument(MHD_Connection* connection, const char* name,
                                         std::size_t fallback) {
  const char* text = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, name);
  if (text == nullptr) {
    return fallback;
  }
  std::size_t value = 0;
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, value);
  if (error != std::errc() || stop != end || stop == text) {
    return std::nullopt;
  }
  return value;
}

// Security headers of the console's page and assets: its own scripts and styles only, nothing
// loaded from elsewhere, never framed, never cached (a rebuilt sandbox serves a new page).
void addConsoleHeaders(Answer& answer) {
  answer.headers.emplace_back("Content-Security-Policy",
                              "default-src 'none'; script-src 'self'; style-src 'self'; "
                              "connect-src 'self'; img-src 'self' data:; base-uri 'none'; "
                              "form-action 'none'; frame-ancestors 'none'");
  answer.headers.emplace_back("X-Content-Type-Options", "nosniff");
  answer.headers.emplace_back("Referrer-Policy", "no-referrer");
  answer.headers.emplace_back("Cache-Control", "no-store");
}

}  // namespace

class Sandbox::Impl {
 public:
  explicit Impl(Options options) : options_(std::move(options)), vapid_(makeVapidKey(options_)) {}

  static webpush::VapidKey makeVapidKey(const Options& options) {
    if (options.vapidPrivateKey.empty()) {
      return webpush::VapidKey::generate();
    }
    auto key = webpush::VapidKey::fromPrivateKey(options.vapidPrivateKey);
    if (!key) {
      throw std::invalid_argument(
          "orvanta-sandbox: the VAPID private key is not a P-256 private key (32 bytes, URL-safe "
          "base64)");
    }
    return *key;
  }
  ~Impl() { stop(); }

  void listen() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(options_.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // One thread per connection: a delayed answer blocks only its own connection, and keep-alive
    // clients never wait for a worker. The backlog is raised so that a burst of new connections
    // is accepted at once instead of being refused and retried a second later.
    daemon_ = MHD_start_daemon(
        MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_AUTO,
        options_.port, nullptr, nullptr, &Impl::onAccess, this, MHD_OPTION_SOCK_ADDR,
        reinterpret_cast<const sockaddr*>(&address), MHD_OPTION_LISTEN_BACKLOG_SIZE, 1024U,
        MHD_OPTION_CONNECTION_LIMIT, kMaxConnections, MHD_OPTION_CONNECTION_TIMEOUT,
        kIdleTimeoutSeconds, MHD_OPTION_NOTIFY_COMPLETED, &Impl::onCompleted, this, MHD_OPTION_END);
    if (daemon_ == nullptr) {
      throw std::runtime_error("orvanta-sandbox: can't listen on 127.0.0.1:" +
                               std::to_string(options_.port));
    }
    const auto* info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
    port_ = info != nullptr ? info->port : options_.port;
  }

  void stop() {
    {
      std::lock_guard lock(stopMutex_);
      stopping_ = true;
    }
    stopCv_.notify_all();
    notifyChange();
    std::lock_guard lock(daemonMutex_);
    if (daemon_ != nullptr) {
      MHD_stop_daemon(daemon_);
      daemon_ = nullptr;
    }
  }

  // --- the server side --------------------------------------------------------------------

  static MHD_Result onAccess(void* cls, MHD_Connection* connection, const char* url,
                             const char* method, const char* /*version*/, const char* uploadData,
                             std::size_t* uploadDataSize, void** context) {
    auto* self = static_cast<Impl*>(cls);
    auto* exchange = static_cast<Exchange*>(*context);
    if (exchange == nullptr) {
      exchange = new Exchange;
      exchange->method = method;
      exchange->path = url;
      exchange->ownHost = guards::isOwnHost(
          MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Host"), self->port_);
      exchange->control =
          std::string_view(url).substr(0, kControlPrefix.size()) == kControlPrefix ||
          std::string_view(url) == kControlPrefix.substr(0, kControlPrefix.size() - 1);
      if (!exchange->control) {
        exchange->route = routeFor(url);
        if (exchange->route) {
          self->enter(exchange->route->endpoint);
          exchange->counted = true;
        }
      }
      *context = exchange;
      return MHD_YES;
    }
    if (*uploadDataSize != 0) {
      const std::size_t limit = exchange->route && exchange->route->endpoint == Endpoint::event
                                    ? kMaxEventBody
                                    : kMaxBody;
      if (exchange->body.size() + *uploadDataSize > limit) {
        exchange->tooLarge = true;
      } else {
        exchange->body.append(uploadData, *uploadDataSize);
      }
      *uploadDataSize = 0;
      return MHD_YES;
    }
    const Answer answer = exchange->control ? self->control(*exchange, connection)
                                            : self->serve(*exchange, connection);
    // The request leaves the count before its answer goes out, so that a client that has its
    // answer never finds its request still counted.
    self->leave(*exchange);
    if (answer.drop) {
      return MHD_NO;
    }
    if (answer.changeStream) {
      return self->queueChangeStream(connection);
    }
    return queue(connection, answer);
  }

  static void onCompleted(void* cls, MHD_Connection* /*connection*/, void** context,
                          MHD_RequestTerminationCode /*code*/) {
    auto* self = static_cast<Impl*>(cls);
    auto* exchange = static_cast<Exchange*>(*context);
    if (exchange == nullptr) {
      return;
    }
    self->leave(*exchange);  // a request that ended before its answer
    delete exchange;
    *context = nullptr;
  }

  static MHD_Result queue(MHD_Connection* connection, const Answer& answer) {
    MHD_Response* response = MHD_create_response_from_buffer(
        answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) {
      return MHD_NO;
    }
    if (!answer.body.empty()) {
      MHD_add_response_header(response, "Content-Type", answer.contentType.c_str());
    } else if (answer.addContentType) {
      MHD_add_response_header(response, "Content-Type", "application/json");
    }
    for (const auto& [name, value] : answer.headers) {
      MHD_add_response_header(response, name.c_str(), value.c_str());
    }
    const MHD_Result result =
        MHD_queue_response(connection, static_cast<unsigned int>(answer.status), response);
    MHD_destroy_response(response);
    return result;
  }

  Answer serve(Exchange& exchange, MHD_Connection* connection) {
    RecordedRequest record;
    record.method = std::move(exchange.method);
    record.path = exchange.path;
    MHD_get_connection_values(connection, MHD_HEADER_KIND, &collectHeader, &record.headers);
    record.body = std::move(exchange.body);

    Answer answer;
    std::optional<Fault> fault;
    if (exchange.route && exchange.ownHost) {
      fault = takeFault(exchange.route->endpoint);
    }
    if (!exchange.ownHost) {
      answer = refuse(Violation::Kind::routing, record, 403, kForeignHost);
    } else if (fault && fault->delay.count() > 0 && !waitUnlessStopped(fault->delay, connection)) {
      answer.drop = true;
    } else if (fault && fault->drop) {
      answer.drop = true;
      answer.reason = "fault: dropped";
    } else if (fault && fault->status && !is2xx(*fault->status)) {
      answer.status = *fault->status;
      answer.reason = "fault";
    } else {
      answer = process(record, exchange);
      if (fault && fault->status) {
        answer.status = *fault->status;
        answer.body.clear();
      }
    }
    if (fault && fault->addContentType && answer.body.empty()) {
      answer.addContentType = true;
    }
    record.status = answer.drop ? 0 : answer.status;
    record.reason = answer.reason;
    record.time = Clock::now();
    log(std::move(record), answer.reason);
    return answer;
  }

  // The service's own answer to a request that no fault intercepted.
  Answer process(const RecordedRequest& request, const Exchange& exchange) {
    // The services' root answers GET and HEAD, which reachability checks (orvanta-doctor's) ask
    // for: logged like any request, but no violation.
    if (request.path == kServicePrefix && (request.method == "GET" || request.method == "HEAD")) {
      return Answer{};
    }
    if (!exchange.route) {
      return refuse(Violation::Kind::routing, request, 404, "no such endpoint");
    }
    const Route& route = *exchange.route;
    if (request.method != route.method) {
      return refuse(Violation::Kind::routing, request, 405,
                    std::string(endpointName(route.endpoint)) + " takes " +
                        std::string(route.method) + ", not " + request.method);
    }
    if (auto reason = contract::checkUniqueHeaders(request.headers)) {
      return refuse(Violation::Kind::contract, request, 400, *reason);
    }
    if (auto reason = checkCredentials(request, route.endpoint)) {
      return refuse(Violation::Kind::credentials, request, 401, *reason);
    }
    if (route.endpoint == Endpoint::event) {
      if (auto reason = contract::checkEventHeaders(request.headers)) {
        return refuse(Violation::Kind::contract, request, 400, *reason);
      }
    }
    if (exchange.tooLarge) {
      return refuse(Violation::Kind::contract, request, 413, "the body is too large");
    }
    if (auto reason = contract::checkContentType(request.header("Content-Type"))) {
      return refuse(Violation::Kind::contract, request, 400, *reason);
    }

    const std::string_view what = endpointName(route.endpoint);
    json body;
    if (route.endpoint != Endpoint::lastPush && !request.body.empty()) {
      std::string why;
      auto parsed = guards::parseJson(request.body, &why);
      if (!parsed) {
        return refuse(Violation::Kind::contract, request, 400,
                      std::string(what) + ": the body is " + why);
      }
      body = std::move(*parsed);
    }
    const bool needsBody = route.endpoint == Endpoint::devices ||
                           route.endpoint == Endpoint::reports || route.endpoint == Endpoint::event;
    if (needsBody && request.body.empty()) {
      return refuse(Violation::Kind::contract, request, 400, std::string(what) + ": no body");
    }

    switch (route.endpoint) {
      case Endpoint::devices:
        return registerDevice(request, body);
      case Endpoint::deviceUpdate:
        if (request.body.empty()) {
          markUnregistered(route.id);
          return Answer{};
        }
        return registerDevice(request, body);
      case Endpoint::lastPush:
        return lastPush(route.id);
      case Endpoint::reports:
        return report(request, route.id, std::move(body));
      case Endpoint::event:
        return event(request, std::move(body));
    }
    return Answer::error(500, "unreachable");
  }

  std::optional<std::string> checkCredentials(const RecordedRequest& request,
                                              Endpoint endpoint) const {
    const Credentials& expected = options_.credentials;
    const auto authorization = request.header("Authorization");
    if (endpoint == Endpoint::event) {
      if (!authorization) {
        return "missing \"Authorization\"";
      }
      if (*authorization != expected.eventsToken) {
        return "\"Authorization\" is not the events token";
      }
      return std::nullopt;
    }
    const auto token = request.header("X-Orvanta-App-Token");
    const auto secret = request.header("X-Orvanta-App-Secret");
    if (!token) {
      return "missing \"X-Orvanta-App-Token\"";
    }
    if (*token != expected.token) {
      return "wrong \"X-Orvanta-App-Token\"";
    }
    if (!secret) {
      return "missing \"X-Orvanta-App-Secret\"";
    }
    if (*secret != expected.secret) {
      return "wrong \"X-Orvanta-App-Secret\"";
    }
    if (!authorization) {
      return "missing \"Authorization\"";
    }
    if (*authorization != kPushAuthorization) {
      return "\"Authorization\" is not the push service's fixed value";
    }
    return std::nullopt;
  }

  Answer refuse(Violation::Kind kind, const RecordedRequest& request, int status,
                std::string reason) {
    {
      std::lock_guard lock(mutex_);
      violations_.push_back(Violation{kind, request.method, request.path, reason, Clock::now()});
    }
    return Answer::error(status, std::move(reason));
  }

  Answer registerDevice(const RecordedRequest& request, const json& body) {
    if (auto reason = contract::checkDevice(body, options_.credentials.appId)) {
      return refuse(Violation::Kind::contract, request, 400, *reason);
    }
    const auto& userId = body["user_id"].get_ref<const std::string&>();
    std::lock_guard lock(mutex_);
    auto [found, added] = deviceIndex_.try_emplace(userId, devices_.size());
    if (added) {
      devices_.emplace_back();
      devices_.back().userId = userId;
    }
    Device& device = devices_[found->second];
    device.profile = body["orvanta"];
    device.custom = body["custom"];
    device.registrationId = body.contains("registration_id")
                                ? std::optional(body["registration_id"].get<std::string>())
                                : std::nullopt;
    device.oldDeviceToken = body.contains("oldDeviceToken")
                                ? std::optional(body["oldDeviceToken"].get<std::string>())
                                : std::nullopt;
    device.body = body;
    device.unregistered = false;
    ++device.registrations;
    return Answer{};
  }

  void markUnregistered(const std::string& id) {
    std::lock_guard lock(mutex_);
    for (Device& device : devices_) {
      if (device.userId == id || device.registrationId == id) {
        device.unregistered = true;
      }
    }
  }

  Answer lastPush(const std::string& deviceToken) {
    std::lock_guard lock(mutex_);
    const auto found = lastPushes_.find(deviceToken);
    if (found == lastPushes_.end()) {
      Answer answer = Answer::error(404, "no push for this device");
      answer.reason.clear();
      return answer;
    }
    Answer answer;
    answer.status = 200;
    answer.body = found->second;
    return answer;
  }

  Answer report(const RecordedRequest& request, const std::string& pushId, json body) {
    if (auto reason = contract::checkReport(body, pushId)) {
      return refuse(Violation::Kind::contract, request, 400, *reason);
    }
    std::string key = body.dump();
    std::lock_guard lock(mutex_);
    auto [found, added] = reportIndex_.try_emplace(std::move(key), reports_.size());
    if (added) {
      reports_.push_back(Report{pushId, std::move(body), 0});
    }
    ++reports_[found->second].deliveries;
    return Answer{};
  }

  Answer event(const RecordedRequest& request, json body) {
    if (auto reason = contract::checkEvent(body, options_.credentials.appId)) {
      return refuse(Violation::Kind::contract, request, 400, *reason);
    }
    // nlohmann::json keeps object members sorted, so the dump is the canonical form.
    std::string key = body.dump();
    {
      std::lock_guard lock(mutex_);
      auto [found, added] = eventIndex_.try_emplace(std::move(key), events_.size());
      if (added) {
        events_.push_back(Event{std::move(body), 0});
      }
      ++events_[found->second].deliveries;
    }
    Answer answer;
    answer.status = 201;
    answer.body = R"({"result":"ok"})";
    return answer;
  }

  // --- the control API --------------------------------------------------------------------

  Answer control(Exchange& exchange, MHD_Connection* connection) {
    std::string_view path(exchange.path);
    const std::string& method = exchange.method;
    if (!exchange.ownHost) {
      return Answer::error(403, kForeignHost);
    }
    if (path.size() < kControlPrefix.size()) {  // "/_sandbox": the console lives one level down
      Answer answer;
      answer.status = 308;
      answer.headers.emplace_back("Location", std::string(kControlPrefix));
      return answer;
    }
    path.remove_prefix(kControlPrefix.size());
    if (method == "GET" || method == "HEAD") {
      if (const console::Asset* asset = console::findAsset(path)) {
        Answer answer;
        answer.status = 200;
        answer.body = asset->bytes;
        answer.contentType = asset->contentType;
        addConsoleHeaders(answer);
        return answer;
      }
    } else if (!fromThisSandbox(connection)) {
      // A page of another site must not drive the sandbox through the person's browser.
      return Answer::error(403, "control requests from another web page are refused");
    }
    // What the control API shows never gives away the credentials or a device's push endpoint.
    const auto ok = [](json body) {
      guards::maskSecrets(body);
      Answer answer;
      answer.status = 200;
      answer.body = showable(body);
      return answer;
    };
    const auto parsed = [&exchange](std::string* why) {
      return guards::parseJson(exchange.body, why).value_or(json(json::value_t::discarded));
    };
    const auto badCount = [] { return Answer::error(400, "counts are non-negative integers"); };
    if (path == "changes" && method == "GET") {
      // The stream writes at least every kKeepAliveInterval and ends when the page goes.
      MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT, 0U);
      Answer answer;
      answer.changeStream = true;
      return answer;
    }
    if (path == "vapid" && method == "GET") {
      return ok({{"publicKey", vapid_.publicKey()}});
    }
    if (path == "state" && method == "GET") {
      const auto newest = countArgument(connection, "newest", Sandbox::kAll);
      return newest ? ok(stateJson(*newest)) : badCount();
    }
    if ((path == "requests" || path == "violations") && method == "GET") {
      const auto since = countArgument(connection, "since", 0);
      const auto newest = countArgument(connection, "newest", Sandbox::kAll);
      if (!since || !newest) {
        return badCount();
      }
      return ok(path == "requests" ? requestsJson(*since, *newest)
                                   : violationsJson(*since, *newest));
    }
    if (path == "reset" && method == "POST") {
      reset();
      return Answer{};
    }
    if (path == "faults" && method == "DELETE") {
      clearFaults();
      return Answer{};
    }
    constexpr std::string_view sendPrefix = "send/";
    if (path.substr(0, sendPrefix.size()) == sendPrefix && path.size() > sendPrefix.size()) {
      if (method != "POST") {
        return Answer::error(405, "send takes POST");
      }
      std::string why;
      json push = parsed(&why);
      const std::string token = addressee(path.substr(sendPrefix.size()), push);
      const std::string pushId = pushIdOf(push);
      if (pushId.empty()) {
        return Answer::error(400, "a push is a JSON object whose \"data\" has a string \"id\"" +
                                      (why.empty() ? std::string() : " (this one is " + why + ")"));
      }
      const Delivery delivery = send(token, std::move(push));
      return ok({{"token", token},
                 {"push_id", pushId},
                 {"last_push", true},
                 {"delivery", toJson(delivery)}});
    }
    constexpr std::string_view lastPushPrefix = "last_push/";
    if (path.substr(0, lastPushPrefix.size()) == lastPushPrefix &&
        path.size() > lastPushPrefix.size()) {
      std::string why;
      json push = method == "DELETE" ? json() : parsed(&why);
      const std::string token = addressee(path.substr(lastPushPrefix.size()), push);
      if (method == "DELETE") {
        clearLastPush(token);
        return Answer{};
      }
      if (method == "POST" || method == "PUT") {
        if (push.is_discarded() || !push.is_object()) {
          return Answer::error(400,
                               "a last push is a JSON object" +
                                   (why.empty() ? std::string() : " (this one is " + why + ")"));
        }
        setLastPush(token, std::move(push));
        return Answer{};
      }
      return Answer::error(405, "last_push takes PUT, POST or DELETE");
    }
    constexpr std::string_view healthPrefix = "health/";
    if (path.substr(0, healthPrefix.size()) == healthPrefix && path.size() > healthPrefix.size()) {
      if (method != "POST" && method != "PUT") {
        return Answer::error(405, "health takes PUT or POST");
      }
      std::string why;
      json counters = parsed(&why);
      if (auto reason = healthProblem(counters)) {
        return Answer::error(400, *reason + (why.empty() ? "" : " (this one is " + why + ")"));
      }
      if (!setHealth(path.substr(healthPrefix.size()), std::move(counters))) {
        return Answer::error(404, "no device has that user id or push token");
      }
      return Answer{};
    }
    constexpr std::string_view faultsPrefix = "faults/";
    if (path.substr(0, faultsPrefix.size()) == faultsPrefix) {
      const std::string_view name = path.substr(faultsPrefix.size());
      std::optional<Endpoint> endpoint;
      if (name != "*") {
        endpoint = endpointFromName(name);
        if (!endpoint) {
          return Answer::error(404, "unknown endpoint \"" + std::string(name) + "\"");
        }
      }
      if (method == "DELETE") {
        clearFault(endpoint);
        return Answer{};
      }
      if (method == "POST" || method == "PUT") {
        std::string error;
        const json object = parsed(nullptr);
        auto fault = faultFromJson(object, &error);
        if (!fault) {
          return Answer::error(400, object.is_discarded() ? "a fault is a JSON object" : error);
        }
        setFault(endpoint, *fault);
        return Answer{};
      }
      return Answer::error(405, "faults take PUT, POST or DELETE");
    }
    return Answer::error(404, "unknown control request");
  }

  // True unless the request comes from a web page of another origin than this sandbox's own
  // (browsers name the page's origin in "Origin"; command-line clients send none).
  bool fromThisSandbox(MHD_Connection* connection) const {
    const char* origin = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Origin");
    if (origin == nullptr) {
      return true;
    }
    const std::string port = ":" + std::to_string(port_);
    return origin == "http://127.0.0.1" + port || origin == "http://localhost" + port;
  }

  // The token a control path names: a device's user id stands for its current token, anything
  // else is a token itself. A push sent by user id gets the token as its "registration_id" when
  // it names none, as the service addresses a push to a device: the console knows devices by
  // user id only, since the control API masks their tokens.
  std::string addressee(std::string_view named, json& push) {
    std::string token(named);
    std::lock_guard lock(mutex_);
    const auto found = deviceIndex_.find(token);
    if (found == deviceIndex_.end() || !devices_[found->second].registrationId) {
      return token;
    }
    token = *devices_[found->second].registrationId;
    if (push.is_object()) {
      json& data = push.contains("data") && push["data"].is_object() ? push["data"] : push;
      if (!data.contains("registration_id")) {
        data["registration_id"] = token;
      }
    }
    return token;
  }

  // Why `counters` is not a health snapshot as the kit writes it: a JSON object of at most 64
  // counters, each named by up to 64 ASCII letters and a non-negative integer.
  static std::optional<std::string> healthProblem(const json& counters) {
    constexpr std::size_t kMaxCounters = 64;
    const std::string expected =
        "health counters are a JSON object of at most 64 names (letters) with non-negative "
        "integers";
    if (!counters.is_object() || counters.size() > kMaxCounters) {
      return expected;
    }
    for (const auto& [name, value] : counters.items()) {
      const bool letters = !name.empty() && name.size() <= kMaxCounters &&
                           std::all_of(name.begin(), name.end(), [](unsigned char c) {
                             return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
                           });
      if (!letters || !value.is_number_unsigned()) {
        return expected;
      }
    }
    return std::nullopt;
  }

  // Keeps the counters a host posted for the device it names by user id or push token.
  bool setHealth(std::string_view named, json counters) {
    {
      std::lock_guard lock(mutex_);
      auto found = deviceIndex_.find(std::string(named));
      Device* device = found != deviceIndex_.end() ? &devices_[found->second] : nullptr;
      for (std::size_t i = 0; device == nullptr && i < devices_.size(); ++i) {
        if (devices_[i].registrationId == named) {
          device = &devices_[i];
        }
      }
      if (device == nullptr) {
        return false;
      }
      device->health = std::move(counters);
    }
    notifyChange();
    return true;
  }

  // The push id of a whole payload or of its bare "data" object; empty when there is none.
  static std::string pushIdOf(const json& push) {
    if (!push.is_object()) {
      return {};
    }
    const json& data = push.contains("data") && push["data"].is_object() ? push["data"] : push;
    const auto id = data.find("id");
    return id != data.end() && id->is_string() ? id->get<std::string>() : std::string();
  }

  // --- the console's change stream ----------------------------------------------------------

  // One open stream: server-sent events, each a notice that the state changed (the page then
  // reads what it shows through the control API), and a comment line now and then to keep it
  // open. Runs on the connection's own thread, which may block here.
  struct ChangeStream {
    Impl* self = nullptr;
    bool started = false;
    std::uint64_t announced = 0;  // the generation last announced
    std::chrono::steady_clock::time_point lastNotice{};
    std::string pending;  // bytes not yet handed out
    std::size_t offset = 0;
  };

  MHD_Result queueChangeStream(MHD_Connection* connection) {
    auto* stream = new ChangeStream;
    stream->self = this;
    MHD_Response* response = MHD_create_response_from_callback(
        MHD_SIZE_UNKNOWN, 1024, &Impl::readChangeStream, stream,
        [](void* cls) { delete static_cast<ChangeStream*>(cls); });
    if (response == nullptr) {
      delete stream;
      return MHD_NO;
    }
    MHD_add_response_header(response, "Content-Type", "text/event-stream");
    MHD_add_response_header(response, "Cache-Control", "no-store");
    const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, response);
    MHD_destroy_response(response);
    return result;
  }

  static ssize_t readChangeStream(void* cls, std::uint64_t /*position*/, char* buffer,
                                  std::size_t size) {
    auto* stream = static_cast<ChangeStream*>(cls);
    if (stream->offset == stream->pending.size()) {
      stream->pending.clear();
      stream->offset = 0;
      if (!stream->self->nextChangeNotice(*stream)) {
        return MHD_CONTENT_READER_END_OF_STREAM;
      }
    }
    const std::size_t count = std::min(size, stream->pending.size() - stream->offset);
    std::memcpy(buffer, stream->pending.data() + stream->offset, count);
    stream->offset += count;
    return static_cast<ssize_t>(count);
  }

  // Waits for a change (or the keep-alive interval), no sooner than kChangeInterval after the
  // previous notice, and puts the next message in `stream.pending`. False once stopping.
  bool nextChangeNotice(ChangeStream& stream) {
    if (stream.started) {
      std::unique_lock lock(changeMutex_);
      const bool changed = changed_.wait_for(lock, kKeepAliveInterval,
                                             [&] { return generation_ != stream.announced; });
      if (!changed) {
        stream.pending = ": still here\n\n";
        return !isStopping();
      }
    }
    {
      std::unique_lock lock(stopMutex_);
      stopCv_.wait_until(lock, stream.lastNotice + kChangeInterval, [&] { return stopping_; });
      if (stopping_) {
        return false;
      }
    }
    {
      std::lock_guard lock(changeMutex_);
      stream.announced = generation_;
    }
    stream.lastNotice = std::chrono::steady_clock::now();
    stream.pending = (stream.started ? "" : "retry: 2000\n") +
                     std::string("event: change\ndata: ") +
                     json{{"generation", stream.announced}}.dump() + "\n\n";
    stream.started = true;
    return true;
  }

  bool isStopping() {
    std::lock_guard lock(stopMutex_);
    return stopping_;
  }

  // --- state ------------------------------------------------------------------------------

  void enter(Endpoint endpoint) {
    {
      std::lock_guard lock(mutex_);
      InFlight& counter = inFlight_[static_cast<std::size_t>(endpoint)];
      ++counter.now;
      counter.max = std::max(counter.max, counter.now);
    }
    notifyChange();
  }

  void leave(Exchange& exchange) {
    if (!exchange.counted) {
      return;
    }
    exchange.counted = false;
    {
      std::lock_guard lock(mutex_);
      --inFlight_[static_cast<std::size_t>(exchange.route->endpoint)].now;
    }
    notifyChange();
  }

  std::optional<Fault> takeFault(Endpoint endpoint) {
    std::lock_guard lock(mutex_);
    std::optional<Fault>& own = faults_[static_cast<std::size_t>(endpoint)];
    std::optional<Fault>& slot = own ? own : anyFault_;
    if (!slot) {
      return std::nullopt;
    }
    Fault fault = *slot;
    if (slot->count && --*slot->count <= 0) {
      slot.reset();
    }
    return fault;
  }

  // Waits out a fault's delay, cut short when faults are cleared; the connection is not idle
  // meanwhile. False when the sandbox was stopped during the wait.
  bool waitUnlessStopped(std::chrono::milliseconds delay, MHD_Connection* connection) {
    MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT, 0U);
    bool stopped = false;
    {
      std::unique_lock lock(stopMutex_);
      const std::uint64_t epoch = faultEpoch_;
      stopCv_.wait_for(lock, delay, [&] { return stopping_ || faultEpoch_ != epoch; });
      stopped = stopping_;
    }
    // From no time-out to one, the connection's idle time starts afresh.
    MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT, kIdleTimeoutSeconds);
    return !stopped;
  }

  // Lets the requests that wait out a delay go on.
  void releaseDelays() {
    {
      std::lock_guard lock(stopMutex_);
      ++faultEpoch_;
    }
    stopCv_.notify_all();
  }

  void log(RecordedRequest record, const std::string& reason) {
    if (options_.onRequest) {
      options_.onRequest(record, reason);
    }
    {
      std::lock_guard lock(mutex_);
      ++requestCount_;
      requests_.push_back(std::move(record));
      while (requests_.size() > options_.requestLogLimit) {
        requests_.pop_front();
        ++droppedRequests_;
      }
    }
    notifyChange();
  }

  void notifyChange() const {
    {
      std::lock_guard lock(changeMutex_);
      ++generation_;
    }
    changed_.notify_all();
  }

 public:
  void setLastPush(const std::string& deviceToken, json push) {
    if (push.is_object() && push.contains("data") && push["data"].is_object()) {
      push = std::move(push["data"]);
    }
    {
      std::lock_guard lock(mutex_);
      lastPushes_[deviceToken] = push.dump();
    }
    notifyChange();
  }

  void clearLastPush(const std::string& deviceToken) {
    {
      std::lock_guard lock(mutex_);
      lastPushes_.erase(deviceToken);
    }
    notifyChange();
  }

  Delivery send(const std::string& deviceToken, json push) {
    std::string pushId = pushIdOf(push);
    if (pushId.empty()) {
      throw std::invalid_argument("orvanta-sandbox: a push needs a string \"id\"");
    }
    // What the endpoint receives is the push as a device gets it: the whole payload, with a bare
    // "data" object put under "data".
    json payload = push.contains("data") && push["data"].is_object() ? push : json{{"data", push}};
    setLastPush(deviceToken, std::move(push));
    Delivery delivery;
    if (auto subscription = webpush::subscriptionFromToken(deviceToken)) {
      delivery = deliver(*subscription, payload.dump());
    } else {
      delivery.detail =
          "the device's token is not a push endpoint address (the device gets its pushes by "
          "another transport)";
    }
    {
      std::lock_guard lock(mutex_);
      sent_.push_back(SentPush{deviceToken, std::move(pushId), Clock::now(), delivery});
    }
    notifyChange();
    return delivery;
  }

  // The push to a device's endpoint as an application server sends it: encrypted to the keys
  // of its token (in clear to a token of an earlier kit, which carries none), signed with the
  // sandbox's VAPID key.
  Delivery deliver(const webpush::Subscription& subscription, const std::string& payload) {
    // Push endpoints of the web-push family want to know how long a push may wait for the device.
    std::vector<std::string> headers = {"TTL: 86400"};
    std::string body;
    if (subscription.encrypted()) {
      auto sealed = webpush::encrypt(payload, *subscription.publicKey, *subscription.authSecret);
      if (!sealed) {
        Delivery failed;
        failed.outcome = Delivery::Outcome::failed;
        failed.detail = "the push could not be encrypted to the device's key";
        return failed;
      }
      body = std::move(*sealed);
      headers.emplace_back("Content-Type: application/octet-stream");
      headers.emplace_back("Content-Encoding: aes128gcm");
    } else {
      body = payload;
      headers.emplace_back("Content-Type: application/json");
    }
    const std::string authorization = vapid_.authorization(subscription.endpoint, kVapidSubject,
                                                           std::chrono::system_clock::now());
    if (!authorization.empty()) {
      headers.push_back("Authorization: " + authorization);
    }
    Delivery delivery = postToEndpoint(subscription.endpoint, body, headers, kDeliveryTimeoutMs,
                                       [this] { return isStopping(); });
    delivery.encrypted = subscription.encrypted();
    delivery.detail += subscription.encrypted()
                           ? " (encrypted to the device's key, signed with the sandbox's VAPID key)"
                           : " (in clear: the device's token carries no keys)";
    return delivery;
  }

  void setFault(std::optional<Endpoint> endpoint, Fault fault) {
    {
      std::lock_guard lock(mutex_);
      (endpoint ? faults_[static_cast<std::size_t>(*endpoint)] : anyFault_) = fault;
    }
    notifyChange();
  }

  void clearFault(std::optional<Endpoint> endpoint) {
    {
      std::lock_guard lock(mutex_);
      (endpoint ? faults_[static_cast<std::size_t>(*endpoint)] : anyFault_).reset();
    }
    releaseDelays();
    notifyChange();
  }

  void clearFaults() {
    {
      std::lock_guard lock(mutex_);
      for (auto& fault : faults_) {
        fault.reset();
      }
      anyFault_.reset();
    }
    releaseDelays();
    notifyChange();
  }

  void reset() {
    {
      std::lock_guard lock(mutex_);
      requests_.clear();
      requestCount_ = 0;
      droppedRequests_ = 0;
      devices_.clear();
      deviceIndex_.clear();
      reports_.clear();
      reportIndex_.clear();
      events_.clear();
      eventIndex_.clear();
      violations_.clear();
      lastPushes_.clear();
      sent_.clear();
      ++epoch_;
      for (auto& fault : faults_) {
        fault.reset();
      }
      anyFault_.reset();
      for (auto& counter : inFlight_) {
        counter.max = counter.now;
      }
    }
    releaseDelays();
    notifyChange();
  }

  // The newest `newest` elements of `items`, as JSON.
  template <class Items>
  static json newestJson(const Items& items, std::size_t newest) {
    json out = json::array();
    const std::size_t skip = items.size() > newest ? items.size() - newest : 0;
    for (auto item = std::next(items.begin(), static_cast<std::ptrdiff_t>(skip));
         item != items.end(); ++item) {
      out.push_back(toJson(*item));
    }
    return out;
  }

  json stateJson(std::size_t newest) const {
    std::lock_guard lock(mutex_);
    json devices = json::array();
    for (const auto& device : devices_) {
      json shown = toJson(device);
      // Whether pushes can reach the device encrypted: its token carries keys.
      const auto subscription = device.registrationId
                                    ? webpush::subscriptionFromToken(*device.registrationId)
                                    : std::nullopt;
      shown["push_delivery"] = !subscription               ? "none"
                               : subscription->encrypted() ? "encrypted"
                                                           : "plain";
      devices.push_back(std::move(shown));
    }
    json inFlight = json::object();
    json faults = json::object();
    for (std::size_t i = 0; i < kEndpointCount; ++i) {
      const auto name = std::string(endpointName(static_cast<Endpoint>(i)));
      inFlight[name] = {{"now", inFlight_[i].now}, {"max", inFlight_[i].max}};
      if (faults_[i]) {
        faults[name] = toJson(*faults_[i]);
      }
    }
    if (anyFault_) {
      faults["*"] = toJson(*anyFault_);
    }
    json lastPushes = json::object();
    for (const auto& [token, push] : lastPushes_) {
      lastPushes[token] = json::parse(push);
    }
    return {{"devices", std::move(devices)},
            {"reports", newestJson(reports_, newest)},
            {"report_count", reports_.size()},
            {"events", newestJson(events_, newest)},
            {"event_count", events_.size()},
            {"sent", newestJson(sent_, newest)},
            {"sent_count", sent_.size()},
            {"in_flight", std::move(inFlight)},
            {"faults", std::move(faults)},
            {"last_pushes", std::move(lastPushes)},
            {"request_count", requestCount_},
            {"dropped_requests", droppedRequests_},
            {"violation_count", violations_.size()},
            {"epoch", epoch_}};
  }

  json requestsJson(std::size_t since, std::size_t newest) const {
    std::lock_guard lock(mutex_);
    // requests_[i] has sequence number droppedRequests_ + i.
    std::size_t first = std::max(since, droppedRequests_);
    if (requestCount_ - std::min(first, requestCount_) > newest) {
      first = requestCount_ - newest;
    }
    json requests = json::array();
    for (std::size_t seq = first; seq < requestCount_; ++seq) {
      json entry = toJson(requests_[seq - droppedRequests_]);
      entry["seq"] = seq;
      requests.push_back(std::move(entry));
    }
    return {{"requests", std::move(requests)},
            {"dropped", droppedRequests_},
            {"next", requestCount_},
            {"epoch", epoch_}};
  }

  json violationsJson(std::size_t since, std::size_t newest) const {
    std::lock_guard lock(mutex_);
    const std::size_t count = violations_.size();
    std::size_t first = std::min(since, count);
    if (count - first > newest) {
      first = count - newest;
    }
    json violations = json::array();
    for (std::size_t seq = first; seq < count; ++seq) {
      json entry = toJson(violations_[seq]);
      entry["seq"] = seq;
      violations.push_back(std::move(entry));
    }
    return violations;
  }

  bool waitFor(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
      std::uint64_t seen = 0;
      {
        std::lock_guard lock(changeMutex_);
        seen = generation_;
      }
      if (predicate()) {
        return true;
      }
      std::unique_lock lock(changeMutex_);
      if (!changed_.wait_until(lock, deadline, [&] { return generation_ != seen; })) {
        lock.unlock();
        return predicate();
      }
    }
  }

  Options options_;
  const webpush::VapidKey vapid_;
  std::uint16_t port_ = 0;

  std::mutex daemonMutex_;
  MHD_Daemon* daemon_ = nullptr;

  std::mutex stopMutex_;
  std::condition_variable stopCv_;
  bool stopping_ = false;
  std::uint64_t faultEpoch_ = 0;

  mutable std::mutex changeMutex_;
  mutable std::condition_variable changed_;
  mutable std::uint64_t generation_ = 0;

  // Everything below is guarded by mutex_.
  mutable std::mutex mutex_;
  std::deque<RecordedRequest> requests_;
  std::size_t requestCount_ = 0;
  std::size_t droppedRequests_ = 0;
  std::vector<Device> devices_;
  std::unordered_map<std::string, std::size_t> deviceIndex_;
  std::vector<Report> reports_;
  std::unordered_map<std::string, std::size_t> reportIndex_;
  std::vector<Event> events_;
  std::unordered_map<std::string, std::size_t> eventIndex_;
  std::vector<Violation> violations_;
  std::unordered_map<std::string, std::string> lastPushes_;  // token -> serialised data object
  std::vector<SentPush> sent_;
  std::uint64_t epoch_ = 0;  // resets so far
  std::array<std::optional<Fault>, kEndpointCount> faults_;
  std::optional<Fault> anyFault_;
  std::array<InFlight, kEndpointCount> inFlight_{};
};

// --- Sandbox ------------------------------------------------------------------------------

std::unique_ptr<Sandbox> Sandbox::start(Options options) {
  auto impl = std::make_unique<Impl>(std::move(options));
  impl->listen();
  return std::unique_ptr<Sandbox>(new Sandbox(std::move(impl)));
}

Sandbox::Sandbox(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Sandbox::~Sandbox() {
  stop();
}

void Sandbox::stop() {
  impl_->stop();
}
std::uint16_t Sandbox::port() const {
  return impl_->port_;
}
std::string Sandbox::baseUrl() const {
  return "http://127.0.0.1:" + std::to_string(impl_->port_) + "/v1/";
}
std::string Sandbox::consoleUrl() const {
  return "http://127.0.0.1:" + std::to_string(impl_->port_) + std::string(kControlPrefix);
}
const std::string& Sandbox::vapidPublicKey() const {
  return impl_->vapid_.publicKey();
}

const Credentials& Sandbox::credentials() const {
  return impl_->options_.credentials;
}

std::vector<RecordedRequest> Sandbox::requests() const {
  std::lock_guard lock(impl_->mutex_);
  return {impl_->requests_.begin(), impl_->requests_.end()};
}
std::size_t Sandbox::requestCount() const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->requestCount_;
}
std::size_t Sandbox::droppedRequests() const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->droppedRequests_;
}
std::vector<Device> Sandbox::devices() const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->devices_;
}
std::optional<Device> Sandbox::device(const std::string& userId) const {
  std::lock_guard lock(impl_->mutex_);
  const auto found = impl_->deviceIndex_.find(userId);
  if (found == impl_->deviceIndex_.end()) {
    return std::nullopt;
  }
  return impl_->devices_[found->second];
}
std::vector<Report> Sandbox::reports() const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->reports_;
}
std::vector<Event> Sandbox::events() const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->events_;
}
std::size_t Sandbox::eventCount() const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->events_.size();
}
std::vector<Violation> Sandbox::violations() const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->violations_;
}
InFlight Sandbox::inFlight(Endpoint endpoint) const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->inFlight_[static_cast<std::size_t>(endpoint)];
}

bool Sandbox::setHealth(const std::string& userIdOrToken, nlohmann::json counters) {
  return !Impl::healthProblem(counters) && impl_->setHealth(userIdOrToken, std::move(counters));
}

void Sandbox::setLastPush(const std::string& deviceToken, nlohmann::json push) {
  impl_->setLastPush(deviceToken, std::move(push));
}
void Sandbox::clearLastPush(const std::string& deviceToken) {
  impl_->clearLastPush(deviceToken);
}
Delivery Sandbox::send(const std::string& deviceToken, nlohmann::json push) {
  return impl_->send(deviceToken, std::move(push));
}
std::vector<SentPush> Sandbox::sentPushes() const {
  std::lock_guard lock(impl_->mutex_);
  return impl_->sent_;
}
void Sandbox::setFault(std::optional<Endpoint> endpoint, Fault fault) {
  impl_->setFault(endpoint, fault);
}
void Sandbox::clearFault(std::optional<Endpoint> endpoint) {
  impl_->clearFault(endpoint);
}
void Sandbox::clearFaults() {
  impl_->clearFaults();
}
void Sandbox::reset() {
  impl_->reset();
}

nlohmann::json Sandbox::stateJson(std::size_t newest) const {
  return impl_->stateJson(newest);
}
nlohmann::json Sandbox::requestsJson(std::size_t since, std::size_t newest) const {
  return impl_->requestsJson(since, newest);
}
nlohmann::json Sandbox::violationsJson(std::size_t since, std::size_t newest) const {
  return impl_->violationsJson(since, newest);
}

bool Sandbox::waitFor(const std::function<bool()>& predicate,
                      std::chrono::milliseconds timeout) const {
  return impl_->waitFor(predicate, timeout);
}
bool Sandbox::waitForEventCount(std::size_t count, std::chrono::milliseconds timeout) const {
  return waitFor([&] { return eventCount() >= count; }, timeout);
}
bool Sandbox::waitForRequestCount(std::size_t count, std::chrono::milliseconds timeout) const {
  return waitFor([&] { return requestCount() >= count; }, timeout);
}

}  // namespace orvanta::sandbox
