// The desktop: the session D-Bus, the notification server and what it can show, the UnifiedPush
// distributors and the application's registration with one. Only questions are asked on the bus
// (names, server information, capabilities): nothing is shown, registered or unregistered.

#include <gio/gio.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "checks.hpp"

namespace orvanta::doctor {
namespace {

constexpr std::string_view kDistributorPrefix = "org.unifiedpush.Distributor.";
constexpr const char* kNotifications = "org.freedesktop.Notifications";
constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";

struct VariantDeleter {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using VariantPtr = std::unique_ptr<GVariant, VariantDeleter>;

/// A method call and its answer, or none with the error's text (and its D-Bus name, when the
/// error came from the other side).
VariantPtr call(Context& context, const char* destination, const char* path, const char* interface,
                const char* method, GVariant* parameters, const char* replyType, std::string& why,
                std::string* errorName = nullptr) {
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      context.bus.get(), destination, path, interface, method, parameters,
      G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NONE,
      static_cast<int>(std::min<std::int64_t>(context.settings.timeout.count(), G_MAXINT)), nullptr,
      &error);
  if (reply == nullptr) {
    if (errorName != nullptr) {
      gchar* remote = g_dbus_error_get_remote_error(error);
      *errorName = remote != nullptr ? remote : "";
      g_free(remote);
    }
    g_dbus_error_strip_remote_error(error);
    why = error->message;
    g_error_free(error);
  }
  return VariantPtr(reply);
}

std::vector<std::string> strings(GVariant* array) {
  std::vector<std::string> values;
  GVariantIter iterator;
  g_variant_iter_init(&iterator, array);
  const gchar* value = nullptr;
  while (g_variant_iter_next(&iterator, "&s", &value)) {
    values.emplace_back(value);
  }
  return values;
}

/// The bus's answer to a method of its own taking no argument and answering a list of names.
std::vector<std::string> busNames(Context& context, const char* method) {
  std::string why;
  auto reply = call(context, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                    "org.freedesktop.DBus", method, nullptr, "(as)", why);
  if (!reply) {
    return {};
  }
  VariantPtr names(g_variant_get_child_value(reply.get(), 0));
  return strings(names.get());
}

bool contains(const std::vector<std::string>& values, std::string_view value) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

std::string listed(const std::vector<std::string>& values) {
  std::string text;
  for (const auto& value : values) {
    text += (text.empty() ? "" : ", ") + value;
  }
  return text;
}

/// A distributor's whole bus name from the whole name or the part after the prefix.
std::string distributorName(const std::string& name) {
  if (name.empty() || name.compare(0, kDistributorPrefix.size(), kDistributorPrefix) == 0) {
    return name;
  }
  return std::string(kDistributorPrefix) + name;
}

}  // namespace

Verdict checkBus(Context& context) {
  GError* error = nullptr;
  // The address as the kit finds it: DBUS_SESSION_BUS_ADDRESS, else the desktop's usual places.
  gchar* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error);
  const std::string fix =
      "run the application in a desktop session, or point DBUS_SESSION_BUS_ADDRESS at the "
      "session bus (usually unix:path=$XDG_RUNTIME_DIR/bus)";
  if (address == nullptr) {
    const std::string why = error->message;
    g_error_free(error);
    return Verdict::fail("no session D-Bus (" + why +
                             "): no notification can be shown and no "
                             "push received",
                         fix);
  }
  const std::string found = address;
  g_free(address);
  GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
      found.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (connection == nullptr) {
    const std::string why = error->message;
    g_error_free(error);
    return Verdict::fail("the session D-Bus at " + found + " does not answer (" + why +
                             "): no notification can be shown and no push received",
                         fix, {{"address", found}});
  }
  context.bus.reset(connection, [](GDBusConnection* opened) {
    g_dbus_connection_close_sync(opened, nullptr, nullptr);
    g_object_unref(opened);
  });
  return Verdict::pass("reachable at " + found, {{"address", found}});
}

Verdict checkNotificationServer(Context& context) {
  if (!verdictOf(context, &checkBus).passed) {
    return Verdict::notChecked("no session D-Bus", "session D-Bus");
  }
  std::string why;
  std::string errorName;
  auto capabilities = call(context, kNotifications, kNotificationsPath, kNotifications,
                           "GetCapabilities", nullptr, "(as)", why, &errorName);
  if (!capabilities) {
    const bool absent = errorName == "org.freedesktop.DBus.Error.ServiceUnknown" ||
                        errorName == "org.freedesktop.DBus.Error.NameHasNoOwner";
    return Verdict::fail((absent ? "no notification server on the session D-Bus"
                                 : "the notification server does not answer (" + why + ")") +
                             std::string(": the kit cannot show any notification"),
                         "start the desktop's notification server (a program that owns "
                         "org.freedesktop.Notifications; desktop environments bring one)",
                         {{"error", why}});
  }
  VariantPtr list(g_variant_get_child_value(capabilities.get(), 0));
  context.capabilities = strings(list.get());
  nlohmann::ordered_json details{{"capabilities", *context.capabilities}};
  // Name and version, for the report: a server without them still shows notifications.
  std::string server = "a notification server";
  if (auto information = call(context, kNotifications, kNotificationsPath, kNotifications,
                              "GetServerInformation", nullptr, "(ssss)", why)) {
    const gchar* name = nullptr;
    const gchar* vendor = nullptr;
    const gchar* version = nullptr;
    const gchar* protocol = nullptr;
    g_variant_get(information.get(), "(&s&s&s&s)", &name, &vendor, &version, &protocol);
    details["name"] = name;
    details["vendor"] = vendor;
    details["version"] = version;
    details["protocolVersion"] = protocol;
    server = std::string(name) + " " + version + " (" + vendor + ")";
  }
  context.notificationServer = server;
  return Verdict::pass(server + " answers; capabilities: " + listed(*context.capabilities),
                       details);
}

Verdict checkButtons(Context& context) {
  if (!verdictOf(context, &checkNotificationServer).passed) {
    return Verdict::notChecked("no notification server", "notification server");
  }
  const auto& capabilities = *context.capabilities;
  const bool pictures =
      contains(capabilities, "body-images") || contains(capabilities, "icon-static");
  nlohmann::ordered_json details{{"actions", contains(capabilities, "actions")},
                                 {"pictures", pictures}};
  if (!contains(capabilities, "actions")) {
    return Verdict::fail(context.notificationServer +
                             " has no \"actions\" capability: pushes show without their buttons, "
                             "and clicking one does not open it",
                         "use a notification server that supports actions (most desktop "
                         "environments' own do)",
                         details);
  }
  return Verdict::pass(std::string("buttons are shown") +
                           (pictures ? ", and pictures" : "; pictures are not (no body-images)"),
                       details);
}

Verdict checkDistributor(Context& context) {
  verdictOf(context, &checkKeystore);  // the distributor registered with before
  if (!verdictOf(context, &checkBus).passed) {
    return Verdict::notChecked("no session D-Bus", "session D-Bus");
  }
  std::vector<std::string> found;
  for (const char* method : {"ListNames", "ListActivatableNames"}) {
    for (auto& name : busNames(context, method)) {
      if (name.size() > kDistributorPrefix.size() &&
          name.compare(0, kDistributorPrefix.size(), kDistributorPrefix) == 0 &&
          !contains(found, name)) {
        found.push_back(std::move(name));
      }
    }
  }
  std::sort(found.begin(), found.end());
  context.distributors = found;
  nlohmann::ordered_json details{{"found", found}};
  const std::string development =
      "install and start a UnifiedPush distributor (for development: "
      "orvanta-distributor)";
  if (found.empty()) {
    return Verdict::fail(
        "no UnifiedPush distributor on the session D-Bus: the application cannot receive pushes",
        development, details);
  }
  // The one the kit takes: the user's choice, else the host's, else the one registered with
  // before while it is there, else the only one.
  const char* variable = std::getenv("ORVANTA_PUSH_DISTRIBUTOR");
  const std::string userChoice = distributorName(variable != nullptr ? variable : "");
  const std::string hostChoice = distributorName(context.settings.distributor);
  std::string chosen;
  std::string because;
  if (!userChoice.empty() || !hostChoice.empty()) {
    chosen = userChoice.empty() ? hostChoice : userChoice;
    const std::string who = userChoice.empty() ? "the application" : "ORVANTA_PUSH_DISTRIBUTOR";
    because = who + " names it";
    if (!contains(found, chosen)) {
      details["chosen"] = chosen;
      return Verdict::fail(who + " names " + chosen + ", which is not on the session D-Bus " +
                               "(there: " + listed(found) + ")",
                           "start " + chosen + ", or name one of those there", details);
    }
  } else if (context.registration && contains(found, context.registration->distributor)) {
    chosen = context.registration->distributor;
    because = "registered with before";
  } else if (found.size() == 1) {
    chosen = found.front();
    because = "the only one";
  } else {
    return Verdict::fail("several distributors and none chosen: " + listed(found),
                         "set ORVANTA_PUSH_DISTRIBUTOR to one of them (or give the platform "
                         "LinuxPlatformOptions::pushDistributor)",
                         details);
  }
  details["chosen"] = chosen;
  return Verdict::pass(
      chosen + " (" + because + (found.size() > 1 ? "; on the bus: " + listed(found) : "") + ")",
      details);
}

Verdict checkRegistration(Context& context) {
  const std::string& applicationId = context.settings.applicationId;
  if (applicationId.empty()) {
    return Verdict::fail("no application id: the kit cannot register for pushes",
                         "give the platform the application's reverse-DNS id "
                         "(LinuxPlatformOptions::applicationId) and pass it here (--app-id)");
  }
  if (!g_dbus_is_name(applicationId.c_str()) || g_dbus_is_unique_name(applicationId.c_str())) {
    return Verdict::fail("the application id \"" + applicationId +
                             "\" is not a D-Bus name: the kit cannot register for pushes",
                         "use a reverse-DNS id such as com.example.Shop",
                         {{"applicationId", applicationId}});
  }
  verdictOf(context, &checkKeystore);
  verdictOf(context, &checkDistributor);
  if (!context.bus) {
    return Verdict::notChecked("no session D-Bus", "session D-Bus");
  }
  nlohmann::ordered_json details{{"applicationId", applicationId}};
  const std::string startApplication =
      "start the application: registerForPushNotifications registers it";
  if (!context.registration || context.registration->endpoint.empty() ||
      context.registration->distributor.empty()) {
    return Verdict::fail("not registered with a distributor: no push endpoint is stored",
                         startApplication + (context.distributors && context.distributors->empty()
                                                 ? " (once a distributor runs)"
                                                 : ""),
                         details);
  }
  const StoredRegistration& registration = *context.registration;
  details["distributor"] = registration.distributor;
  details["endpoint"] = registration.endpoint;
  if (context.distributors && !contains(*context.distributors, registration.distributor)) {
    return Verdict::fail("registered with " + registration.distributor +
                             ", which is not on the session D-Bus: pushes to " +
                             registration.endpoint + " reach nobody",
                         "start " + registration.distributor +
                             " again; or, with another distributor running, " + startApplication +
                             " with that one",
                         details);
  }
  const std::string token =
      context.deviceRecord && context.deviceRecord->contains("registration_id")
          ? (*context.deviceRecord)["registration_id"].get<std::string>()
          : std::string();
  const auto carried = readDeviceToken(token);
  if (!carried || carried->endpoint != registration.endpoint) {
    return Verdict::fail("the service does not have this installation's endpoint " +
                             registration.endpoint + ": its pushes go elsewhere",
                         startApplication +
                             ", with the service reachable: it hands the "
                             "endpoint to the service",
                         details);
  }
  details["encrypted"] = !carried->authSecret.empty();
  if (carried->authSecret.empty() || carried->authSecret != registration.authSecret) {
    return Verdict::fail(
        carried->authSecret.empty()
            ? "the service has this installation's endpoint without its keys (a token of an "
              "earlier version): the application refuses its pushes, which come unencrypted"
            : "the service has other keys than this installation's: the application can't "
              "decrypt its pushes",
        startApplication +
            ", with the service reachable: it hands the endpoint and its keys to "
            "the service",
        details);
  }
  std::string why;
  bool running = false;
  if (auto owned =
          call(context, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
               "NameHasOwner", g_variant_new("(s)", applicationId.c_str()), "(b)", why)) {
    gboolean has = FALSE;
    g_variant_get(owned.get(), "(b)", &has);
    running = has != FALSE;
  }
  details["running"] = running;
  return Verdict::pass(
      "registered with " + registration.distributor + " at " + registration.endpoint +
          ", which the service has with the keys pushes are encrypted to; " +
          (running ? "the application is running" : "pushes arrive while the application runs"),
      details);
}

}  // namespace orvanta::doctor
